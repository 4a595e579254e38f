#include "tools/player/convert.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "tools/common/text.h"
#include "tools/common/write.h"
#include "tools/player/terminal.h"
#include "tools/player/text.h"

constexpr uint32_t HeaderBytes = 44;
constexpr uint64_t MaxData = UINT32_MAX - HeaderBytes;  // the chunks count in 32 bits
constexpr const char *TooMuch = "more than 4 GiB of sound";

static bool IsWave(const std::string &path)
{
    return Text_EndsWith(path, ".wav");
}

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

// Appends so many passes to the file. Returns why that failed.
static std::string WriteSamples(FILE *file, PLAYER_SOUND &sound, uint32_t passes, uint64_t limit,
                                uint64_t &data)
{
    const uint32_t frame = Player_FrameBytes(sound);
    const uint64_t expected = sound.Bytes * passes;
    const AudioTrack &track = *sound.Track;
    std::vector<uint8_t> block((1u << 20) / frame * frame);
    Player_Start(sound);
    while (!track.Ended) {
        if (Terminal_Signal() != 0)
            return "interrupted";
        const size_t taken = Player_Take(sound, passes, block);
        data += taken;
        if (data > limit)
            return TooMuch;
        if (!Write(file, std::span(block).first(taken)))
            return std::strerror(errno);
        ShowProgress(sound, data, expected);
    }
    if (track.Error != 0)
        return std::string("it cannot be read to its end: ") + std::strerror(track.Error);
    return "";
}

// Writes the samples, after their header if it is to be a WAVE file. Returns why that failed.
static std::string WriteSound(FILE *file, PLAYER_SOUND &sound, uint32_t passes, bool wave)
{
    uint64_t data = 0;
    if (!wave)
        return WriteSamples(file, sound, passes, UINT64_MAX, data);
    if (!Write(file, Header(sound, 0)))
        return std::strerror(errno);
    const std::string failure = WriteSamples(file, sound, passes, MaxData, data);
    if (!failure.empty())
        return failure;
    const auto size = static_cast<uint32_t>(data);
    const bool written = (data % 2 == 0 || std::fputc(0, file) != EOF) &&
                         std::fseek(file, 0, SEEK_SET) == 0 && Write(file, Header(sound, size));
    return written ? "" : std::strerror(errno);
}

bool Player_CanWrite(const std::string &path)
{
    return IsWave(path) || Text_EndsWith(path, ".raw");
}

std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const std::string &path)
{
    const uint64_t expected = sound.Bytes * passes;
    if (IsWave(path) &&
        expected - expected / 64 > MaxData)  // the length may be some samples too long
        return TooMuch;
    const std::string reason = Write_File(path, [&](const REPLACE &file) {
        return WriteSound(file.File, sound, passes, IsWave(path));
    });
    Terminal_Clear();
    return reason;
}
