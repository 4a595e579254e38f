// The game's music: the score, the instruments that play it, and the file around it.
//
//   music score            prints every voice, bar by bar
//   music pcm              writes three rounds of the piece: 24-bit stereo samples at 44.1 kHz,
//                          little-endian, left first
//   music file FROM TO     cuts the middle round out of the encoded file FROM and writes it with
//                          its tag to TO
//
// The engine plays 14 frames (16128 samples a channel) in a device buffer of 16384; the rest of
// the buffer is silent. So one step of the score lasts 16128 samples, nearly every step strikes a
// note, and the level falls to nothing just before each step: the silence hides in the pause that
// a hand makes before it strikes again.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <numbers>
#include <numeric>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// --- The grid ----------------------------------------------------------------------------------

constexpr int Music_Rate = 44100;
constexpr int Music_FrameSamples = 1152;  // MPEG-1 Layer III
constexpr int Music_StepFrames = 14;      // one refill of the engine
constexpr int Music_Step = Music_StepFrames * Music_FrameSamples;
constexpr int Music_BarSteps = 8;
constexpr int Music_Bars = 40;
constexpr int Music_Steps = Music_Bars * Music_BarSteps;
constexpr int Music_Length = Music_Steps * Music_Step;  // samples of one round
constexpr int Music_Frames = Music_Steps * Music_StepFrames;
constexpr int Music_Rounds = 3;
// The encoder's 576 samples and the decoder's 529: decoded sample 0 is this far before the first
// one that was encoded.
constexpr int Music_Delay = 576 + 529;

static_assert(Music_Step == 16128);
static_assert(Music_Steps >= 312 && Music_Steps <= 324, "about two minutes");

// --- Instruments -------------------------------------------------------------------------------

struct PARTIAL {
    double Ratio;  // to the note's frequency
    double Level;
    double Decay;  // seconds to fall by 60 dB at A4; 0: it stays
    double Pan;    // -1 left, 1 right
};

struct INSTRUMENT {
    std::vector<PARTIAL> Partials;
    double Attack;   // seconds
    double Release;  // seconds from the note's end to silence
    double Pulse;    // how far the level sinks between two steps, 0 to 1
    double Room;     // what it sends there
    double Echo;
};

// A struck bar that is tuned to the fourth harmonic, with a soft mallet.
static const INSTRUMENT Music_Mallet = {
    .Partials =
        {
            {1, 1, 1.5, 0},
            {2, 0.06, 0.9, 0},
            {3.99, 0.34, 0.42, 0.2},
            {9.2, 0.10, 0.12, -0.2},
        },
    .Attack = 0.003,
    .Release = 0.5,
    .Pulse = 0,
    .Room = 0.24,
    .Echo = 0.22,
};

static const INSTRUMENT Music_Harp = {
    .Partials =
        {
            {1, 1, 2.4, 0},
            {2, 0.60, 1.9, 0.1},
            {3, 0.40, 1.5, -0.1},
            {4, 0.27, 1.2, 0.1},
            {5, 0.18, 0.9, -0.1},
            {6, 0.12, 0.7, 0},
            {7, 0.08, 0.5, 0},
            {8, 0.05, 0.4, 0},
        },
    .Attack = 0.003,
    .Release = 0.6,
    .Pulse = 0,
    .Room = 0.28,
    .Echo = 0.20,
};

// Two tines slightly apart, one to each side, wander slowly against each other.
static const INSTRUMENT Music_Piano = {
    .Partials =
        {
            {0.9998, 0.5, 5, -0.5},
            {1.0002, 0.5, 5, 0.5},
            {2, 0.32, 3.0, 0},
            {3, 0.20, 1.8, 0.1},
            {4, 0.10, 1.1, -0.1},
            {5, 0.06, 0.7, 0},
            {6, 0.03, 0.5, 0},
            {7.02, 0.06, 0.2, 0},
        },
    .Attack = 0.003,
    .Release = 0.35,
    .Pulse = 0.15,
    .Room = 0.28,
    .Echo = 0.12,
};

static const INSTRUMENT Music_Bell = {
    .Partials =
        {
            {0.9997, 0.5, 4, -0.7},
            {1.0003, 0.5, 4, 0.7},
            {2, 0.30, 2.4, 0},
            {3.01, 0.16, 1.3, 0},
            {5.42, 0.08, 0.5, 0},
        },
    .Attack = 0.003,
    .Release = 2.0,
    .Pulse = 0,
    .Room = 0.45,
    .Echo = 0.30,
};

static const INSTRUMENT Music_Bass = {
    .Partials =
        {
            {1, 1, 1.6, 0},
            {2, 0.60, 1.2, 0},
            {3, 0.30, 0.9, 0},
            {4, 0.14, 0.7, 0},
            {5, 0.06, 0.5, 0},
        },
    .Attack = 0.005,
    .Release = 0.20,
    .Pulse = 0.15,
    .Room = 0.05,
    .Echo = 0,
};

