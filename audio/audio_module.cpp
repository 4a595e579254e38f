#include "audio/audio_module.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "audio/mp3.h"

std::array<AUDIO_MODULE, 9> Audio_Modules = {{
    {}, // AUDIO_NONE
    {}, // AUDIO_RAW, which the engine reads itself
    {}, // AUDIO_WAV
    {}, // AUDIO_MOD
    {MP3_Load, MP3_Decoding, MP3_Destroy, Audio_FactsOf<MP3_GetHeader>, &MP3_SoundNumber},
    {}, // AUDIO_VOC
    {}, // AUDIO_AU
    {}, // AUDIO_IFF
    {}, // AUDIO_AIFF
}};

AUDIO_FILE Audio_OpenFile(const char *path, uint32_t *size)
{
    *size = 0;
    // Without O_NONBLOCK a pipe that nobody writes to would hold up the opening.
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status;
    if (descriptor < 0)
        return nullptr;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > off_t{UINT32_MAX}) {
        close(descriptor);
        return nullptr;
    }
    *size = static_cast<uint32_t>(status.st_size);
    return AUDIO_FILE(fdopen(descriptor, "rb"));
}
