#include "audio/audio_module.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/iff.h"
#include "audio/mod.h"
#include "audio/mp3.h"
#include "audio/voc.h"
#include "audio/wav.h"

static void SetModuleOutput(uint8_t n, uint8_t channels, uint32_t hz, uint8_t bits)
{
    MOD_HEADER &header = *MOD_GetHeader(n);
    header.Channels = channels;
    header.SamplingRate = hz;
    header.BitsPerSample = bits;
}

static void DecodeModule(FILE *, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    MOD_Decoding(buffer, length, n);
}

std::array<AUDIO_MODULE, 9> Audio_Modules = {{
    {},  // AUDIO_NONE
    {},  // AUDIO_RAW, which the engine reads itself
    {WAV_Load, WAV_Decoding, WAV_Destroy, Audio_FactsOf<WAV_GetHeader>, &WAV_SoundNumber,
     WAV_SetSoundNumber},
    {MOD_Load, DecodeModule, MOD_Destroy, Audio_FactsOf<MOD_GetHeader>, &MOD_SoundNumber,
     MOD_SetSoundNumber, SetModuleOutput, MOD_StartOver},
    {MP3_Load, MP3_Decoding, MP3_Destroy, Audio_FactsOf<MP3_GetHeader>, &MP3_SoundNumber,
     MP3_SetSoundNumber, nullptr, nullptr, true},
    {VOC_Load, VOC_Decoding, VOC_Destroy, Audio_FactsOf<VOC_GetHeader>, &VOC_SoundNumber,
     VOC_SetSoundNumber},
    {AU_Load, AU_Decoding, AU_Destroy, Audio_FactsOf<AU_GetHeader>, &AU_SoundNumber,
     AU_SetSoundNumber},
    {IFF_Load, IFF_Decoding, IFF_Destroy, Audio_FactsOf<IFF_GetHeader>, &IFF_SoundNumber,
     IFF_SetSoundNumber},
    {AIFF_Load, AIFF_Decoding, AIFF_Destroy, Audio_FactsOf<AIFF_GetHeader>, &AIFF_SoundNumber,
     AIFF_SetSoundNumber},
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
#ifdef O_NOATIME
    // Each read notes its time in the file, unless told not to. Of another's file this is refused,
    // which is as well.
    fcntl(descriptor, F_SETFL, O_NOATIME);
#endif
    AUDIO_FILE file(fdopen(descriptor, "rb"));
    if (file)
        *size = static_cast<uint32_t>(status.st_size);
    else
        close(descriptor);
    return file;
}
