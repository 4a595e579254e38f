// For fuzz targets of sound modules: any file through a load and refills to the end.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "audio/sound_file.h"
#include "fuzz/fuzz.h"

struct SOUND_MODULE {
    void (*Load)(const char *path);
    void (*Decoding)(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);
    void (*Destroy)();
    void (*SetSoundNumber)(uint8_t n);
};

// The first byte chooses the rules by its highest bit, and the refills' lengths. Some sounds never
// end, so the number of refills is limited.
inline void FuzzSound(const SOUND_MODULE &module, uint32_t (*dataStart)(), const uint8_t *data,
                      size_t size)
{
    if (size == 0)
        return;
    const BYTES_OPEN open({data + 1, size - 1});
    Audio_Rules = data[0] >> 7;
    module.SetSoundNumber(0);
    module.Load(open.Path);
    const SOUND_STREAM file = Sound_OpenStream(open);
    std::fseek(file.get(), dataStart(), SEEK_SET);
    const uint32_t lengths[] = {data[0], data[0] * 17u, data[0] % 8u + 1, 4096};
    for (size_t i = 0; i < 12; i++) {
        std::vector<uint8_t> buffer(lengths[i % 4]);
        uint32_t length = lengths[i % 4];
        module.Decoding(file.get(), buffer.data(), &length, 0);
        if (length > buffer.size())
            __builtin_trap();
        if (length == 0 && std::fgetc(file.get()) == EOF)
            break;
    }
    module.Destroy();
}