// Three strings a note, slightly apart from side to side.
static std::vector<PARTIAL> Music_Strings()
{
    std::vector<PARTIAL> partials;
    for (int h = 1; h <= 10; h++)
        for (int side = -1; side <= 1; side++)
            partials.push_back({h * (1 + 0.0014 * side), std::pow(h, -1.4) / 2, 0, 0.8 * side});
    return partials;
}

static const INSTRUMENT Music_Pad = {
    .Partials = Music_Strings(),
    .Attack = 0.45,
    .Release = 1.1,
    .Pulse = 0.55,
    .Room = 0.32,
    .Echo = 0,
};

// --- The score ---------------------------------------------------------------------------------

// What a section plays with, and how loud.
struct SECTION {
    const char *Name;
    int Bars;
    const INSTRUMENT &Arpeggio;
    double ArpeggioLevel, MelodyLevel, BellLevel, PadLevel, BassLevel, ShakerLevel;
};

constexpr std::array<SECTION, 5> Music_Sections = {{
    {"A", 8, Music_Mallet, 0.80, 0.85, 0.40, 0.85, 0.85, 0.00},
    {"A'", 8, Music_Mallet, 0.85, 0.95, 0.40, 0.95, 1.00, 0.60},
    {"B", 8, Music_Harp, 0.75, 0.90, 0.55, 1.00, 0.90, 0.00},
    {"A''", 8, Music_Harp, 0.60, 1.05, 0.32, 1.00, 1.00, 0.80},
    {"C", 8, Music_Mallet, 0.62, 0.80, 0.62, 0.90, 0.80, 0.00},
}};

static_assert(std::accumulate(Music_Sections.begin(), Music_Sections.end(), 0,
                              [](int sum, const SECTION &section) { return sum + section.Bars; }) ==
              Music_Bars);

// One bar of every voice. Voices are written a token a step: a note, "-" for one that is held,
// "." for none. The pad has one chord a bar, or two. The arpeggio is written as places in the
// bar's pool of six notes; two digits share a step.
struct BAR {
    const char *Chord, *Bass, *Pad, *Pool, *Arpeggio, *Melody, *Bell;
};

constexpr const char *Music_Rest = ". . . . . . . .";

