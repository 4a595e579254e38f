#include "picture/spr.h"

#include <cstdlib>

#include "extra/bytes.h"
#include "picture/pixels.h"

constinit thread_local SPR_HEADER SPR_Header{};
constinit thread_local BYTES_BUFFER SPR_File{};

constexpr size_t SPR_HeaderSize = 10;

void SPR_Load(const char *path)
{
    SPR_HEADER &h = SPR_Header;
    for (size_t i = 1; i < h.Images.size(); i++)
        std::free(h.Images[i]);
    h = {};
    SPR_File = Bytes_LoadFile(path);
    size_t position = 7;  // past the signature
    h.Count = Bytes_GetByte(SPR_File, position);
    const auto side = [&position] {
        const uint8_t size = Bytes_GetByte(SPR_File, position);
        return size != 0 ? uint16_t{size} : uint16_t{256};
    };
    h.Width = side();
    h.Height = side();
    h.Size = uint32_t{h.Width} * h.Height * 4;
    h.BitsPerPixel = 24;
}

uint8_t *SPR_Decoding()
{
    SPR_HEADER &h = SPR_Header;
    const size_t row = size_t{h.Width} * 3, image = row * h.Height;
    for (size_t i = 0; i < h.Count; i++) {
        const auto stored = Bytes_GetSpan(SPR_File, SPR_HeaderSize + i * image, image);
        if (stored.size() < row || !(h.Images[i] = Picture_NewPixels(h.Width, h.Height)))
            break;
        Pixels_FromTriples(stored, true, h.Images[i]);
    }
    return h.Images[0];
}

void SPR_UnLoad()
{
    SPR_File = {};
}

void SPR_FreeImages(uint8_t *first)
{
    if (first == SPR_Header.Images[0]) {
        for (size_t i = 1; i < SPR_Header.Images.size(); i++)
            std::free(SPR_Header.Images[i]);
        SPR_Header.Images = {};
    }
    std::free(first);
}

SPR_HEADER *SPR_GetHeader(SPR_HEADER *out)
{
    *out = SPR_Header;
    return out;
}
