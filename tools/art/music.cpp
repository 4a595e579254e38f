// The game's music: renders the score and puts it into a file.
//
//   music score            prints every voice, bar by bar
//   music pcm              writes three rounds of the piece: 24-bit stereo samples at 44.1 kHz,
//                          little-endian, left first
//   music file FROM TO     cuts the middle round out of the encoded file FROM and writes it with
//                          its tag to TO
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/art/hall.h"
#include "tools/art/score.h"
#include "tools/art/voices.h"

constexpr int Music_FrameSamples = 1152;  // MPEG-1 Layer III
constexpr int Music_Frames = Score_Length / Music_FrameSamples;
constexpr int Music_Rounds = 3;
// The encoder's 576 samples and the decoder's 529: decoded sample 0 is this far before the first
// encoded one.
constexpr int Music_Delay = 576 + 529;

static_assert(Score_Length % (14 * Music_FrameSamples) == 0, "whole buffers of the engine");

static SOUND Music_Play()
{
    MIX mix;
    for (const NOTE &note : Score_Notes())
        Voices_Play(note, mix);
    for (const STROKE &stroke : Score_Strokes())
        Voices_Strike(stroke, mix);
    return Hall_Mix(std::move(mix));
}

// Three rounds, so that the middle one has neighbours on both sides. They are delayed so that, with
// the codec's delay, a round's first step falls on the start of a decoded frame.
static bool Music_WritePCM()
{
    const SOUND sound = Music_Play();
    std::vector<uint8_t> bytes;
    bytes.reserve(size_t{Score_Length} * 6);
    float peak = 0;
    for (int n = 0; n < Score_Length; n++)
        for (const std::vector<float> *side : {&sound.Left, &sound.Right}) {
            const float value = (*side)[static_cast<size_t>((n + Music_Delay) % Score_Length)];
            peak = std::max(peak, std::abs(value));
            const auto sample = static_cast<int32_t>(std::lround(value * 8388607.0f));
            for (const int shift : {0, 8, 16})
                bytes.push_back(static_cast<uint8_t>(sample >> shift));
        }
    std::fprintf(stderr, "music: peak %.3f of full scale\n", static_cast<double>(peak));
    bool written = peak < 1;
    for (int round = 0; round < Music_Rounds && written; round++)
        written = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
    return written && std::fflush(stdout) == 0;
}

// --- The file ----------------------------------------------------------------------------------

using BYTES = std::vector<uint8_t>;

// ID3v2.3, "Declared ID3v2 frames": an identifier, a size, two flag bytes, then the text's encoding
// (0 is ISO 8859-1) and the text.
static void Music_AddText(BYTES &tag, std::string_view id, std::string_view text)
{
    tag.insert(tag.end(), id.begin(), id.end());
    tag.insert(tag.end(), {0, 0, 0, static_cast<uint8_t>(text.size() + 1), 0, 0, 0});
    tag.insert(tag.end(), text.begin(), text.end());
}

// The tag stays below 128 bytes, where plain and seven-bit sizes are equal, and ends in padding,
// without which the engine's reader would drop the last text.
static BYTES Music_Tag()
{
    using namespace std::literals;
    constexpr size_t size = 120, header = 10;
    BYTES tag = {'I', 'D', '3', 3, 0, 0, 0, 0, 0, size};
    Music_AddText(tag, "TIT2", "Careful Steps");
    Music_AddText(tag, "TPE1", "VELMORANDIS");
    Music_AddText(tag, "TYER", "2026");
    // No language and no description: the reader keeps only comments without a language.
    Music_AddText(tag, "COMM", "\0\0\0\0Original music, CC0 1.0"sv);
    tag.resize(header + size);
    return tag;
}

// The length of the 192 kbit/s frame whose header is at `at`, 0 if none is.
static size_t Music_FrameLength(std::span<const uint8_t> file, size_t at)
{
    if (at + 4 > file.size() || file[at] != 0xFF || file[at + 1] != 0xFB ||
        (file[at + 2] & 0xFC) != 0xB0)
        return 0;
    return 144 * 192000 / Score_Rate + (file[at + 2] >> 1 & 1);
}

static bool Music_WriteFile(const char *from, const char *to)
{
    std::ifstream in(from, std::ios::binary);
    const BYTES encoded{std::istreambuf_iterator<char>(in), {}};
    size_t at = 0, start = 0;
    for (int frame = 0; frame < 2 * Music_Frames; frame++) {
        if (frame == Music_Frames)
            start = at;
        const size_t length = Music_FrameLength(encoded, at);
        if (length == 0 || at + length > encoded.size()) {
            std::fprintf(stderr, "music: %s: no frame %d\n", from, frame);
            return false;
        }
        at += length;
    }
    BYTES file = Music_Tag();
    file.insert(file.end(), encoded.begin() + static_cast<ptrdiff_t>(start),
                encoded.begin() + static_cast<ptrdiff_t>(at));
    std::ofstream out(to, std::ios::binary);
    out.write(reinterpret_cast<const char *>(file.data()),
              static_cast<std::streamsize>(file.size()));
    out.close();
    if (!out)
        std::fprintf(stderr, "music: %s: cannot be written\n", to);
    return !out.fail();
}

int main(int count, char **arguments)
{
    const std::string_view command = count > 1 ? arguments[1] : "";
    bool done = false;
    if (command == "score" && count == 2) {
        Score_Print();
        done = true;
    } else if (command == "pcm" && count == 2) {
        done = Music_WritePCM();
    } else if (command == "file" && count == 4) {
        done = Music_WriteFile(arguments[2], arguments[3]);
    } else {
        std::fputs("usage: music score | music pcm | music file FROM TO\n", stderr);
    }
    return done ? 0 : 1;
}
