// Any file: giflib's number of frames and its first one.
#include <algorithm>
#include <cstring>
#include <vector>

#include <gif_lib.h>

#include "fuzz/peers/peer.h"
#include "picture/gif.h"

static int Read(GifFileType *gif, GifByteType *to, int count)
{
    auto &left = *static_cast<std::span<const uint8_t> *>(gif->UserData);
    const size_t given = std::min(left.size(), static_cast<size_t>(count));
    std::copy_n(left.data(), given, to);
    left = left.subspan(given);
    return static_cast<int>(given);
}

// Draws a frame. False where indexes have no colour, or the frame leaves the screen: giflib's users
// have to decide about those.
static bool Draw(const GifFileType &gif, const SavedImage &frame, int transparent,
                 std::vector<uint8_t> &screen)
{
    const GifImageDesc &d = frame.ImageDesc;
    const ColorMapObject *map = d.ColorMap ? d.ColorMap : gif.SColorMap;
    if (!map || d.Left + d.Width > gif.SWidth || d.Top + d.Height > gif.SHeight)
        return false;
    for (int y = 0; y < d.Height; y++)
        for (int x = 0; x < d.Width; x++) {
            const int index = frame.RasterBits[y * d.Width + x];
            if (index == transparent)
                continue;
            if (index >= map->ColorCount)
                return false;
            const GifColorType &c = map->Colors[index];
            const uint8_t pixel[] = {c.Red, c.Green, c.Blue, 255};
            std::memcpy(
                &screen[size_t{4} * static_cast<size_t>((d.Top + y) * gif.SWidth + d.Left + x)],
                pixel, 4);
        }
    return true;
}

static void Compare(const GifFileType &gif, const uint8_t *data, size_t size)
{
    const PEER_PICTURE ours(data, size);
    if (ours.It.Pixels && *Picture_Reason())
        return;  // giflib makes something up for codes that no table has
    GraphicsControlBlock control = {
        .DisposalMode = 0, .UserInputFlag = false, .DelayTime = 0, .TransparentColor = -1};
    const SavedImage &frame = gif.SavedImages[0];
    for (int i = 0; i < frame.ExtensionBlockCount; i++)  // the last one holds
        if (frame.ExtensionBlocks[i].Function == GRAPHICS_EXT_FUNC_CODE)
            DGifExtensionToGCB(static_cast<size_t>(frame.ExtensionBlocks[i].ByteCount),
                               frame.ExtensionBlocks[i].Bytes, &control);
    std::vector<uint8_t> screen(size_t{4} * static_cast<size_t>(gif.SWidth * gif.SHeight));
    if (!Draw(gif, frame, control.TransparentColor, screen))
        return;
    if (!ours.It.Pixels)
        Differ(Picture_Reason());
    if (GIF_PictureOf(ours.It.Pixels).Frames.size() != static_cast<size_t>(gif.ImageCount))
        Differ("the number of frames", 0, 0, gif.ImageCount);
    for (size_t i = 0; i < screen.size(); i++)
        if (screen[i | 3] != 0 && ours.It.Pixels[i] != screen[i])
            Differ("a pixel's byte", i, ours.It.Pixels[i], screen[i]);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // At most 511 by 511 pixels. giflib believes in any GIF version, reads on after an extension
    // without data, and ignores a graphic control of more than its four bytes.
    if (size < 10 || (data[7] | data[9]) > 1 || data[3] != '8')
        return 0;
    for (size_t i = 10; i + 2 < size; i++)
        if (data[i] == 0x21 && (data[i + 2] == 0 || (data[i + 1] == 0xF9 && data[i + 2] != 4)))
            return 0;
    std::span<const uint8_t> left(data, size);
    int error = 0;
    GifFileType *gif = DGifOpen(&left, Read, &error);
    if (!gif)
        return 0;
    if (gif->SWidth > 0 && gif->SHeight > 0 && DGifSlurp(gif) == GIF_OK && gif->ImageCount > 0)
        Compare(*gif, data, size);
    DGifCloseFile(gif, &error);
    return 0;
}