constexpr std::array<BAR, Music_Bars> Music_Score = {{
    // A: the theme.
    {"Gmaj9", "G2 - - - - - D2 -", "G3 B3 D4 A4", "D4 G4 A4 B4 D5 F#5", "0 2 4 3 2 4 1 3",
     "B4 - - D5 F#5 - - -", Music_Rest},
    {"D/F#", "F#2 - - - - - A2 -", "F#3 A3 E4 A4", "D4 F#4 A4 D5 E5 A5", "0 2 3 4 1 3 2 4",
     "E5 - - D5 A4 - - .", Music_Rest},
    {"Em9", "E2 - - - - - B2 -", "G3 B3 D4 E4", "E4 G4 B4 D5 E5 F#5", "0 2 4 3 2 5 3 2",
     "G4 - - B4 D5 - - -", Music_Rest},
    {"Bm7/D", "D2 - - - - - D2 -", "A3 B3 D4 F#4", "D4 F#4 A4 B4 D5 F#5", "0 2 4 3 1 4 5 3",
     "A4 - B4 - F#4 - - .", Music_Rest},
    {"Cmaj9", "C2 - - - - - G2 -", "G3 B3 D4 E4", "E4 G4 B4 D5 E5 G5", "0 2 4 3 2 4 1 3",
     "E5 - - G5 B5 - - -", Music_Rest},
    {"G/B", "B1 - - - - - D2 -", "G3 B3 D4 G4", "D4 G4 A4 B4 D5 A5", "0 2 4 3 1 4 2 5",
     "A5 - - G5 D5 - - .", Music_Rest},
    {"Am7", "A1 - - - - - E2 -", "G3 C4 E4 G4", "E4 G4 A4 C5 E5 G5", "0 2 4 3 2 4 1 3",
     "C5 - - E5 G5 - E5 -", Music_Rest},
    {"D9sus", "D2 - - - A2 - D2 -", "G3 C4 E4 A4 F#3 C4 E4 A4", "D4 E4 A4 C5 D5 E5",
     "0 2 4 3 2 5 4 3", "D5 - - - - - . .", Music_Rest},
    // A': the theme again, with more motion under it.
    {"Gmaj9", "G2 - - D2 - - G2 -", "G3 B3 D4 A4", "D4 G4 A4 B4 D5 F#5", "0 2 4 3 5 4 2 13",
     "B4 - - D5 F#5 - A5 -", Music_Rest},
    {"D/F#", "F#2 - - D2 - - A2 -", "F#3 A3 E4 A4", "D4 F#4 A4 D5 E5 A5", "0 2 4 3 5 3 2 1",
     "E5 - - D5 A4 - B4 -", Music_Rest},
    {"Em9", "E2 - - B2 - - E2 -", "G3 B3 D4 E4", "E4 G4 B4 D5 E5 F#5", "0 2 4 3 5 4 2 13",
     "G4 - - B4 D5 - - E5", Music_Rest},
    {"Bm7/D", "D2 - - F#2 - - D2 -", "A3 B3 D4 F#4", "D4 F#4 A4 B4 D5 F#5", "0 2 4 3 2 5 4 1",
     "F#5 - - - D5 - B4 -", Music_Rest},
    {"Cmaj9", "C2 - - G2 - - C2 -", "G3 B3 D4 E4", "E4 G4 B4 D5 E5 G5", "0 2 4 3 5 4 2 13",
     "E5 - - G5 B5 - - -", ". . . . . . E6 -"},
    {"Bm7", "B1 - - F#2 - - B1 -", "A3 B3 D4 F#4", "D4 F#4 A4 B4 D5 F#5", "0 2 4 3 5 4 2 3",
     "A5 - - F#5 D5 - - E5", Music_Rest},
    {"Am7 D9sus", "A1 - - E2 D2 - A2 -", "G3 C4 E4 G4 G3 C4 E4 A4", "E4 G4 A4 C5 E5 G5",
     "0 2 4 3 1 3 5 24", "C5 - E5 - G5 - A5 -", Music_Rest},
    {"Gadd9", "G2 - - D2 - - B1 -", "G3 B3 D4 A4", "D4 G4 A4 B4 D5 G5", "0 2 4 3 5 4 3 1",
     "B5 - - - G5 - - -", Music_Rest},
    // B: the harp leads, bells answer; then the theme's shadow in the minor subdominant.
    {"Cmaj9", "C2 - - - - - G2 -", "G3 B3 D4 E4", "E4 G4 B4 D5 G5 B5", "5 3 4 2 3 1 2 0",
     Music_Rest, ". . . . B5 - - -"},
    {"D/C", "C2 - - - - - A2 -", "F#3 A3 D4 E4", "D4 F#4 A4 D5 F#5 A5", "5 3 4 2 3 1 2 0",
     Music_Rest, ". . . . A5 - - -"},
    {"Bm11", "B1 - - - - - F#2 -", "F#3 A3 D4 E4", "D4 F#4 A4 B4 E5 A5", "5 3 4 2 3 1 2 3",
     Music_Rest, ". . . . F#5 - - -"},
    {"Em9", "E2 - - - - - B1 -", "G3 B3 D4 F#4", "E4 F#4 B4 D5 F#5 B5", "5 3 4 2 3 1 23 45",
     Music_Rest, ". . . . E5 - F#5 -"},
    {"Am7", "A1 - - - - - E2 -", "G3 C4 E4 G4", "E4 G4 A4 C5 E5 G5", "0 2 3 4 5 4 3 2",
     "C5 - D5 - E5 - - -", Music_Rest},
    {"Cm6", "C2 - - - - - G2 -", "A3 C4 Eb4 G4", "Eb4 G4 A4 C5 Eb5 G5", "0 1 3 2 5 3 2 1",
     "Eb5 - - D5 C5 - G4 -", ". . . . . . Eb6 -"},
    {"G/B Em7", "B1 - - - E2 - - -", "G3 B3 D4 G4", "D4 G4 B4 D5 G5 B5", "0 2 3 4 5 4 3 2",
     "B4 - - D5 G5 - - -", ". . . . . . D6 -"},
    {"D9sus", "D2 - - - A2 - D2 -", "G3 C4 E4 A4 F#3 C4 E4 A4", "D4 E4 A4 C5 D5 E5",
     "0 2 4 3 5 4 3 2", "E5 - D5 - A4 - - -", Music_Rest},
    // A'': the theme in the tenor under a high harp, then back on top and fullest.
    {"Gmaj9", "G2 - - D3 - - B2 -", "G3 B3 D4 A4", "B4 D5 F#5 A5 B5 D6", "0 2 4 3 5 3 2 1",
     "B3 - - D4 F#4 - - -", Music_Rest},
    {"D/F#", "F#2 - - D3 - - A2 -", "F#3 A3 E4 A4", "A4 D5 E5 A5 D6 E6", "0 2 4 3 5 3 2 1",
     "E4 - - D4 A3 - B3 -", Music_Rest},
    {"Em9", "E2 - - B2 - - G2 -", "G3 B3 D4 E4", "B4 D5 E5 F#5 B5 D6", "0 2 4 3 5 4 2 1",
     "G3 - - B3 D4 - - E4", Music_Rest},
    {"Bm7/D", "D2 - - A2 - - D2 -", "A3 B3 D4 F#4", "A4 B4 D5 F#5 A5 B5", "0 2 4 3 5 4 23 45",
     "F#4 - - - D4 - B3 -", Music_Rest},
    {"Cmaj9", "C2 - - G2 - - E2 -", "G3 B3 D4 E4", "E4 G4 B4 D5 E5 G5", "02 4 3 4 12 4 3 4",
     "E5 - - G5 B5 - - -", "E6 - - G6 B6 - - -"},
    {"G/B", "B1 - - G2 - - D2 -", "G3 B3 D4 G4", "D4 G4 A4 B4 D5 A5", "02 4 3 4 12 4 3 4",
     "A5 - - G5 D5 - - E5", "A6 - - G6 D6 - - ."},
    {"Am7 D9sus", "A1 - - E2 D2 - A2 -", "G3 C4 E4 G4 G3 C4 E4 A4", "E4 G4 A4 C5 E5 G5",
     "02 4 3 4 12 3 2 4", "G5 - E5 - D5 - A4 -", Music_Rest},
    {"Gadd9", "G2 - - D2 - - - -", "G3 B3 D4 A4", "D4 G4 A4 B4 D5 G5", "0 2 4 3 5 4 3 1",
     "B4 - - D5 G5 - - -", Music_Rest},
    // C: far away and thin, bells over held chords, and the way back.
    {"Ebmaj9", "Eb2 - - - - - - -", "G3 Bb3 D4 F4", "F4 G4 Bb4 D5 F5 G5", "0 2 3 4 3 2 1 2",
     Music_Rest, "Bb5 - - - G5 - F5 -"},
    {"F/Eb", "Eb2 - - - - - - -", "A3 C4 F4 G4", "F4 G4 A4 C5 F5 A5", "0 2 3 4 3 2 1 2", Music_Rest,
     "A5 - - - F5 - C5 -"},
    {"Bbmaj7/D", "D2 - - - - - F2 -", "Bb3 D4 F4 A4", "F4 A4 C5 D5 F5 A5", "0 1 3 4 3 1 2 3",
     Music_Rest, "D5 - - - - - F5 -"},
    {"Gm9", "G2 - - - - - D2 -", "Bb3 D4 F4 A4", "D4 F4 G4 D5 F5 G5", "0 1 3 4 3 2 1 3", Music_Rest,
     "A5 - - - G5 - D5 -"},
    {"Cm11", "C2 - - - - - G2 -", "G3 Bb3 Eb4 F4", "Eb4 F4 G4 Bb4 Eb5 G5", "0 2 3 4 3 2 1 2",
     Music_Rest, "Eb5 - - - G5 - - -"},
    {"F9sus", "F2 - - - - - C2 -", "G3 Bb3 Eb4 F4", "F4 G4 Bb4 C5 Eb5 G5", "0 2 3 4 3 2 1 2",
     Music_Rest, "F5 - - - Bb4 - C5 -"},
    {"Am7b5", "A1 - - - - - Eb2 -", "A3 C4 Eb4 G4", "Eb4 G4 A4 C5 Eb5 G5", "0 2 3 4 3 2 1 2",
     Music_Rest, "Eb5 - - - C5 - A4 -"},
    {"D9sus", "D2 - - - A1 - D2 -", "G3 C4 E4 A4 F#3 C4 E4 A4", "D4 E4 A4 C5 D5 E5",
     "0 2 3 4 3 2 4 3", Music_Rest, "D5 - - - . . . ."},
}};

