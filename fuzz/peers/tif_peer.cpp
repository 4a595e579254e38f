// Any file: libtiff's RGBA. It multiplies alpha in, and its complaints count as a rejection.
#include <algorithm>
#include <vector>

#include <tiffio.h>

#include "fuzz/peers/peer.h"
#include "picture/tif.h"

struct STREAM {
    std::span<const uint8_t> File;
    uint64_t Position = 0;
};

static bool complained;

static void Complain(const char *, const char *, va_list)
{
    complained = true;
}

static tmsize_t Read(thandle_t handle, void *to, tmsize_t count)
{
    auto &s = *static_cast<STREAM *>(handle);
    const std::span<const uint8_t> part =
        Bytes_GetSpan(s.File, s.Position, static_cast<size_t>(count));
    std::copy(part.begin(), part.end(), static_cast<uint8_t *>(to));
    s.Position += part.size();
    return static_cast<tmsize_t>(part.size());
}

static uint64_t Seek(thandle_t handle, uint64_t offset, int whence)
{
    auto &s = *static_cast<STREAM *>(handle);
    s.Position = offset + (whence == SEEK_CUR   ? s.Position
                           : whence == SEEK_END ? s.File.size()
                                                : 0);
    return s.Position;
}

static void Compare(TIFF *tif, const uint8_t *data, size_t size)
{
    uint32_t width = 0, height = 0;
    uint16_t compression = 0, photometric = 0, turned = 0, extras = 0, *extra = nullptr;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extras, &extra);
    if (compression == COMPRESSION_ADOBE_DEFLATE || compression == COMPRESSION_DEFLATE)
        return;  // libtiff says nothing about damaged streams; inflate_peer looks at these
    if (TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric) && photometric == PHOTOMETRIC_CIELAB)
        return;  // left out here
    TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &turned);
    if (turned != ORIENTATION_TOPLEFT)
        return;  // which it turns
    if (width == 0 || height == 0 || width > 300 || height > 300)
        return;
    std::vector<uint32_t> raster(size_t{width} * height);
    char message[1024];
    if (!TIFFRGBAImageOK(tif, message) ||
        !TIFFReadRGBAImageOriented(tif, width, height, raster.data(), ORIENTATION_TOPLEFT, 1) ||
        complained)
        return;
    const PEER_PICTURE ours(data, size);
    uint16_t samples = 1;
    TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    if (TIF_Header.Samples != samples)
        return;  // not stated: here as many as have bits stated
    if (compression == COMPRESSION_CCITTFAX3 && *Picture_Reason())
        return;  // libtiff skips what comes before an end of line; here that is a damaged row
    if (TIF_Header.Photometric == PHOTOMETRIC_PALETTE && TIF_Header.BitsPerSample > 8)
        return;  // grey there
    if (extras != 0 && extra[0] == EXTRASAMPLE_UNASSALPHA && ours.It.Pixels)
        for (size_t i = 0; i < raster.size() * 4; i++)
            if (i % 4 != 3)
                ours.It.Pixels[i] =
                    static_cast<uint8_t>(ours.It.Pixels[i] * ours.It.Pixels[i | 3] / 255);
    ours.Compare(width, height, reinterpret_cast<const uint8_t *>(raster.data()), 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    TIFFSetErrorHandler(Complain);
    TIFFSetWarningHandler(Complain);
    complained = false;
    STREAM stream = {{data, size}};
    TIFF *tif = TIFFClientOpen(
        "file", "rm", &stream, Read, [](thandle_t, void *, tmsize_t) { return tmsize_t{0}; }, Seek,
        [](thandle_t) { return 0; },
        [](thandle_t handle) -> toff_t { return static_cast<STREAM *>(handle)->File.size(); },
        nullptr, nullptr);
    if (!tif)
        return 0;
    Compare(tif, data, size);
    TIFFClose(tif);
    return 0;
}
