// The engine's stream to the sound card: devices, the callback, and the release of what it uses.
#include "audio/audio.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <portaudio.h>
#include <unistd.h>

#include "platform/system.h"

int16_t Audio_Device = -1;
uint8_t Audio_FirstPlay;
int32_t Audio_Error;
const PaDeviceInfo *PortAudio_DeviceInfo;
PaStreamParameters PortAudio_Format;
AUDIO_CALLBACK *Audio_StreamCallBack = PortAudio_CallBack;
uint32_t Audio_StreamFrames;
bool Audio_AnyDevice;
int32_t Audio_OnlyDevice = -1;

// Frame size and silence byte of the stream; a size of 0: no stream was opened.
static std::atomic<uint32_t> streamFrameBytes;
static std::atomic<uint8_t> streamSilence;
// Counts the entries and exits of the callback: odd while it runs.
static std::atomic<uint32_t> callbackSteps;

static_assert(std::is_same_v<AUDIO_CALLBACK, PaStreamCallback>);
static_assert(Audio_Continue == paContinue && Audio_Complete == paComplete);

namespace
{

// While it lives, standard error is the null device: PortAudio's host back ends report every failed
// probe there, on the player's terminal.
class QUIET
{
public:
    QUIET() : terminal(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
    {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (terminal >= 0 && null >= 0)
            dup2(null, STDERR_FILENO);
        if (null >= 0)
            close(null);
    }
    ~QUIET()
    {
        if (terminal < 0)
            return;
        dup2(terminal, STDERR_FILENO);
        close(terminal);
    }
    QUIET(const QUIET &) = delete;
    QUIET &operator=(const QUIET &) = delete;

private:
    int terminal;
};

}  // namespace

static void ChooseDevice()
{
    Audio_Device = static_cast<int16_t>(Pa_GetDeviceCount());
    for (int16_t i = 0; i < Audio_Device; i++) {
        PortAudio_DeviceInfo = Pa_GetDeviceInfo(i);
        std::array<char, 32> name{};
        if (PortAudio_DeviceInfo)
            std::snprintf(name.data(), name.size(), "%s", PortAudio_DeviceInfo->name);
        uint32_t position = 0;
        if (System_StrSearch(name.data(), "Output", &position, 0))
            Audio_Device = i;
    }
}

void Audio_Init(uint8_t channels)
{
    Audio_Channel = channels;
    if (Audio_FirstPlay != 0)
        return;
    const QUIET quiet;
    Audio_Error = Pa_Initialize();
    if (Audio_Error == paNoError)
        ChooseDevice();
    Audio_FirstPlay = 1;
}

// A latency to suggest; 0 if the device states none.
static double LowLatency(PaDeviceIndex device, double PaDeviceInfo::*which)
{
    const PaDeviceInfo *info = Pa_GetDeviceInfo(device);
    return info ? std::max(info->*which, 0.0) : 0;
}

// Whether the chosen device may be used.
static bool MayUseDevice()
{
    return Audio_Device >= 2;
}

void Audio_SetMixer(uint8_t bits, uint32_t hz, uint32_t, uint32_t)
{
    if (!MayUseDevice() && !Audio_AnyDevice)
        return;
    Audio_Hz = hz;
    Audio_BPS = bits;
    PortAudio_Format.device = Audio_Device;
    PortAudio_Format.channelCount = Audio_Channel;
    switch (bits) {
    case 8:
        PortAudio_Format.sampleFormat = paUInt8;
        break;
    case 16:
        PortAudio_Format.sampleFormat = paInt16;
        break;
    case 24:
        PortAudio_Format.sampleFormat = paInt24;
        break;
    case 32:
        PortAudio_Format.sampleFormat = paInt32;
        break;
    }
    // on purpose: the input's figure
    PortAudio_Format.suggestedLatency =
        LowLatency(Audio_Device, &PaDeviceInfo::defaultLowInputLatency);
    PortAudio_Format.hostApiSpecificStreamInfo = nullptr;
}

static PaError OpenStream(AudioTrack &track, const PaStreamParameters &format)
{
    const uint32_t frames =
        Audio_StreamFrames != 0 ? Audio_StreamFrames : track.Capacity / Audio_FrameBytes(track);
    const PaError error = Pa_OpenStream(&track.Stream, nullptr, &format, Audio_Hz, frames,
                                        paClipOff, Audio_StreamCallBack, nullptr);
    if (error != paNoError) {
        track.Stream = nullptr;
        return error;
    }
    streamFrameBytes =
        static_cast<uint32_t>(format.channelCount * Pa_GetSampleSize(format.sampleFormat));
    streamSilence = format.sampleFormat == paUInt8 ? 128 : 0;
    return error;
}

// Opens the stream on the chosen device, or on the default one where that fails.
static PaError OpenAnyStream(AudioTrack &track)
{
    const bool chosen = MayUseDevice() && Audio_OnlyDevice < 0;
    const PaError error =
        chosen ? OpenStream(track, PortAudio_Format) : PaError{paDeviceUnavailable};
    const PaDeviceIndex device =
        Audio_OnlyDevice < 0 ? Pa_GetDefaultOutputDevice() : Audio_OnlyDevice;
    if (error == paNoError || device < 0)
        return error;
    PaStreamParameters format = PortAudio_Format;
    format.device = device;
    format.suggestedLatency = LowLatency(device, &PaDeviceInfo::defaultLowOutputLatency);
    return OpenStream(track, format);
}

void Audio_Play(AudioTrack *track)
{
    Audio_Current = track;  // the first callback runs before Pa_StartStream returns
    Audio_Playing = 1;
    if ((!MayUseDevice() && !Audio_AnyDevice) || Audio_FirstPlay != 1)
        return;
    const QUIET quiet;
    Audio_Error = OpenAnyStream(*track);
    if (Audio_Error == paNoError)
        Audio_Error = Pa_StartStream(track->Stream);
    Audio_FirstPlay = 2;
}

double Audio_StreamTime(const AudioTrack &track)
{
    return track.Stream ? Pa_GetStreamTime(track.Stream) : 0;
}

bool Audio_IsStreaming(const AudioTrack &track)
{
    return track.Stream && Pa_IsStreamActive(track.Stream) == 1;
}

void Audio_AbortStream(AudioTrack &track)
{
    if (track.Stream)
        Pa_AbortStream(track.Stream);
}

void Audio_StartStream(AudioTrack &track)
{
    if (!track.Stream)
        return;
    const QUIET quiet;
    Audio_Error = Pa_StartStream(track.Stream);
}

void Audio_CloseStream(AudioTrack &track)
{
    if (!track.Stream)
        return;
    const QUIET quiet;
    Pa_AbortStream(track.Stream);
    Pa_CloseStream(track.Stream);
    track.Stream = nullptr;
    Audio_FirstPlay = 1;
}

std::vector<AUDIO_DEVICE> Audio_GetDevices()
{
    std::vector<AUDIO_DEVICE> devices;
    for (PaDeviceIndex i = 0; i < Pa_GetDeviceCount(); i++)
        if (const PaDeviceInfo *info = Pa_GetDeviceInfo(i))
            devices.push_back(
                {info->name, info->maxOutputChannels, i == Pa_GetDefaultOutputDevice()});
    return devices;
}

void Audio_CloseDevices()
{
    if (Audio_FirstPlay == 0)
        return;
    const QUIET quiet;
    Pa_Terminate();
    Audio_Device = -1;
    PortAudio_DeviceInfo = nullptr;
    Audio_FirstPlay = 0;
}

double Audio_HeardAt(const PaStreamCallbackTimeInfo &timing)
{
    return timing.outputBufferDacTime;
}

const char *Audio_ErrorText(int32_t error)
{
    return Pa_GetErrorText(error);
}

bool Audio_IsFormatError(int32_t error)
{
    return error == paInvalidSampleRate || error == paInvalidChannelCount ||
           error == paSampleFormatNotSupported;
}

namespace
{

// What a callback fills. Without a stream: the output format that was set.
struct OUTPUT {
    std::span<uint8_t> Room;
    size_t FrameBytes;
    uint8_t Silence;