// The next token of `text`, which is shortened by it; empty at the end.
static constexpr std::string_view Music_Token(std::string_view &text)
{
    while (text.starts_with(' '))
        text.remove_prefix(1);
    const std::string_view token = text.substr(0, text.find(' '));
    text.remove_prefix(token.size());
    return token;
}

// The key of "C4", "F#3" or "Eb5" (A4 is 69), or -1 when it is none.
static constexpr int Music_Key(std::string_view name)
{
    constexpr std::string_view letters = "C D EF G A B";
    const size_t place = name.size() < 2 ? letters.npos : letters.find(name[0]);
    if (place == letters.npos)
        return -1;
    const int shift = name[1] == '#' ? 1 : name[1] == 'b' ? -1 : 0;
    if (name.size() != (shift == 0 ? 2u : 3u) || name.back() < '0' || name.back() > '9')
        return -1;
    return static_cast<int>(place) + shift + 12 * (name.back() - '0' + 1);
}

// A row of keys alone, as many as `multiple` or a multiple of it.
static constexpr bool Music_IsChord(std::string_view text, int multiple)
{
    int count = 0;
    for (auto token = Music_Token(text); !token.empty(); token = Music_Token(text), count++)
        if (Music_Key(token) < 0)
            return false;
    return count > 0 && count % multiple == 0;
}

// A bar of keys, rests, and holds of what sounds.
static constexpr bool Music_IsVoice(std::string_view text)
{
    int count = 0;
    bool sounds = false;
    for (auto token = Music_Token(text); !token.empty(); token = Music_Token(text), count++) {
        if (token == "-" ? !sounds : Music_Key(token) < 0 && token != ".")
            return false;
        sounds = token != ".";
    }
    return count == Music_BarSteps;
}

static constexpr bool Music_IsArpeggio(std::string_view text)
{
    int count = 0;
    for (auto token = Music_Token(text); !token.empty(); token = Music_Token(text), count++)
        if (token.size() > 2 || token.find_first_not_of("012345") != token.npos)
            return false;
    return count == Music_BarSteps;
}

