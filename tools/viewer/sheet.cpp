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

    Picture target{};
    target.Width = target.BufferWidth = static_cast<uint16_t>(image.Width);
    target.Height = target.BufferHeight = static_cast<uint16_t>(image.Height);
    target.Pixels = image.Pixels.data();
    Graphics_SetTarget(&target);
    Graphics_SetColor(0, 0, 0, 255);
    const auto y = [&](uint32_t row) { return static_cast<int16_t>(margin + row * cellHeight); };
    for (uint32_t i = 0; i < size.Glyphs; i++)
        CharSet_PutChar(static_cast<int16_t>(margin + i % across * cellWidth), y(i / across),
                        static_cast<uint8_t>(i), set, 1, 1);
    for (uint32_t i = 0; i < samples.size(); i++)
        CharSet_PutText(margin, y(rows + 1 + i), samples[i], set, 1, 1);
    Graphics_SetTarget(nullptr);
    return image;
}
