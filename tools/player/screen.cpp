#include "tools/player/screen.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/player/text.h"

constexpr size_t Screen_MinBar = 3, Screen_MaxBar = 60, Screen_MinMeter = 3, Screen_MaxMeter = 20;
constexpr size_t Screen_Narrow = 40;    // columns; below this, words are short
constexpr double Screen_Decibels = 48;  // below full scale, where the meter begins

static std::string Fill(size_t width, size_t filled, char with, char rest)
{
    return std::string(filled, with) + std::string(width - filled, rest);
}

// The progress bar, after a blank.
static std::string Bar(double done, size_t width)
{
    const double part = std::isfinite(done) ? std::clamp(done, 0.0, 1.0) : 0;
    std::string bar = Fill(width, static_cast<size_t>(part * static_cast<double>(width)), '=', ' ');
    bar.insert(0, " [");
    return bar + ']';
}

// The level meter from -48 dB to full scale; its last tenth is red.
static std::string Meter(double level, size_t width, bool colours)
{
    const double decibels = level > 0 ? 20 * std::log10(level) : -Screen_Decibels;
    const double part = std::clamp(1 + decibels / Screen_Decibels, 0.0, 1.0);
    const auto filled = static_cast<size_t>(std::lround(part * static_cast<double>(width)));
    std::string meter = Fill(width, filled, '|', '.');
    if (!colours)
        return meter;
    const size_t hot = width - std::max<size_t>(width / 10, 1);
    return "\x1B[32m" + meter.substr(0, hot) + "\x1B[31m" + meter.substr(hot) + "\x1B[0m";
}

// Time, length, bar and meter; the last ones shrink or go if columns lack.
static std::string TimeLine(const SCREEN &screen, size_t room, bool colours)
{
    const std::string now = Player_Time(screen.Now), total = Player_Time(screen.Total);
    std::string line = now + (room < 30 ? "/" : " / ") + total;
    if (line.size() > room)
        return Player_Cut(now, room);
    room -= line.size();
    const bool metered = screen.Level >= 0;
    size_t meter = metered ? std::clamp(room / 4, Screen_MinMeter, Screen_MaxMeter) : 0;
    const size_t around = metered ? 4 : 3;  // blanks and brackets
    if (room >= Screen_MinBar + meter + around)
        line += Bar(screen.Now / screen.Total, std::min(room - meter - around, Screen_MaxBar));
    else
        meter = std::min(meter, room == 0 ? 0 : room - 1);
    return meter != 0 ? line + " " + Meter(screen.Level, meter, colours) : line;
}

static std::string TitleLine(const SCREEN &screen, size_t room)
{
    constexpr size_t minTitle = 12;
    const std::string title = (room < Screen_Narrow ? screen.Brief : screen.State) + screen.Title;
    const size_t place = screen.Place.empty() ? 0 : screen.Place.size() + 1;
    if (place == 0 || place + minTitle > room)
        return Player_Cut(title, room);
    std::string line = Player_Cut(title, room - place);
    return line.append(1, ' ').append(screen.Place);
}

std::string Screen_Wrap(const std::string &text, size_t columns)
{
    std::string wrapped;
    size_t used = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find_first_of(" \n", at), text.size());
        const size_t length = end - at;
        if (used != 0 && used + 1 + length >= columns) {
            wrapped += '\n';
            used = 0;
        } else if (used != 0)
            wrapped += ' ';
        used += length + (used != 0);
        wrapped.append(text, at, length);
        at = end + 1;
    }
    return wrapped;
}

std::vector<std::string> Screen_Channels(std::span<const uint8_t> levels, size_t columns,
                                         bool colours)
{
    constexpr size_t maxLines = 8, number = 3, minNumbered = 7;
    const size_t room = std::max<size_t>(columns, 2) - 1, count = levels.size();
    const size_t inLine = std::max((count + maxLines - 1) / maxLines, std::min(count, room / 16));
    const size_t width = inLine != 0 ? room / inLine : 0;  // of a channel, including a blank
    if (width == 0)
        return {};
    const bool numbered = width >= minNumbered;
    const size_t meter = std::max<size_t>(width - (numbered ? number : 0), 2) - 1;
    std::vector<std::string> lines;
    for (size_t i = 0; i < count; i++) {
        if (i % inLine == 0)
            lines.emplace_back();
        std::string &line = lines.back();
        char text[8];
        std::snprintf(text, sizeof text, "%2zu ", (i + 1) % 100);
        line += numbered ? text : "";
        const size_t filled = (std::min<size_t>(levels[i], 64) * meter + 63) / 64;
        line += colours ? "\x1B[36m" : "";
        line += Fill(meter, filled, '|', '.');
        line += colours ? "\x1B[0m" : "";
        line += width > 1 && i % inLine + 1 != inLine ? " " : "";
    }
    return lines;
}

std::vector<std::string> Screen_Lines(const SCREEN &screen, size_t columns, size_t rows,
                                      bool colours)
{
    const size_t room = std::max<size_t>(columns, 2) - 1;
    std::vector<std::string> lines = screen.View;
    lines.push_back(TitleLine(screen, room));
    lines.push_back(TimeLine(screen, room, colours));
    const size_t over = lines.size() - std::min(lines.size(), std::max<size_t>(rows, 1));
    lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(over));
    return lines;
}