static_assert(Music_Key("A4") == 69 && Music_Key("C4") == 60 && Music_Key("Eb5") == 75);
static_assert(std::ranges::all_of(Music_Score,
                                  [](const BAR &bar) {
                                      return Music_IsVoice(bar.Bass) && Music_IsVoice(bar.Melody) &&
                                             Music_IsVoice(bar.Bell) && Music_IsChord(bar.Pad, 4) &&
                                             Music_IsChord(bar.Pool, 6) &&
                                             Music_IsArpeggio(bar.Arpeggio);
                                  }),
              "every bar is full, and every step of it strikes a note");

struct NOTE {
    const INSTRUMENT *Instrument;
    double Start, Length;  // steps
    int Key;
    double Level, Pan;
};

// A number from -1 to 1 that looks drawn by chance and is the same each time.
static double Music_Chance(uint32_t seed)
{
    seed = (seed ^ 61) ^ (seed >> 16);
    seed *= 9;
    seed ^= seed >> 4;
    seed *= 0x27D4EB2D;
    seed ^= seed >> 15;
    return static_cast<double>(seed) / 2147483648.0 - 1;
}

// A hand leans on the first and the fifth step, and is never quite even.
static double Music_Accent(double step)
{
    const int inBar = static_cast<int>(step) % Music_BarSteps;
    const double lean = inBar == 0 ? 1.0 : inBar == 4 ? 0.92 : inBar % 2 == 0 ? 0.84 : 0.76;
    const double offBeat = step != std::floor(step) ? 0.8 : 1;
    return lean * offBeat * (1 + 0.07 * Music_Chance(static_cast<uint32_t>(step * 2)));
}

static std::vector<int> Music_Keys(std::string_view text)
{
    std::vector<int> keys;
    for (auto token = Music_Token(text); !token.empty(); token = Music_Token(text))
        keys.push_back(Music_Key(token));
    return keys;
}

static void Music_AddVoice(std::vector<NOTE> &notes, const INSTRUMENT &instrument, int start,
                           std::string_view text, double level, double pan)
{
    for (int step = start; step < start + Music_BarSteps; step++) {
        const std::string_view token = Music_Token(text);
        if (token == "-")
            notes.back().Length += 1;
        else if (token != ".")
            notes.push_back({&instrument, static_cast<double>(step), 1, Music_Key(token),
                             level * Music_Accent(step), pan});
    }
}

static void Music_AddArpeggio(std::vector<NOTE> &notes, const INSTRUMENT &instrument, int start,
                              const BAR &bar, double level)
{
    const std::vector<int> pool = Music_Keys(bar.Pool);
    std::string_view text = bar.Arpeggio;
    for (int step = start; step < start + Music_BarSteps; step++) {
        const std::string_view token = Music_Token(text);
        for (size_t i = 0; i < token.size(); i++) {
            const int place = token[i] - '0';
            const double at = step + 0.5 * static_cast<double>(i);
            notes.push_back({&instrument, at, 1.5, pool[static_cast<size_t>(place)],
                             level * Music_Accent(at), 0.20 * (place - 2.5)});
        }
    }
}

static void Music_AddPad(std::vector<NOTE> &notes, int start, std::string_view text, double level)
{
    const std::vector<int> keys = Music_Keys(text);
    const double length = Music_BarSteps * 4.0 / static_cast<double>(keys.size());
    for (size_t i = 0; i < keys.size(); i++)
        notes.push_back({&Music_Pad, start + length * static_cast<double>(i / 4), length, keys[i],
                         level, 0.3 * (static_cast<double>(i % 4) - 1.5)});
}

static std::vector<NOTE> Music_Notes()
{
    std::vector<NOTE> notes;
    size_t bar = 0;
    for (const SECTION &section : Music_Sections)
        for (int i = 0; i < section.Bars; i++, bar++) {
            const BAR &row = Music_Score[bar];
            const int start = static_cast<int>(bar) * Music_BarSteps;
            Music_AddVoice(notes, Music_Bass, start, row.Bass, 0.20 * section.BassLevel, 0);
            Music_AddPad(notes, start, row.Pad, 0.050 * section.PadLevel);
            Music_AddArpeggio(notes, section.Arpeggio, start, row, 0.26 * section.ArpeggioLevel);
            Music_AddVoice(notes, Music_Piano, start, row.Melody, 0.28 * section.MelodyLevel, 0.1);
            Music_AddVoice(notes, Music_Bell, start, row.Bell, 0.34 * section.BellLevel, -0.2);
        }
    return notes;
}

// The arpeggio of a bar with its places told as notes.
static std::string Music_SpellArpeggio(const BAR &bar)
{
    std::vector<std::string_view> pool;
    std::string_view names = bar.Pool;
    for (auto name = Music_Token(names); !name.empty(); name = Music_Token(names))
        pool.push_back(name);
    std::string text;
    for (const char c : std::string_view(bar.Arpeggio)) {
        if (!text.empty() && text.back() != ' ' && c != ' ')
            text += '+';
        if (c == ' ')
            text += c;
        else
            text += pool[static_cast<size_t>(c - '0')];
    }
    return text;
}

