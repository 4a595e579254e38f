#include "tools/player/sound.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <span>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/player/describe.h"
#include "tools/player/terminal.h"
#include "tools/player/text.h"

// What tracker modules are rendered as.
constexpr uint32_t ModuleBits = 16;
constexpr uint32_t ModuleChannels = 2;
constexpr uint32_t ModuleHz = 44100;

void PLAYER_UNLOAD::operator()(AudioTrack *track) const
{
    const bool freed = track->Buffer[0];  // the others the engine leaves to their owner
    Audio_AbortStream(*track);  // so that the unloading need not wait for what is buffered
    Audio_UnLoad(track);
    if (!freed)
        delete track;
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
}

// Why the file cannot be read; empty when it can.
static std::string WhyUnreadable(const std::string &path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    if (S_ISDIR(status.st_mode))
        return std::strerror(EISDIR);
    uint32_t size;
    return Sound_OpenFile(path.c_str(), &size) ? "" : "not a regular file below 4 GiB";
}

static bool IsPipe(const std::string &path)
{
    struct stat status;
    return path == Player_Input || (stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode));
}

// Reads to the end of what is open. Returns why that failed.
static std::string ReadAll(int file, std::vector<uint8_t> &bytes)
{
    constexpr size_t block = 1 << 16;
    for (;;) {
        const size_t size = bytes.size();
        if (size > Bytes_MaxFile)
            return "more than " + std::to_string(Bytes_MaxFile >> 20) + " MiB through a pipe";
        bytes.resize(size + block);
        const ssize_t count = read(file, &bytes[size], block);
        const int error = errno;
        bytes.resize(size + static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (Terminal_Signal() != 0)
            return "interrupted";
        if (count == 0)
            return "";
        if (count < 0 && error != EINTR)
            return std::strerror(error);
    }
}

// Reads a pipe into the sound's memory. What came from standard input is kept, as it comes once.
static std::string ReadPipe(const std::string &path, PLAYER_SOUND &sound)
{
    static std::shared_ptr<const std::vector<uint8_t>> input;
    if (path == Player_Input && input) {
        sound.Memory = input;
        return "";
    }
    const int file = path == Player_Input ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY);
    if (file < 0)
        return std::strerror(errno);
    const auto bytes = std::make_shared<std::vector<uint8_t>>();
    std::string reason = Reason_Guard([&] { return ReadAll(file, *bytes); });
    close(file);
    if (reason.empty())
        reason = Reason_Get();
    sound.Memory = bytes;
    if (path == Player_Input)
        input = bytes;
    return reason;
}

static void SetOutput(uint8_t bits, uint8_t channels, uint32_t hz)
{
    Audio_SetChannel(channels);
    Audio_SetBPS(bits);
    Audio_Hz = hz;
}

static void ReadFacts(PLAYER_SOUND &sound)
{
    const AudioTrack &track = *sound.Track;
    AUDIO_FACTS facts = {Audio_Channel, Audio_Hz, Audio_BPS, 0};
    if (track.Decoded)
        facts = Audio_Modules[track.Type].Facts(track.Record.get());
    sound.Name = sound.Path == Player_Input
                     ? "standard input"
                     : Player_Text(sound.Path.substr(sound.Path.rfind('/') + 1));
    sound.Bits = facts.BitsPerSample;
    sound.Channels = facts.Channels;
    sound.Hz = facts.SamplingRate;
    Describe_Sound(sound);
}

// By the framework's rules: bytes in front of an MPEG stream that its tag takes (ID3v2.4, 3.1),
// with what pads it; 0 without. The engine looks for frames from the first byte on, where a tag's
// pictures may pass for some, and hide the sound where they are large.
static uint32_t TagBytes(const char *path)
{
    uint32_t size;
    const SOUND_STREAM file = Sound_OpenFile(path, &size);
    std::array<uint8_t, 10> head{};
    if (!file || std::fread(head.data(), 1, head.size(), file.get()) != head.size() ||
        std::memcmp(head.data(), "ID3", 3) != 0)
        return 0;
    uint32_t bytes = 0;
    for (const uint8_t seven : std::span(head).last(4))
        bytes = bytes << 7 | (seven & 0x7Fu);
    bytes += (head[5] & 0x10) != 0 ? 20 : 10;  // with a footer or without
    fseeko(file.get(), bytes, SEEK_SET);
    int byte = std::getc(file.get());
    for (; byte == 0; byte = std::getc(file.get()))
        bytes++;
    const int second = std::getc(file.get());
    return byte == 0xFF && second != EOF && (second & 0xE2) == 0xE2 ? bytes : 0;
}

