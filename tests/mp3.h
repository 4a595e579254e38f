// MP3 files as the engine plays them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "audio/mp3.h"
#include "tests/files.h"

inline BYTES Joined(const std::vector<BYTES> &parts)
{
    BYTES bytes;
    for (const BYTES &part : parts)
        bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

// Decodes the file of slot n in buffers of `capacity` bytes, reopening it for each as the engine
// does. Returns the lengths, up to the 0 at the end; appends the sound to `sound`.
inline std::vector<uint32_t> Refill(const std::string &path, uint8_t n, uint32_t capacity,
                                    std::vector<uint8_t> &sound)
{
    std::vector<uint32_t> lengths;
    std::vector<uint8_t> buffer(capacity);
    long position = MP3_GetHeader(n)->DataStart;
    do {
        FILE *file = std::fopen(path.c_str(), "rb");
        std::fseek(file, position, SEEK_SET);
        lengths.push_back(capacity);
        MP3_Decoding(file, buffer.data(), &lengths.back(), n);
        position = std::ftell(file);
        std::fclose(file);
        sound.insert(sound.end(), buffer.begin(), buffer.begin() + lengths.back());
    } while (lengths.back() != 0);
    return lengths;
}