static void Music_PrintScore()
{
    size_t bar = 0;
    for (const SECTION &section : Music_Sections)
        for (int i = 0; i < section.Bars; i++, bar++) {
            const BAR &row = Music_Score[bar];
            std::printf("%-4s%2zu  %s\n", section.Name, bar + 1, row.Chord);
            std::printf("  bell      %s\n  melody    %s\n", row.Bell, row.Melody);
            std::printf("  arpeggio  %s\n", Music_SpellArpeggio(row).c_str());
            std::printf("  pad       %s\n  bass      %s\n", row.Pad, row.Bass);
        }
}

// --- Playing -----------------------------------------------------------------------------------

// One round of the piece. What rings on beyond its end goes on at its start.
struct SOUND {
    std::vector<float> Left, Right;
    SOUND() : Left(Music_Length), Right(Music_Length) {}
};

struct MIX {
    SOUND Dry, Room, Echo;
};

static void Music_Put(SOUND &sound, size_t at, double left, double right)
{
    sound.Left[at] += static_cast<float>(left);
    sound.Right[at] += static_cast<float>(right);
}

static double Music_Frequency(int key)
{
    return 440 * std::exp2((key - 69) / 12.0);
}

// From 0 to 1 as x does, without a corner at either end.
static double Music_Ease(double x)
{
    return 0.5 - 0.5 * std::cos(std::numbers::pi * std::clamp(x, 0.0, 1.0));
}

// The breath of held sounds: up soon after a step, down towards the next.
static double Music_Pulse(int sample)
{
    const double x = static_cast<double>(sample % Music_Step) / Music_Step;
    return std::sin(std::numbers::pi * std::pow(x, 0.55));
}

// Adds a decaying sine to both sides, as a rotating pointer.
static void Music_AddPartial(const PARTIAL &partial, const NOTE &note, double phase,
                             std::vector<double> &left, std::vector<double> &right)
{
    constexpr double highest = 9000, soft = 5500;
    const double frequency = Music_Frequency(note.Key);
    const double own = frequency * partial.Ratio;
    if (own > highest)
        return;
    // Short strings and bars ring shorter, and are struck more softly.
    const double decay = partial.Decay * std::pow(440 / frequency, 0.6);
    const double fall = decay > 0 ? std::log(1000.0) / (decay * Music_Rate) : 0;
    const double level = note.Level * partial.Level * std::pow(440 / frequency, 0.2) /
                         (1 + own * own / (soft * soft));
    const double angle = (std::clamp(note.Pan + partial.Pan, -1.0, 1.0) + 1) * std::numbers::pi / 4;
    const double toLeft = level * std::cos(angle), toRight = level * std::sin(angle);
    const double turn = 2 * std::numbers::pi * own / Music_Rate, keep = std::exp(-fall);
    const double turnX = keep * std::cos(turn), turnY = keep * std::sin(turn);
    double x = std::cos(phase), y = std::sin(phase);
    for (size_t n = 0; n < left.size(); n++) {
        left[n] += toLeft * y;
        right[n] += toRight * y;
        const double nextX = x * turnX - y * turnY;
        y = x * turnY + y * turnX;
        x = nextX;
    }
}

static void Music_PlayNote(const NOTE &note, MIX &mix)
{
    const INSTRUMENT &instrument = *note.Instrument;
    const int first = static_cast<int>(note.Start * Music_Step);
    const int held = static_cast<int>(note.Length * Music_Step);
    const int size = held + static_cast<int>(instrument.Release * Music_Rate);
    std::vector<double> left(static_cast<size_t>(size)), right(left.size());
    for (size_t i = 0; i < instrument.Partials.size(); i++) {
        const PARTIAL &partial = instrument.Partials[i];
        const uint32_t seed =
            static_cast<uint32_t>(first + note.Key * 64) + static_cast<uint32_t>(i);
        const bool struck = partial.Decay > 0;
        Music_AddPartial(partial, note, struck ? 0 : std::numbers::pi * Music_Chance(seed), left,
                         right);
    }
    for (int n = 0; n < size; n++) {
        const size_t at = static_cast<size_t>((first + n) % Music_Length);
        double level = Music_Ease(n / (instrument.Attack * Music_Rate));
        if (n > held)
            level *= std::pow(1 - static_cast<double>(n - held) / (size - held), 3);
        level *= 1 - instrument.Pulse * (1 - Music_Pulse(first + n));
        const double l = level * left[static_cast<size_t>(n)];
        const double r = level * right[static_cast<size_t>(n)];
        Music_Put(mix.Dry, at, l, r);
        Music_Put(mix.Room, at, l * instrument.Room, r * instrument.Room);
        Music_Put(mix.Echo, at, l * instrument.Echo, r * instrument.Echo);
    }
}