// Opens what can be read at `path`, which may be what is open there.
static std::string OpenSound(const char *path, const PLAYER_SETTINGS &settings, PLAYER_SOUND &sound)
{
    const uint32_t tag = Audio_Rules == AUDIO_RULES_FRAMEWORK ? TagBytes(path) : 0;
    const uint8_t type = tag != 0 ? uint8_t{AUDIO_MP3} : Audio_Check(path);
    const PLAYER_RAW &raw = settings.Raw;
    if (type != AUDIO_RAW)
        SetOutput(ModuleBits, ModuleChannels, settings.Hz != 0 ? settings.Hz : ModuleHz);
    else if (raw.Channels != 0)
        SetOutput(raw.Bits, raw.Channels, raw.Hz);
    else
        return "not a sound of a known format (--raw takes it for samples)";
    sound.Track.reset(Audio_LoadAs(path, type));
    if (!sound.Track)
        return Audio_Reason();
    sound.Incomplete = Audio_Reason();
    if (!sound.Track->Buffer[0])
        return sound.Incomplete.empty() ? "damaged, or not a sound" : sound.Incomplete;
    if (tag > sound.Track->DataStart) {
        sound.Track->DataStart = tag;
        sound.Incomplete.clear();  // what is said of the tag's bytes
    }
    ReadFacts(sound);
    return "";
}

static uint64_t BytesAt(const PLAYER_SOUND &sound, double seconds)
{
    return static_cast<uint64_t>(std::max(seconds, 0.0) * sound.Hz) * Player_FrameBytes(sound);
}

std::string Player_Open(const std::string &path, const PLAYER_SETTINGS &settings,
                        PLAYER_SOUND &sound)
{
    sound.Path = path;
    std::string reason;
    if (IsPipe(path)) {
        reason = ReadPipe(path, sound);
        if (!reason.empty())
            return reason;
        const BYTES_OPEN memory(*sound.Memory);
        reason = OpenSound(memory.Path, settings, sound);
    } else {
        reason = WhyUnreadable(path);
        if (reason.empty())
            reason = OpenSound(path.c_str(), settings, sound);
    }
    if (reason.empty()) {
        sound.From = BytesAt(sound, settings.Start);
        if (settings.Length >= 0)
            sound.Until = sound.From + BytesAt(sound, settings.Length);
    }
    return reason;
}

std::string Player_WhySilent(const PLAYER_SOUND &sound)
{
    if (!sound.Plays)
        return sound.Format + " with " + sound.Codec + " is not decoded";
    const bool bits = sound.Bits == 8 || sound.Bits == 16 || sound.Bits == 24 || sound.Bits == 32;
    if (sound.Channels == 0 || sound.Hz == 0)
        return "there is no sound in it";
    if (!bits || sound.Channels > UINT8_MAX)
        return sound.Format + " of " + std::to_string(sound.Channels) + " channels of " +
               std::to_string(sound.Bits) + " bits at " + std::to_string(sound.Hz) +
               " Hz is not decoded";
    if (sound.Bytes == 0)
        return "there is no sound in it";
    return sound.From >= sound.Bytes ? "it ends before the time to start" : "";
}

static void SeekTo(const PLAYER_SOUND &sound, uint64_t target)
{
    Audio_SetLoop(1);  // which an end has cleared
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

// What comes next of the pass.
static size_t TakePass(const PLAYER_SOUND &sound, std::span<uint8_t> out)
{
    AudioTrack &track = *sound.Track;
    Audio_Take(&track, nullptr, 0);  // begins a pass that was to be started
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
    SeekTo(sound, BytesAt(sound, seconds));
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
