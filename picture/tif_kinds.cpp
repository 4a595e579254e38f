#include "picture/tif_kinds.h"

#include <algorithm>
#include <array>

static constexpr std::array<TIF_PACKING, 22> packings = {{
    {TIF_Plain, "no", 1, true, false, false},
    {TIF_Huffman, "CCITT modified Huffman", 256, false, false, true},
    {TIF_Group3, "CCITT Group 3", 16384, false, false, true},
    {TIF_Group4, "CCITT Group 4", 65535, false, false, true},
    {TIF_LZW, "LZW", 4096 * 8 / 12, true, true, false},
    {6, "old-style JPEG", 0, false, false, false},
    {TIF_JPEG, "JPEG", 512, false, false, false},
    {TIF_Deflate, "Deflate", 1032, true, true, false},
    {9, "JBIG", 0, false, false, false},
    {10, "JBIG", 0, false, false, false},
    {32766, "NeXT", 0, false, false, false},
    {TIF_HuffmanWords, "CCITT modified Huffman", 256, false, false, true},
    {TIF_PackBits, "PackBits", 64, true, false, false},
    {32809, "ThunderScan", 0, false, false, false},
    {TIF_OldDeflate, "Deflate", 1032, true, true, false},
    {34661, "JBIG", 0, false, false, false},
    {34676, "LogLuv", 0, false, false, false},
    {34677, "LogLuv", 0, false, false, false},
    {34712, "JPEG 2000", 0, false, false, false},
    {34925, "LZMA", 0, false, false, false},
    {50000, "zstd", 0, false, false, false},
    {50001, "WebP", 0, false, false, false},
}};

const TIF_PACKING *TIF_FindPacking(uint16_t compression)
{
    const auto found =
        std::find_if(packings.begin(), packings.end(), [compression](const TIF_PACKING &packing) {
            return packing.Compression == compression;
        });
    return found != packings.end() ? &*found : nullptr;
}

static constexpr std::array<TIF_COLOURS, 12> colours = {{
    {TIF_WhiteIs0, "grey", 1, true},
    {TIF_BlackIs0, "grey", 1, true},
    {TIF_RGB, "RGB", 3, true},
    {TIF_Palette, "palette", 1, true},
    {TIF_Mask, "transparency mask", 1, false},
    {TIF_CMYK, "CMYK", 4, false},
    {TIF_YCbCr, "YCbCr", 3, false},
    {8, "CIE L*a*b*", 0, false},
    {9, "ICC L*a*b*", 0, false},
    {10, "ITU L*a*b*", 0, false},
    {32803, "colour filter array", 0, false},
    {32844, "LogLuv", 0, false},
}};

const TIF_COLOURS *TIF_FindColours(uint16_t photometric)
{
    const auto found =
        std::find_if(colours.begin(), colours.end(), [photometric](const TIF_COLOURS &row) {
            return row.Photometric == photometric;
        });
    return found != colours.end() ? &*found : nullptr;
}
