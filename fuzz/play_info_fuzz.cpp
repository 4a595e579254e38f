// What tessplay --info prints about any file, as text and as JSON.
#include "fuzz/fuzz.h"
#include "fuzz/text_check.h"
#include "tools/player/info.h"
#include "tools/player/open.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Audio_Rules = AUDIO_RULES_FORMAT;
    Audio_SetChannel(24);  // so that a buffer holds few frames
    const std::string path = FuzzFile(data, size);
    PLAYER_SOUND sound;
    const std::string reason = Player_Open(path, {}, sound);
    CheckText(reason, false);
    if (reason.empty()) {
        CheckText(Info_Text(sound), false);
        CheckText(Info_JSON(sound), true);
    } else
        CheckText(Info_JSON(path, reason), true);
    return 0;
}
