// Any BMP, PNM or TGA file that is whole: gdk-pixbuf.
#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "fuzz/peers/peer.h"
#include "picture/bmp.h"
#include "picture/pxm.h"

static const char *TypeOf(uint8_t format)
{
    switch (format) {
    case PICTURE_BMP:
        return "bmp";
    case PICTURE_PNM:
        return "pnm";
    case PICTURE_TGA:
        return "tga";
    default:
        return nullptr;
    }
}

// Whether a text has other characters than numbers and blanks, which each reader takes its own way.
static bool HasJunk(std::span<const uint8_t> text)
{
    return std::ranges::any_of(
        text, [](uint8_t c) { return c == 0 || !std::strchr("0123456789 \t\r\n", c); });
}

// Whether a BMP's masks are not runs of four and more ones within a pixel; gdk-pixbuf has its own
// results for these: one bit makes 128 at most, three make 224.
static bool HasOddMasks()
{
    const BMP_HEADER &h = BMP_Header;
    const auto odd = [&h](uint32_t m) {
        return std::popcount(m) < 4 || (m & (m + (m & (~m + 1)))) != 0 ||
               uint64_t{m} >> h.BitsPerPixel != 0;
    };
    return h.Compression == 3 && (odd(h.RedMask) || odd(h.GreenMask) || odd(h.BlueMask));
}

// Whether a BMP's pixels do not follow its palette or masks at once: gdk-pixbuf takes them from
// there.
static bool HasGap(std::span<const uint8_t> file)
{
    size_t position = 10, colours = 46;
    const uint32_t used = Bytes_GetLittle(file, colours, 4);
    if (used > 256)
        return true;  // it believes that number and allocates as much
    const BMP_HEADER &h = BMP_Header;
    const uint32_t masks = h.Compression == 3 && h.HeaderSize == 40 ? 12 : 0;
    const uint32_t palette =
        h.BitsPerPixel > 8 ? 0 : h.PaletteEntry * (used != 0 ? used : 1u << h.BitsPerPixel);
    return Bytes_GetLittle(file, position, 4) != 14 + h.HeaderSize + masks + palette;
}

// Whether a BMP's run or delta passes its row's end: gdk-pixbuf goes on in the next row.
static bool HasLongRuns(std::span<const uint8_t> file)
{
    const BMP_HEADER &h = BMP_Header;
    if (h.Compression != 1 && h.Compression != 2)
        return false;
    size_t p = h.DataOffset, x = 0, y = 0;
    while (p < file.size() && y < h.Height && x <= h.Width) {
        const size_t count = Bytes_GetByte(file, p);
        const size_t value = Bytes_GetByte(file, p);
        if (count != 0) {
            x += count;
        } else if (value == 0) {
            x = 0;
            y++;
        } else if (value == 1) {
            break;
        } else if (value == 2) {
            x += Bytes_GetByte(file, p);
            y += Bytes_GetByte(file, p);
        } else {
            x += value;
            const size_t bytes = h.Compression == 1 ? value : (value + 1) / 2;
            p += bytes + bytes % 2;
        }
    }
    return x > h.Width;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *type = TypeOf(Picture_CheckBytes({data, size}, 0));
    const PEER_PICTURE ours(data, size);
    // Of files that are cut gdk-pixbuf shows what it has, and it believes any size.
    if (!type || *Picture_Reason() || ours.It.Width > 500 || ours.It.Height > 500)
        return 0;
    if (ours.It.Format == PICTURE_PNM && data[1] <= '3' && HasJunk({data + 2, size - 2}))
        return 0;
    if (ours.It.Format == PICTURE_PNM && PXM_Header.Maximum != 255 && PXM_Header.Maximum != 65535)
        return 0;  // samples may be larger
    if (ours.It.Format == PICTURE_BMP &&
        (HasGap({data, size}) || HasOddMasks() || HasLongRuns({data, size})))
        return 0;
    GdkPixbufLoader *loader = gdk_pixbuf_loader_new_with_type(type, nullptr);
    if (!loader)
        Differ("no loader");
    const bool written = gdk_pixbuf_loader_write(loader, data, size, nullptr);
    // It needs a blank after the last number, and the padding of the last row.
    gdk_pixbuf_loader_write(loader, reinterpret_cast<const uint8_t *>("\n\0\0"), 4, nullptr);
    const bool closed = gdk_pixbuf_loader_close(loader, nullptr);
    const GdkPixbuf *theirs = gdk_pixbuf_loader_get_pixbuf(loader);
    if (written && closed && theirs) {
        const int width = gdk_pixbuf_get_width(theirs), height = gdk_pixbuf_get_height(theirs);
        const int samples = gdk_pixbuf_get_n_channels(theirs);
        const int stride = gdk_pixbuf_get_rowstride(theirs);
        std::vector<uint8_t> rgba;
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++) {
                const uint8_t *p = gdk_pixbuf_read_pixels(theirs) + y * stride + x * samples;
                // Pixels that a BMP's runs leave out are transparent there.
                if (samples == 4 && p[3] == 0 && width == ours.It.Width && x < ours.It.Width &&
                    y < ours.It.Height)
                    p = ours.It.Pixels + 4 * (y * width + x);
                rgba.insert(rgba.end(), {p[0], p[1], p[2], samples == 4 ? p[3] : uint8_t{255}});
            }
        ours.Compare(static_cast<uint32_t>(width), static_cast<uint32_t>(height), rgba.data(), 1);
    }
    g_object_unref(loader);
    return 0;
}
