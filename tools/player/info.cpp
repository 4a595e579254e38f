#include "tools/player/info.h"

#include <cmath>

#include "tools/common/text.h"
#include "tools/player/text.h"

static void AddLine(std::string &text, const std::string &what, const std::string &value)
{
    text += "  " + what + std::string(what.size() < 15 ? 15 - what.size() : 1, ' ') + value + "\n";
}

// With the fraction of the last second.
static std::string Thousandths(const PLAYER_SOUND &sound)
{
    const int thousandths =
        static_cast<int>(std::fmod(Player_Seconds(sound, sound.Bytes), 1) * 1000);
    std::string text = std::to_string(1000 + thousandths);
    text[0] = '.';
    return text;
}

std::string Info_Text(const PLAYER_SOUND &sound)
{
    std::string text = Player_Text(sound.Path) + "\n";
    AddLine(text, "format", sound.Format);
    if (!sound.Codec.empty())
        AddLine(text, "codec", sound.Codec);
    if (sound.Hz != 0) {
        const double seconds = Player_Seconds(sound, sound.Bytes);
        AddLine(text, "rate", std::to_string(sound.Hz) + " Hz");
        AddLine(text, "channels", std::to_string(sound.Channels));
        AddLine(text, "bits", std::to_string(sound.Bits));
        AddLine(text, "length", Player_Time(seconds) + Thousandths(sound));
    }
    if (!sound.Title.empty())
        AddLine(text, "title", sound.Title);
    for (const auto &[what, value] : sound.Facts)
        AddLine(text, what, value);
    const std::string silent = Player_WhySilent(sound);
    if (!sound.Incomplete.empty() && silent != sound.Incomplete)
        AddLine(text, "incomplete", sound.Incomplete);
    if (!silent.empty())
        AddLine(text, "silent", silent);
    return text;
}

std::string Info_JSON(const PLAYER_SOUND &sound)
{
    const auto whole = static_cast<uint64_t>(Player_Seconds(sound, sound.Bytes));
    std::string text = "{\"path\":";
    text += Text_JSON(sound.Path);
    const auto add = [&text](const char *name, const std::string &value) {
        text += ",\"";
        text += name;
        text += "\":";
        text += value;
    };
    add("format", Text_JSON(sound.Format));
    add("codec", Text_JSON(sound.Codec));
    add("rate", std::to_string(sound.Hz));
    add("channels", std::to_string(sound.Channels));
    add("bits", std::to_string(sound.Bits));
    add("length", std::to_string(whole) + Thousandths(sound));
    if (!sound.Title.empty())
        add("title", Text_JSON(sound.Title));
    std::string facts = "{";
    for (const auto &[what, value] : sound.Facts) {
        facts += facts.size() > 1 ? "," : "";
        facts += Text_JSON(what) + ":" + Text_JSON(value);
    }
    add("facts", facts + "}");
    const std::string silent = Player_WhySilent(sound);
    add("truncated", sound.Incomplete.empty() ? "false" : "true");
    if (!silent.empty() || !sound.Incomplete.empty())
        add("reason", Text_JSON(sound.Incomplete.empty() ? silent : sound.Incomplete));
    return text + "}";
}

std::string Info_JSON(const std::string &path, const std::string &reason)
{
    return "{\"path\":" + Text_JSON(path) + ",\"reason\":" + Text_JSON(reason) + "}";
}
