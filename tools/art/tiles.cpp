// Makes HAM8 tiles: tiles SOURCE TILE [SOURCE TILE]..., the source 256 x 256 pixels of R G B bytes.
// Each tile is decoded again as the game does it and compared with its source; the exit status is
// not 0 if one cannot be read or written, or differs too much.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "extra/bytes.h"
#include "picture/picture.h"
#include "tools/art/ham8.h"

constexpr uint16_t Tiles_Side = 256;
constexpr int Tiles_Rounds = 60;
constexpr double Tiles_MaxMean = 1;  // mean of the absolute errors, in 255ths

static std::vector<HAM8_RGB> Tiles_ReadSource(const char *path)
{
    const BYTES_BUFFER bytes = Bytes_LoadFile(path);
    std::vector<HAM8_RGB> pixels(size_t{Tiles_Side} * Tiles_Side);
    if (bytes.size() != pixels.size() * 3)
        return {};
    std::memcpy(pixels.data(), bytes.data(), bytes.size());
    return pixels;
}

static bool Tiles_WriteFile(const char *path, const std::vector<uint8_t> &bytes)
{
    FILE *file = std::fopen(path, "wb");
    if (!file)
        return false;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return (std::fclose(file) == 0) && written;
}

// Compares a decoded tile with its source. Prints the errors.
static bool Tiles_Verify(const char *path, const std::vector<HAM8_RGB> &source, size_t size)
{
    const Picture tile = Picture_Load(path, 0, 0);
    const bool loaded = tile.Pixels && tile.Format == PICTURE_HAM68 && tile.Bits == 8 &&
                        tile.Width == Tiles_Side && tile.Height == Tiles_Side;
    double sum = 0;
    int worst = 0;
    for (size_t i = 0; loaded && i < source.size() * 3; i++) {
        const int error = std::abs(tile.Pixels[i / 3 * 4 + i % 3] - source[i / 3][i % 3]);
        sum += error;
        worst = std::max(worst, error);
    }
    Picture_UnLoad(tile);
    const double mean = sum / static_cast<double>(source.size() * 3);
    std::printf("%s: %zu bytes, mean error %.3f, worst %d\n", path, size, mean, worst);
    return loaded && mean < Tiles_MaxMean;
}

int main(int argc, char **argv)
{
    if (argc < 3 || argc % 2 == 0) {
        std::fprintf(stderr, "tiles SOURCE TILE [SOURCE TILE]...\n");
        return 1;
    }
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::vector<HAM8_RGB> source = Tiles_ReadSource(argv[i]);
        if (source.empty()) {
            std::fprintf(stderr, "%s: not %d x %d pixels of R G B\n", argv[i], Tiles_Side,
                         Tiles_Side);
            return 1;
        }
        const std::vector<uint8_t> file = HAM8_File(HAM8_Encode(source, Tiles_Side, Tiles_Rounds));
        if (!Tiles_WriteFile(argv[i + 1], file)) {
            std::perror(argv[i + 1]);
            return 1;
        }
        if (!Tiles_Verify(argv[i + 1], source, file.size())) {
            std::fprintf(stderr, "%s: differs too much from its source\n", argv[i + 1]);
            return 1;
        }
    }
}
