#include "tools/viewer/sheet.h"

#include <algorithm>
#include <array>

#include "picture/charset.h"
#include "picture/graphics.h"

// In ISO/IEC 8859-2.
static constexpr std::array samples = {
    "The quick brown fox jumps over the lazy dog. 0123456789",
    "\xC1rv\xEDzt\xFBr\xF5 t\xFCk\xF6rf\xFAr\xF3g\xE9p, \xC1RV\xCDZT\xDBR\xD5 "
    "T\xDCK\xD6RF\xDAR\xD3G\xC9P",
    "P\xF8\xEDli\xB9 \xBElu\xBBou\xE8k\xFD k\xF9\xF2 \xFAp\xECl \xEF\xE1"
    "belsk\xE9 \xF3"
    "dy",
    "Za\xBF\xF3\xB3\xE6 g\xEA\xB6l\xB1 ja\xBC\xF1",
    "F\xFCnf gr\xF6\xDF"
    "ere \xC4pfel, \xD6l und \xDC"
    "bermut",
    "\xAAtiin\xFE\xE3 \xBAi \xFE"
    "ar\xE3 \xEEn p\xE3m\xE2nt",
};

static constexpr uint8_t linesSet = 3;  // of Viewer_Lines

// Draws into an image.
template <typename Drawing>
static void Draw(VIEWER_IMAGE &image, uint8_t grey, Drawing drawing)
{
    Picture target{};
    target.Width = target.BufferWidth = static_cast<uint16_t>(image.Width);
    target.Height = target.BufferHeight = static_cast<uint16_t>(image.Height);
    target.Pixels = image.Pixels.data();
    Graphics_SetTarget(&target);
    Graphics_SetColor(grey, grey, grey, 255);
    drawing();
    Graphics_SetTarget(nullptr);
}

VIEWER_IMAGE Viewer_Sheet(uint8_t set)
{
    const CHARSET_SIZE size = CharSet_GetSize(set);
    if (size.Glyphs == 0)
        return {};
    constexpr uint32_t across = 32, margin = 8;
    const uint32_t cellWidth = size.Columns + 4u, cellHeight = size.Rows + 4u;
    const uint32_t rows = (size.Glyphs + across - 1) / across;
    const uint32_t longest = 60 * (size.Columns + 2u);
    VIEWER_IMAGE image;
    image.Width = std::max(across * cellWidth, longest) + 2 * margin;
    image.Height = (rows + 1 + static_cast<uint32_t>(samples.size())) * cellHeight + 2 * margin;
    image.Pixels.assign(size_t{image.Width} * image.Height * 4, 255);

    const auto y = [&](uint32_t row) { return static_cast<int16_t>(margin + row * cellHeight); };
    Draw(image, 0, [&] {
        for (uint32_t i = 0; i < size.Glyphs; i++)
            CharSet_PutChar(static_cast<int16_t>(margin + i % across * cellWidth), y(i / across),
                            static_cast<uint8_t>(i), set, 1, 1);
        for (uint32_t i = 0; i < samples.size(); i++)
            CharSet_PutText(margin, y(rows + 1 + i), samples[i], set, 1, 1);
    });
    return image;
}

VIEWER_IMAGE Viewer_Lines(std::span<const std::string> lines)
{
    constexpr uint8_t set = linesSet, ground = 200;
    const uint32_t height = CharSet_GetSize(set).Rows + 4u;
    size_t longest = 0;
    for (const std::string &line : lines)
        longest = std::max(longest, std::min<size_t>(line.size(), 255));
    VIEWER_IMAGE image;
    image.Width = static_cast<uint32_t>(longest) * Viewer_LetterWidth + 2 * Viewer_LinesMargin;
    image.Height = static_cast<uint32_t>(lines.size()) * height + Viewer_LinesMargin;
    image.Pixels.resize(size_t{image.Width} * image.Height * 4);
    for (size_t i = 3; i < image.Pixels.size(); i += 4)
        image.Pixels[i] = ground;
    Draw(image, 255, [&] {
        uint32_t y = Viewer_LinesMargin / 2 + 2;
        for (const std::string &line : lines) {
            CharSet_PutText(Viewer_LinesMargin, static_cast<int16_t>(y), line.c_str(), set, 1, 1);
            y += height;
        }
    });
    return image;
}

// UTF-8 in ISO/IEC 8859-2, as the character sets take it.
static std::string Latin2(std::string_view utf8)
{
    std::string text;
    while (!utf8.empty()) {
        size_t length = 1;
        while (length < utf8.size() && (utf8[length] & 0xC0) == 0x80)
            length++;
        const size_t letter = length == 2 ? CharSet_Letters.find(utf8.substr(0, 2)) : utf8.npos;
        const auto byte = static_cast<uint8_t>(CharSet_FirstLetter + letter / 2);
        if (letter != utf8.npos && CharSet_CanWrite(linesSet, byte))
            text += static_cast<char>(byte);
        else
            text += length == 1 && utf8[0] >= ' ' && utf8[0] < 127 ? utf8[0] : '?';
        utf8.remove_prefix(length);
    }
    return text;
}

std::string Viewer_Caption(std::string_view name, const std::string &facts, size_t room)
{
    std::string text = Latin2(name);
    const size_t rest = facts.size() + 2, least = 12;
    const size_t most = std::max(room > rest ? room - rest : 0, least);
    if (text.size() > most)  // its end tells more than its middle
        text =
            text.substr(0, (most - 3 + 1) / 2) + "..." + text.substr(text.size() - (most - 3) / 2);
    return (text + "  " + facts).substr(0, room);
}
