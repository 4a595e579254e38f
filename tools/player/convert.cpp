#include "tools/player/convert.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>

#include "tools/common/text.h"
#include "tools/common/write.h"
#include "tools/player/output.h"
#include "tools/player/terminal.h"

constexpr uint32_t OpenLength = UINT32_MAX;    // of a stream
constexpr uint64_t MaxData = UINT32_MAX - 64;  // chunk sizes have 32 bits
constexpr const char *TooMuch = "more than 4 GiB of sound";
constexpr const char *StandardOutput = "-";

static bool IsWave(const std::string &path)
{
    return Text_EndsWith(path, ".wav") || path == StandardOutput;
}

// The header for so many bytes of data: PCM's, or the longer one of floating point.
static std::vector<uint8_t> Header(const SAMPLES_FORMAT &to, uint64_t data)
{
    std::vector<uint8_t> header;
    const auto text = [&](const char *id) {
        for (; *id != 0; id++)
            header.push_back(static_cast<uint8_t>(*id));
    };
    const auto number = [&](uint64_t value, int bytes) {
        for (int i = 0; i < bytes; i++)
            header.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    const bool open = data == OpenLength;
    const uint32_t frame = to.FrameBytes(),
                   own = to.Float ? 50 : 36;  // everything after the first size field
    text("RIFF");
    number(open ? OpenLength : data + data % 2 + own, 4);
    text("WAVEfmt ");
    number(to.Float ? 18 : 16, 4);
    number(to.Float ? 3 : 1, 2);
    number(to.Channels, 2);
    number(to.Hz, 4);
    number(to.Hz * frame, 4);
    number(frame, 2);
    number(to.Bits, 2);
    if (to.Float) {
        number(0, 2);
        text("fact");
        number(4, 4);
        number(open ? OpenLength : data / frame, 4);
    }
    text("data");
    number(data, 4);
    return header;
}

static bool Write(FILE *file, std::span<const uint8_t> bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

// A conversion in progress.
struct WRITING {
    FILE *File;
    PLAYER_SOUND &Sound;
    uint32_t Passes;
    SAMPLES_FORMAT To;
    uint64_t Data = 0;  // bytes written
};

static uint64_t ExpectedBytes(const PLAYER_SOUND &sound, uint32_t passes, const SAMPLES_FORMAT &to)
{
    const double frames = Player_Seconds(sound, Player_PassBytes(sound)) * passes * to.Hz;
    return static_cast<uint64_t>(frames) * to.FrameBytes();
}

static void ShowProgress(const WRITING &writing, uint64_t expected)
{
    const double done =
        expected != 0 ? static_cast<double>(writing.Data) / static_cast<double>(expected) : 0;
    const double seconds =
        static_cast<double>(writing.Data) / writing.To.FrameBytes() / writing.To.Hz;
    SCREEN screen = {.Title = writing.Sound.Name, .Now = seconds};
    screen.Total = done > 0 ? seconds / done : 0;
    Terminal_Show(screen);
}

// Appends the samples. Returns why that failed.
static std::string WriteSamples(WRITING &writing, uint64_t limit)
{
    const SAMPLES_FORMAT &to = writing.To;
    const uint64_t expected = ExpectedBytes(writing.Sound, writing.Passes, to);
    const AudioTrack &track = *writing.Sound.Track;
    std::vector<uint8_t> block((1u << 20) / to.FrameBytes() * to.FrameBytes());
    PLAYER_OUTPUT output;
    Output_Start(output, writing.Sound, writing.Passes, to);
    while (!Output_HasEnded(output) && track.Error == 0) {
        if (Terminal_Signal() != 0)
            return "interrupted";
        if (Terminal_StopAsked())
            Terminal_Stop();
        const size_t taken = Output_Take(output, block);
        writing.Data += taken;
        if (writing.Data > limit)
            return TooMuch;
        if (!Write(writing.File, std::span(block).first(taken)))
            return std::strerror(errno);
        ShowProgress(writing, expected);
    }
    if (track.Error != 0)
        return std::string("it cannot be read to its end: ") + std::strerror(track.Error);
    return "";
}

// Writes the samples, preceded by a header for a WAVE file. If the file can be rewound, the header
// gets its length afterwards. Returns why that failed.
static std::string WriteSound(WRITING &writing, bool wave)
{
    if (!wave)
        return WriteSamples(writing, UINT64_MAX);
    const off_t start = ftello(writing.File);
    const bool fixed = start >= 0 && (fcntl(fileno(writing.File), F_GETFL) & O_APPEND) == 0;
    if (!Write(writing.File, Header(writing.To, OpenLength)))
        return std::strerror(errno);
    std::string failure = WriteSamples(writing, fixed ? MaxData : UINT64_MAX);
    if (!failure.empty())
        return failure;
    bool written = writing.Data % 2 == 0 || std::fputc(0, writing.File) != EOF;
    if (fixed)
        written = written && fseeko(writing.File, start, SEEK_SET) == 0 &&
                  Write(writing.File, Header(writing.To, writing.Data));
    return written && std::fflush(writing.File) == 0 ? "" : std::strerror(errno);
}

bool Player_CanWrite(const std::string &path)
{
    return IsWave(path) || Text_EndsWith(path, ".raw") || Text_EndsWith(path, ".pcm");
}

std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const SAMPLES_FORMAT &to,
                           const std::string &path)
{
    if (path == StandardOutput) {
        WRITING writing = {stdout, sound, passes, to};
        return WriteSound(writing, true);
    }
    const uint64_t expected = ExpectedBytes(sound, passes, to);
    if (IsWave(path) &&
        expected - expected / 64 > MaxData)  // the stated length may be slightly too long
        return TooMuch;
    std::string reason = Write_File(path, [&](const REPLACE &file) {
        WRITING writing = {file.File, sound, passes, to};
        return WriteSound(writing, IsWave(path));
    });
    Terminal_Clear();
    return reason;
}
