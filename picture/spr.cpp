#include "picture/spr.h"

#include <algorithm>
#include <cstdlib>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local SPR_HEADER SPR_Header{};
constinit thread_local BYTES_BUFFER SPR_File{};

constexpr size_t SPR_HeaderSize = 10;

void SPR_Load(const char *path)
{
    SPR_HEADER &h = SPR_Header;
    h = {};
    SPR_File = Reason_Guard([path] { return Bytes_LoadFile(path); });
    size_t position = 7;  // past the signature
    h.Count = Bytes_GetByte(SPR_File, position);
    const auto side = [&position] {
        const uint8_t size = Bytes_GetByte(SPR_File, position);
        return size != 0 ? uint16_t{size} : uint16_t{256};
    };
    h.Width = side();
    h.Height = side();
    h.Size = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    h.BitsPerPixel = 24;
}

uint8_t *SPR_Decoding()
{
    SPR_HEADER &h = SPR_Header;
    const size_t row = size_t{h.Width} * 3, image = row * h.Height;
    const auto stored = Bytes_GetSpan(SPR_File, SPR_HeaderSize, h.Count * image);
    // An image counts if it has its first row.
    const size_t count = stored.size() / image + (stored.size() % image >= row ? 1 : 0);
    if (stored.size() < h.Count * image)
        Reason_Set("cut in image %zu of %d", stored.size() / image + 1, h.Count);
    if (count == 0) {
        Reason_Set("no images");
        return nullptr;
    }
    uint8_t *pixels = Picture_NewPixels(h.Width, static_cast<uint32_t>(count * h.Height));
    for (size_t i = 0; pixels && i < count; i++) {
        h.Images[i] = pixels + i * h.Size;
        Pixels_FromTriples(Bytes_GetSpan(stored, i * image, image), true, h.Images[i]);
    }
    return pixels;
}

void SPR_UnLoad()
{
    SPR_File = BYTES_BUFFER();
}

void SPR_FreeImages(uint8_t *first)
{
    if (first == SPR_Header.Images[0])
        SPR_Header.Images = {};
    std::free(first);
}

SPR_HEADER *SPR_GetHeader(SPR_HEADER *out)
{
    *out = SPR_Header;
    return out;
}