    OUTPUT(void *output, size_t frames) : FrameBytes(streamFrameBytes), Silence(streamSilence)
    {
        if (FrameBytes == 0) {
            FrameBytes = std::max(Audio_BPS / 8u * Audio_Channel, 1u);
            Silence = Audio_BPS == 8 ? 128 : 0;
        }
        Room = {static_cast<uint8_t *>(output), frames * FrameBytes};
    }
};

// While it lives, threads that wait for the callback to return keep waiting.
struct CALLBACK {
    CALLBACK()
    {
        callbackSteps++;
    }
    ~CALLBACK()
    {
        callbackSteps++;
        callbackSteps.notify_all();
    }
    CALLBACK(const CALLBACK &) = delete;
    CALLBACK &operator=(const CALLBACK &) = delete;
};

}  // namespace

static void CopyData(const OUTPUT &output)
{
    const size_t frame = output.FrameBytes;
    const uint8_t *data = Audio_Data;
    size_t size = data ? Audio_DataSize.load() : 0;
    // Raw samples are recorded one byte short: the last frame is completed from what follows.
    size = (size + frame - 1) / frame * frame;
    size = std::min({size, output.Room.size(), size_t{Audio_Capacity}});
    std::copy_n(data, size, output.Room.data());
    std::ranges::fill(output.Room.subspan(size), output.Silence);
}

int PortAudio_CallBack(const void *, void *output, unsigned long frames,
                       const PaStreamCallbackTimeInfo *, unsigned long, void *)
{
    const CALLBACK running;
    CopyData({output, frames});
    Audio_SwapBuffers();
    Audio_ReadBuffers();
    return paContinue;
}

int Audio_GaplessCallBack(const void *, void *output, unsigned long frames,
                          const PaStreamCallbackTimeInfo *, unsigned long, void *)
{
    const CALLBACK running;
    const OUTPUT out(output, frames);
    AudioTrack *track = Audio_Current;
    const size_t taken = track ? Audio_Take(track, out.Room.data(), out.Room.size()) : 0;
    std::ranges::fill(out.Room.subspan(taken), out.Silence);
    return paContinue;
}

// Waits for any callback that may still hold the old pointers.
static void AwaitCallback()
{
    const uint32_t step = callbackSteps;
    if (step % 2 != 0)
        callbackSteps.wait(step);
}

void Audio_UnLoad(AudioTrack *track)
{
    if (!track)
        return;
    if (track->Stream) {
        const QUIET quiet;
        Pa_StopStream(track->Stream);
        Pa_CloseStream(track->Stream);
        track->Stream = nullptr;
    }
    if (!track->Buffer[0])
        return;
    // First the buffers are no longer handed out, then no longer played.
    if (Audio_Current == track)
        Audio_Current = nullptr;
    AwaitCallback();
    for (uint8_t *buffer : {track->Buffer[0].load(), track->Buffer[1].load()})
        Audio_Data.compare_exchange_strong(buffer, nullptr);
    AwaitCallback();
    std::free(track->Buffer[0]);
    std::free(track->Buffer[1]);
    delete track;
}

void Audio_Destroy()
{
    Audio_Current = nullptr;
    AwaitCallback();
    Audio_Data = nullptr;
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.Destroy)
            module.Destroy();
}