// A soft shake on every step, stronger on the second and fourth beat: noise around 4.5 kHz, a
// little after the struck notes.
static void Music_PlayShaker(int step, double level, MIX &mix)
{
    constexpr int size = Music_Rate / 6, late = Music_Rate / 150;
    constexpr double attack = 0.012 * Music_Rate, sharp = 0.7, dark = 0.4;
    const bool beat = step % 4 == 2;
    const double tune = 2 * std::sin(std::numbers::pi * 4500 / Music_Rate);
    double low = 0, band = 0, softer = 0, softest = 0;
    for (int n = 0; n < size; n++) {
        const size_t at = static_cast<size_t>(step * Music_Step + late + n);
        // A state variable filter with a band-pass output, then a gentle slope above it.
        low += tune * band;
        band += tune * (Music_Chance(static_cast<uint32_t>(at) * 2654435761u) - low - sharp * band);
        softer += dark * (band - softer);
        softest += dark * (softer - softest);
        const double fall = std::pow(1 - static_cast<double>(n) / size, beat ? 4 : 7);
        const double shake = level * (beat ? 0.45 : 0.27) * Music_Ease(n / attack) * fall * softest;
        Music_Put(mix.Dry, at, 0.8 * shake, shake);
        Music_Put(mix.Room, at, 0.2 * shake, 0.2 * shake);
    }
}

// A line that gives back what was put in as many samples ago as it is long.
struct DELAY {
    std::vector<double> Line;
    size_t At = 0;
    explicit DELAY(size_t size) : Line(size) {}
    double Get() const
    {
        return Line[At];
    }
    void Put(double value)
    {
        Line[At] = value;
        At = At + 1 < Line.size() ? At + 1 : 0;
    }
};

// Runs an effect over the round twice and keeps the second time, when the end already rings on
// into the start. effect(left, right) turns a pair of samples into another.
template <class EFFECT>
static SOUND Music_Cycle(EFFECT effect, const SOUND &in)
{
    SOUND out;
    for (const bool keep : {false, true})
        for (size_t n = 0; n < in.Left.size(); n++) {
            double left = in.Left[n], right = in.Right[n];
            effect(left, right);
            if (keep)
                Music_Put(out, n, left, right);
        }
    return out;
}

static void Music_Add(SOUND &sound, const SOUND &other, double level)
{
    for (size_t n = 0; n < other.Left.size(); n++)
        Music_Put(sound, n, level * other.Left[n], level * other.Right[n]);
}

// Echoes three steps apart that change sides and darken.
static SOUND Music_Echo(const SOUND &in)
{
    constexpr double again = 0.38, dark = 0.22;
    DELAY toLeft(3 * Music_Step), toRight(3 * Music_Step);
    double heardLeft = 0, heardRight = 0;
    const auto effect = [&](double &left, double &right) {
        heardLeft += dark * (toLeft.Get() - heardLeft);
        heardRight += dark * (toRight.Get() - heardRight);
        toLeft.Put(right + again * heardRight);
        toRight.Put(left + again * heardLeft);
        left = heardLeft;
        right = heardRight;
    };
    return Music_Cycle(effect, in);
}

// The walls' first answers: five delays, each quieter than the one before.
static double Music_Reflect(std::array<DELAY, 5> &walls, double in)
{
    constexpr double level = 0.5;
    double sum = 0;
    for (size_t i = 0; i < walls.size(); i++) {
        sum += (i % 2 == 0 ? level : -level) / static_cast<double>(i + 1) * walls[i].Get();
        walls[i].Put(in);
    }
    return sum;
}

// An all-pass: every frequency as loud as before, but smeared in time.
static double Music_Diffuse(DELAY &delay, double in)
{
    constexpr double gain = 0.55;
    const double held = delay.Get(), put = in + gain * held;
    delay.Put(put);
    return held - gain * put;
}

// Multiplies by the Hadamard matrix of order 8, which mixes all and keeps the energy.
static void Music_Scatter(std::array<double, 8> &v)
{
    for (size_t half = 1; half < 8; half *= 2)
        for (size_t i = 0; i < 8; i++)
            if ((i & half) == 0) {
                const double a = v[i], b = v[i | half];
                v[i] = (a + b) * std::numbers::sqrt2 / 2;
                v[i | half] = (a - b) * std::numbers::sqrt2 / 2;
            }
}

// A small hall: first reflections, then a feedback delay network of eight lines.
static SOUND Music_Room(const SOUND &in)
{
    constexpr double seconds = 1.9, dark = 0.34, rumble = 0.03, tail = 0.7;
    std::array<DELAY, 5> wallsLeft = {DELAY(331), DELAY(613), DELAY(907), DELAY(1289), DELAY(1723)};
    std::array<DELAY, 5> wallsRight = {DELAY(428), DELAY(710), DELAY(1004), DELAY(1386),
                                       DELAY(1820)};
    std::array<DELAY, 4> diffusers = {DELAY(441), DELAY(142), DELAY(379), DELAY(107)};
    std::array<DELAY, 8> lines = {DELAY(1559), DELAY(1801), DELAY(2087), DELAY(2371),
                                  DELAY(2663), DELAY(2999), DELAY(3331), DELAY(3701)};
    std::array<double, 8> gains = {}, heard = {}, v = {};
    for (size_t i = 0; i < 8; i++)
        gains[i] =
            std::pow(10, -3 * static_cast<double>(lines[i].Line.size()) / (seconds * Music_Rate));
    double low = 0;
    const auto effect = [&](double &left, double &right) {
        double sent = (left + right) / 2;
        low += rumble * (sent - low);
        sent -= low;
        for (DELAY &diffuser : diffusers)
            sent = Music_Diffuse(diffuser, sent);
        for (size_t i = 0; i < 8; i++)
            v[i] = heard[i] += (1 - dark) * (gains[i] * lines[i].Get() - heard[i]);
        // Reflections come back from the other side.
        const double first = Music_Reflect(wallsLeft, right);
        right = Music_Reflect(wallsRight, left) + tail * (v[1] - v[3] + v[5] + v[7]);
        left = first + tail * (v[0] + v[2] - v[4] + v[6]);
        Music_Scatter(v);
        for (size_t i = 0; i < 8; i++)
            lines[i].Put(sent + v[i]);
    };
    return Music_Cycle(effect, in);
}

