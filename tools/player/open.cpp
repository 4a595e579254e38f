#include "tools/player/open.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "audio/mp3.h"
#include "audio/sound_frames.h"
#include "tools/player/describe.h"
#include "tools/player/terminal.h"
#include "tools/player/text.h"

// The output format of tracker modules.
constexpr uint8_t ModuleBits = 16;
constexpr uint8_t DeepBits = 32;
constexpr uint32_t ModuleChannels = 2;
constexpr uint32_t ModuleHz = 44100;

// Why the file cannot be read; empty if it can.
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

// Reads to the end of the open file. Returns why that failed.
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
        if (Terminal_StopAsked())
            Terminal_Stop();
        if (count == 0)
            return "";
        if (count < 0 && error != EINTR)
            return std::strerror(error);
    }
}

// Reads a pipe into the sound's memory. Standard input, which can be read only once, is kept.
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

// By the framework's rules: bytes before an MPEG stream, its tag (ID3v2.4, 3.1) and the padding
// after it; 0 if none. The engine searches for frames from the first byte, so a large picture in
// the tag may contain false frames and hide the sound.
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
    bytes += (head[5] & 0x10) != 0 ? 20 : 10;  // the tag's header, and a footer if it has one
    fseeko(file.get(), bytes, SEEK_SET);
    int byte = std::getc(file.get());
    for (; byte == 0; byte = std::getc(file.get()))
        bytes++;
    const int second = std::getc(file.get());
    if (std::ferror(file.get()))
        Reason_Set("cannot be read: %s", std::strerror(errno));
    return byte == 0xFF && second != EOF && (second & 0xE2) == 0xE2 ? bytes : 0;
}

// What a disk that fails leaves is no shorter sound.
static std::string WhyUnread(const PLAYER_SOUND &sound)
{
    if (sound.Incomplete.starts_with("cannot be read"))
        return sound.Incomplete;
    const int error = sound.Track->Error;
    return error != 0 ? std::string("cannot be read: ") + std::strerror(error) : "";
}

// Opens the sound at `path`, or what is open under it.
static std::string OpenSound(const char *path, const PLAYER_SETTINGS &settings, PLAYER_SOUND &sound)
{
    Reason_Clear();
    const uint32_t tag = Audio_Rules == AUDIO_RULES_FRAMEWORK ? TagBytes(path) : 0;
    const uint8_t type = tag != 0 ? uint8_t{AUDIO_MP3} : Audio_Check(path);
    if (*Reason_Get() != 0)
        return Reason_Get();
    const PLAYER_RAW &raw = settings.Raw;
    const uint8_t bits = settings.Deep ? DeepBits : ModuleBits;
    MP3_OutputBits = bits;
    Sound_KeepReal = settings.Real;
    if (type != AUDIO_RAW)
        SetOutput(bits, ModuleChannels, settings.Hz != 0 ? settings.Hz : ModuleHz);
    else if (raw.Channels != 0)
        SetOutput(raw.Bits, raw.Channels, raw.Hz);
    else
        return "not a sound of a known format (--raw takes it for samples)";
    sound.Track.reset(Audio_LoadAs(path, type));
    if (!sound.Track)
        return Player_Text(std::string(Audio_Reason()));
    sound.Incomplete = Player_Text(std::string(Audio_Reason()));  // may quote the file
    if (!sound.Track->Buffer[0])
        return sound.Incomplete.empty() ? "damaged, or not a sound" : sound.Incomplete;
    if (tag > sound.Track->DataStart) {
        sound.Track->DataStart = tag;
        sound.Incomplete.clear();  // it was about the tag's bytes
    }
    ReadFacts(sound);
    return WhyUnread(sound);
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
        sound.From = Player_BytesAt(sound, settings.Start);
        if (settings.Length >= 0)
            sound.Until = sound.From + Player_BytesAt(sound, settings.Length);
    }
    return reason;
}
