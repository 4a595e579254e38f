// Any BMP, PNM, TGA or XBM file: gdk-pixbuf.
#include <vector>

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "fuzz/peers/peer.h"

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

static void Compare(GdkPixbuf *theirs, const uint8_t *data, size_t size)
{
    const auto width = static_cast<uint32_t>(gdk_pixbuf_get_width(theirs)),
               height = static_cast<uint32_t>(gdk_pixbuf_get_height(theirs));
    if (width > 500 || height > 500)
        return;
    const int samples = gdk_pixbuf_get_n_channels(theirs);
    std::vector<uint8_t> rgba;
    for (uint32_t y = 0; y < height; y++)
        for (uint32_t x = 0; x < width; x++) {
            const uint8_t *p = gdk_pixbuf_read_pixels(theirs) +
                               y * static_cast<size_t>(gdk_pixbuf_get_rowstride(theirs)) +
                               x * static_cast<size_t>(samples);
            rgba.insert(rgba.end(), {p[0], p[1], p[2], samples == 4 ? p[3] : uint8_t{255}});
        }
    PEER_PICTURE(data, size).Compare(width, height, rgba.data(), 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *type = TypeOf(Picture_CheckBytes({data, size}, 0));
    if (!type)
        return 0;
    GdkPixbufLoader *loader = gdk_pixbuf_loader_new_with_type(type, nullptr);
    if (!loader)
        Differ("no loader");
    const bool written = gdk_pixbuf_loader_write(loader, data, size, nullptr);
    const bool closed = gdk_pixbuf_loader_close(loader, nullptr);
    GdkPixbuf *pixels = gdk_pixbuf_loader_get_pixbuf(loader);
    if (written && closed && pixels)
        Compare(pixels, data, size);
    g_object_unref(loader);
    return 0;
}
