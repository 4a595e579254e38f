#include "tools/player/output.h"

#include <algorithm>

constexpr size_t Output_Block = 2048;  // frames converted at a time

static bool IsOwn(const PLAYER_OUTPUT &output)
{
    return output.To == Player_Format(*output.Sound);
}

static void Empty(PLAYER_OUTPUT &output)
{
    output.Ready.clear();
    output.Used = 0;
    output.Drained = false;
    if (output.Resampler)
        output.Resampler->Clear();
}

void Output_Start(PLAYER_OUTPUT &output, const PLAYER_SOUND &sound, uint32_t passes,
                  const SAMPLES_FORMAT &to)
{
    output = {.Sound = &sound, .Passes = passes, .To = to};
    const SAMPLES_FORMAT from = Player_Format(sound);
    if (from.Hz != to.Hz || from.Channels != to.Channels)
        output.Resampler.emplace(from, to);
    Player_Start(sound);
}

// Converts another block. False at the end, or if nothing came.
static bool Convert(PLAYER_OUTPUT &output)
{
    const SAMPLES_FORMAT from = Player_Format(*output.Sound);
    output.Taken.resize(Output_Block * from.FrameBytes());
    const size_t count = Player_Take(*output.Sound, output.Passes, output.Taken);
    const auto taken = std::span(output.Taken).first(count);
    output.Drained = count == 0 && Player_HasEnded(*output.Sound);
    if (count == 0 && !output.Drained)
        return false;
    output.Ready.erase(output.Ready.begin(),
                       output.Ready.begin() + static_cast<ptrdiff_t>(output.Used));
    output.Used = 0;
    if (output.Resampler)
        output.Resampler->Resample(taken, output.Ready);
    else
        Samples_Convert(taken, from, output.To, output.Ready);
    return true;
}

size_t Output_Take(PLAYER_OUTPUT &output, std::span<uint8_t> out)
{
    if (IsOwn(output))
        return Player_Take(*output.Sound, output.Passes, out);
    size_t done = 0;
    for (;;) {
        const size_t count = std::min(output.Ready.size() - output.Used, out.size() - done);
        std::copy_n(output.Ready.begin() + static_cast<ptrdiff_t>(output.Used), count,
                    out.begin() + static_cast<ptrdiff_t>(done));
        output.Used += count;
        done += count;
        if (done == out.size() || output.Drained || !Convert(output))
            return done;
    }
}

bool Output_HasEnded(const PLAYER_OUTPUT &output)
{
    return IsOwn(output) ? Player_HasEnded(*output.Sound)
                         : output.Drained && output.Used == output.Ready.size();
}

void Output_Seek(PLAYER_OUTPUT &output, double seconds)
{
    Player_Seek(*output.Sound, seconds);
    Empty(output);
}
