#include "tools/player/feed.h"

#include <algorithm>

// Hands out the next buffer. False at the end of the pass.
static bool NextBuffer(PLAYER_FEED &feed)
{
    if (feed.Last || feed.Position >= feed.Limit)
        return false;
    Audio_SwapBuffers();
    Audio_ReadBuffers();
    feed.Used = 0;
    feed.Last = !Audio_IsPlaying();  // it met the end of the data behind the buffer handed out
    return true;
}

static void StartPass(PLAYER_FEED &feed)
{
    Audio_SetLoop(1);
    Audio_ReStart();
    Audio_LoadBuffers(feed.Track, 1);
    feed.Track->State = 2;  // so that the first buffer is the next
    feed.Position = 0;
    feed.Last = false;
    NextBuffer(feed);
}

void Feed_Start(PLAYER_FEED &feed)
{
    AudioTrack &track = *feed.Track;
    // Refills of whole frames: what they keep back then is part of the last frame, which is there.
    track.Capacity -= track.Capacity % feed.FrameBytes;
    track.FileSize = std::max(track.FileSize.load(), Audio_Capacity + 1);
    Audio_SetCurrent(&track);
    StartPass(feed);
}

static bool NextPass(PLAYER_FEED &feed)
{
    if (feed.Passes == 1 || feed.Position == 0)  // an empty one is not repeated
        return false;
    if (feed.Passes != 0)
        feed.Passes--;
    StartPass(feed);
    return true;
}

// What is left of the buffer handed out, up to whole frames.
static std::span<const uint8_t> Ready(const PLAYER_FEED &feed)
{
    const size_t frame = feed.FrameBytes;
    const size_t size =
        std::min<size_t>((Audio_DataSize + frame - 1) / frame * frame, feed.Track->Capacity);
    const size_t left = std::min<uint64_t>(size - std::min(size, feed.Used),
                                           feed.Limit - std::min(feed.Limit, feed.Position.load()));
    return {Audio_Data + feed.Used, left};
}

size_t Feed_Take(PLAYER_FEED &feed, std::span<uint8_t> out)
{
    size_t done = 0;
    while (done < out.size()) {
        const std::span<const uint8_t> ready = Ready(feed);
        if (ready.empty() && !NextBuffer(feed) && !NextPass(feed))
            break;
        const size_t count = std::min(ready.size(), out.size() - done);
        std::copy_n(ready.data(), count, out.data() + done);
        feed.Used += count;
        feed.Position += count;
        done += count;
    }
    return done;
}
