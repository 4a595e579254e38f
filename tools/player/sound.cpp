#include "tools/player/sound.h"

#include <algorithm>
#include <span>

void PLAYER_UNLOAD::operator()(AudioTrack *track) const
{
    const bool freed = track->Buffer[0];  // the engine does not free a track without buffers
    Audio_AbortStream(*track);            // so that unloading need not wait for what is buffered
    Audio_UnLoad(track);
    if (!freed)
        delete track;
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
}

static std::string WhyEmpty(const PLAYER_SOUND &sound)
{
    return sound.Incomplete.empty() ? "there is no sound in it" : sound.Incomplete;
}

std::string Player_WhySilent(const PLAYER_SOUND &sound)
{
    if (!sound.Plays)
        return sound.Format + " with " + sound.Codec + " is not decoded";
    const bool bits = sound.Bits == 8 || sound.Bits == 16 || sound.Bits == 24 || sound.Bits == 32;
    if (sound.Channels == 0 || sound.Hz == 0)
        return WhyEmpty(sound);
    if (!bits || sound.Channels > UINT8_MAX)
        return sound.Format + " of " + std::to_string(sound.Channels) + " channels of " +
               std::to_string(sound.Bits) + " bits at " + std::to_string(sound.Hz) +
               " Hz is not decoded";
    if (sound.Bytes == 0)
        return WhyEmpty(sound);
    return sound.From >= sound.Bytes ? "it ends before the start time" : "";
}

static void SeekTo(const PLAYER_SOUND &sound, uint64_t target)
{
    Audio_SetLoop(1);  // which the last end has changed
    Audio_Seek(sound.Track.get(), target / Player_FrameBytes(sound));
}

void Player_Start(const PLAYER_SOUND &sound)
{
    Audio_SetCurrent(sound.Track.get());
    Audio_SetLoop(1);
    Audio_ReStart();
    if (sound.From != 0)
        SeekTo(sound, sound.From);
}

bool Player_HasEnded(const PLAYER_SOUND &sound)
{
    return sound.Track->Ended || sound.Track->Taken >= sound.Until;
}

// The next samples of the pass.
static size_t TakePass(const PLAYER_SOUND &sound, std::span<uint8_t> out)
{
    AudioTrack &track = *sound.Track;
    Audio_Take(&track, nullptr, 0);  // starts a pass that is due
    const uint64_t left = sound.Until - std::min<uint64_t>(sound.Until, track.Taken);
    return Audio_Take(&track, out.data(), std::min<uint64_t>(out.size(), left));
}

size_t Player_Take(const PLAYER_SOUND &sound, uint32_t &passes, std::span<uint8_t> out)
{
    AudioTrack &track = *sound.Track;
    size_t done = TakePass(sound, out);
    while (Player_HasEnded(sound) && track.Taken > sound.From && track.Error == 0 && passes != 1) {
        passes -= passes != 0;
        Player_Start(sound);
        done += TakePass(sound, out.subspan(done));
    }
    return done;
}

void Player_Seek(const PLAYER_SOUND &sound, double seconds)
{
    SeekTo(sound, Player_BytesAt(sound, seconds));
}

uint64_t Player_BytesAt(const PLAYER_SOUND &sound, double seconds)
{
    return static_cast<uint64_t>(std::max(seconds, 0.0) * sound.Hz) * Player_FrameBytes(sound);
}

double Player_Seconds(const PLAYER_SOUND &sound, uint64_t bytes)
{
    const double second = 1.0 * Player_FrameBytes(sound) * sound.Hz;
    return second > 0 ? static_cast<double>(bytes) / second : 0;
}

uint64_t Player_PassBytes(const PLAYER_SOUND &sound)
{
    const uint64_t end = std::min(sound.Bytes, sound.Until);
    return end - std::min(sound.From, end);
}