// The pause before each step: down to 0 and up again, quickest where the next note is struck.
static double Music_Dip(int sample)
{
    constexpr double fall = 0.010 * Music_Rate, rise = 0.005 * Music_Rate;
    constexpr double before = 24, after = 64;
    const int in = sample % Music_Step;
    return Music_Ease((Music_Step - before - in) / fall) * Music_Ease((in - after) / rise);
}

// What lies below 35 Hz nobody hears; it would only use up level.
static SOUND Music_Master(const SOUND &mix)
{
    constexpr double level = 0.9;
    const double corner = 2 * std::numbers::pi * 35 / Music_Rate;
    std::array<double, 4> low = {};
    const auto effect = [&](double &left, double &right) {
        for (size_t i = 0; i < 4; i++) {
            double &value = i % 2 == 0 ? left : right;
            low[i] += corner * (value - low[i]);
            value -= low[i];
        }
    };
    SOUND master = Music_Cycle(effect, mix);
    for (int n = 0; n < Music_Length; n++)
        for (float *side : {master.Left.data(), master.Right.data()})
            side[n] *= static_cast<float>(level * Music_Dip(n));
    return master;
}

static SOUND Music_Play()
{
    MIX mix;
    for (const NOTE &note : Music_Notes())
        Music_PlayNote(note, mix);
    int step = 0;
    for (const SECTION &section : Music_Sections) {
        const int steps = section.Bars * Music_BarSteps;
        for (int i = 0; i < steps && section.ShakerLevel > 0; i++) {
            const double swell = std::sin(std::numbers::pi * (i + 0.5) / steps);
            Music_PlayShaker(step + i, section.ShakerLevel * swell, mix);
        }
        step += steps;
    }
    const SOUND echo = Music_Echo(mix.Echo);
    Music_Add(mix.Dry, echo, 1);
    Music_Add(mix.Room, echo, 0.3);
    Music_Add(mix.Dry, Music_Room(mix.Room), 1);
    return Music_Master(mix.Dry);
}

// Three rounds, so that the middle one has its neighbours on both sides. They begin late by the
// codec's delay, which puts the first step of a round at the start of a decoded frame.
static bool Music_WritePCM()
{
    const SOUND sound = Music_Play();
    std::vector<uint8_t> bytes;
    bytes.reserve(size_t{Music_Length} * 6);
    float peak = 0;
    for (int n = 0; n < Music_Length; n++)
        for (const std::vector<float> *side : {&sound.Left, &sound.Right}) {
            const float value = (*side)[static_cast<size_t>((n + Music_Delay) % Music_Length)];
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

// ID3v2.3, "Declared ID3v2 frames": an identifier, a size, two flag bytes, and in front of the
// text its encoding (0 is ISO 8859-1).
static void Music_AddText(BYTES &tag, std::string_view id, std::string_view text)
{
    tag.insert(tag.end(), id.begin(), id.end());
    tag.insert(tag.end(), {0, 0, 0, static_cast<uint8_t>(text.size() + 1), 0, 0, 0});
    tag.insert(tag.end(), text.begin(), text.end());
}

// The tag stays below 128 bytes, where plain and seven-bit sizes are the same, and ends in
// padding, which the engine's reader needs to have enough left for the last text.
static BYTES Music_Tag()
{
    using namespace std::literals;
    constexpr size_t size = 120, header = 10;
    BYTES tag = {'I', 'D', '3', 3, 0, 0, 0, 0, 0, size};
    Music_AddText(tag, "TIT2", "Careful Steps");
    Music_AddText(tag, "TPE1", "VELMORANDIS");
    Music_AddText(tag, "TYER", "2026");
    // No language and no description: the reader keeps comments without a language only.
    Music_AddText(tag, "COMM", "\0\0\0\0Original music, CC0 1.0"sv);
    tag.resize(header + size);
    return tag;
}

// The length of the 192 kbit/s frame whose header starts at `at`, or 0 when none does.
static size_t Music_FrameLength(std::span<const uint8_t> file, size_t at)
{
    if (at + 4 > file.size() || file[at] != 0xFF || file[at + 1] != 0xFB ||
        (file[at + 2] & 0xFC) != 0xB0)
        return 0;
    return 144 * 192000 / Music_Rate + (file[at + 2] >> 1 & 1);
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
        Music_PrintScore();
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
