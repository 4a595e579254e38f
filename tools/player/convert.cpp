#include "tools/player/convert.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "tools/player/terminal.h"
#include "tools/player/text.h"

constexpr uint32_t HeaderBytes = 44;
constexpr uint64_t MaxData = UINT32_MAX - HeaderBytes;  // the chunks count in 32 bits
constexpr const char *TooMuch = "more than 4 GiB of sound";

static std::array<uint8_t, HeaderBytes> Header(const PLAYER_SOUND &sound, uint32_t data)
{
    std::array<uint8_t, HeaderBytes> header;
    size_t at = 0;
    const auto text = [&](const char *id) {
        for (; *id != 0; id++)
            header[at++] = static_cast<uint8_t>(*id);
    };
    const auto number = [&](uint32_t value, int bytes) {
        for (int i = 0; i < bytes; i++)
            header[at++] = static_cast<uint8_t>(value >> (8 * i));
    };
    const uint32_t frame = Player_FrameBytes(sound);
    text("RIFF");
    number(data + data % 2 + HeaderBytes - 8, 4);
    text("WAVEfmt ");
    number(16, 4);
    number(1, 2);
    number(sound.Channels, 2);
    number(sound.Hz, 4);
    number(sound.Hz * frame, 4);
    number(frame, 2);
    number(sound.Bits, 2);
    text("data");
    number(data, 4);
    return header;
}

static bool Write(FILE *file, std::span<const uint8_t> bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

static void ShowProgress(const PLAYER_SOUND &sound, uint64_t data, uint64_t expected)
{
    const double done =
        expected != 0 ? static_cast<double>(data) / static_cast<double>(expected) : 0;
    const double seconds = static_cast<double>(data) / Player_FrameBytes(sound) / sound.Hz;
    Terminal_Show(Player_Time(seconds), done, sound.Name);
}

// Writes header and samples. Returns why that failed.
static std::string WriteSound(FILE *file, PLAYER_SOUND &sound, uint32_t passes)
{
    const uint32_t frame = Player_FrameBytes(sound);
    const uint64_t expected = sound.Bytes * passes;
    const AudioTrack &track = *sound.Track;
    Player_Start(sound);
    std::vector<uint8_t> block((1u << 20) / frame * frame);
    uint64_t data = 0;
    if (!Write(file, Header(sound, 0)))
        return std::strerror(errno);
    while (!track.Ended) {
        if (Terminal_Signal() != 0)
            return "interrupted";
        const size_t taken = Player_Take(sound, passes, block);
        data += taken;
        if (data > MaxData)
            return TooMuch;
        if (!Write(file, std::span(block).first(taken)))
            return std::strerror(errno);
        ShowProgress(sound, data, expected);
    }
    if (track.Error != 0)
        return std::string("the sound cannot be read to its end: ") + std::strerror(track.Error);
    const auto size = static_cast<uint32_t>(data);
    if ((data % 2 != 0 && std::fputc(0, file) == EOF) || std::fseek(file, 0, SEEK_SET) != 0 ||
        !Write(file, Header(sound, size)) || std::fflush(file) != 0)
        return std::strerror(errno);
    return "";
}

std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const std::string &path)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "not a regular file";
    const uint64_t expected = sound.Bytes * passes;
    if (expected - expected / 64 > MaxData)  // the header's length may be some samples too long
        return TooMuch;
    const std::string beside = path + ".part";
    SOUND_STREAM file(std::fopen(beside.c_str(), "wbx"));
    if (!file)
        return errno == EEXIST ? beside + " is in the way" : std::strerror(errno);
    std::string failure = WriteSound(file.get(), sound, passes);
    Terminal_Clear();
    if (failure.empty() && std::rename(beside.c_str(), path.c_str()) != 0)
        failure = std::strerror(errno);
    if (!failure.empty())
        unlink(beside.c_str());
    return failure;
}
