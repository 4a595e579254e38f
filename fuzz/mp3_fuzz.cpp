// Any file through the tags, the frame search and the decoder, under both sets of rules.
#include <array>
#include <cstdio>
#include <cstdlib>

#include "audio/mp3.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    MP3_IsStream({data, size});
    for (const uint8_t rules : {AUDIO_RULES_FRAMEWORK, AUDIO_RULES_FORMAT}) {
        Audio_Rules = rules;
        MP3_SetSoundNumber(0);
        MP3_Load(open.Path);
        MP3_HEADER *record = MP3_GetHeader(0);
        const SOUND_STREAM file = Sound_OpenStream(open);
        if (!file || !record)
            std::abort();
        std::fseek(file.get(), static_cast<long>(record->DataStart), SEEK_SET);
        static std::array<uint8_t, 16384> buffer;
        for (uint32_t length = buffer.size(); length != 0;) {
            // Other buffer sizes, too: files smaller than a buffer get these.
            length = static_cast<uint32_t>(size % 3 == 0 ? size % buffer.size() : buffer.size());
            MP3_Decoding(file.get(), buffer.data(), &length, 0);
        }
        MP3_Destroy();
    }
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
    return 0;
}
