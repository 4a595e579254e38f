// Any file: giflib's frames, laid over one another as far as none is disposed of.
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
    if (!ours.It.Pixels)
        Differ(Picture_Reason());
    const GIF_PICTURE &frames = GIF_PictureOf(ours.It.Pixels);
    if (frames.Frames.size() != static_cast<size_t>(gif.ImageCount))
        Differ("the number of frames", 0, static_cast<long>(frames.Frames.size()), gif.ImageCount);
    std::vector<uint8_t> screen(size_t{4} * static_cast<size_t>(gif.SWidth * gif.SHeight));
    GIF_CANVAS canvas;
    for (int n = 0; n < gif.ImageCount; n++) {
        GraphicsControlBlock control = {
            .DisposalMode = 0, .UserInputFlag = false, .DelayTime = 0, .TransparentColor = -1};
        DGifSavedExtensionToGCB(const_cast<GifFileType *>(&gif), n, &control);
        if (!Draw(gif, gif.SavedImages[n], control.TransparentColor, screen))
            return;
        GIF_Compose(frames, static_cast<size_t>(n), canvas);
        for (size_t i = 0; i < screen.size(); i++)
            if (screen[i | 3] != 0 && canvas.Screen[i] != screen[i])
                Differ("a pixel's byte", i, canvas.Screen[i], screen[i]);
        if (control.DisposalMode > 1)
            return;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 10 || (data[7] | data[9]) > 1)  // at most 511 by 511
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
