#include "tools/art/score.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <string_view>

namespace
{
// The instruments and levels of a section. A drum's line has a character per sixteenth: "x" is a
// stroke, "o" a soft one, "." none; the line repeats every bar.
struct SECTION {
    const char *Name;
    int Bars;
    INSTRUMENT Melody;
    double MelodyLevel, CounterLevel, BellLevel, HarpLevel, PadLevel, BassLevel;
    const char *Harp;  // a token per step: chord positions; two digits share the step
    std::array<const char *, 5> Drums;  // in the order of DRUM
};

// One bar. Voices are written a token per step: a note, "-" to hold it, "." for a rest. A chord has
// four notes, or two sets of four if it changes in the middle of the bar; the harp plays them by
// position, 4 to 7 an octave higher.
struct BAR {
    const char *Name, *Bass, *Chord, *Melody, *Counter, *Bell;
};
}  // namespace

constexpr const char *Score_None = "................";
constexpr const char *Score_Rest = ". . . . . . . .";

constexpr std::array<SECTION, 6> Score_Sections = {{
    {"A",
     8,
     Score_Lead,
     0.95,
     0.00,
     0.60,
     0.75,
     0.95,
     0.85,
     "0 2 4 3 5 3 4 2",
     {Score_None, Score_None, "..o.x.o...o.x.o.", "......x.........", Score_None}},
    {"A'",
     8,
     Score_Lead,
     1.00,
     0.60,
     0.60,
     0.80,
     1.00,
     1.00,
     "0 2 45 3 6 5 42 3",
     {"x.....o.x.......", "....x.......x...", "o.o.x.o.o.o.x.oo", "......x.........", Score_None}},
    {"B",
     8,
     Score_Viola,
     1.05,
     0.00,
     0.70,
     0.85,
     1.15,
     0.80,
     "0 2 3 4 5 4 3 2",
     {Score_None, Score_None, Score_None, Score_None, "x..............."}},
    {"B'",
     8,
     Score_Viola,
     1.00,
     0.45,
     0.75,
     0.85,
     1.15,
     0.95,
     "02 34 53 42 02 34 53 42",
     {"x.........o.....", Score_None, "o.o.o.o.o.o.o.o.", Score_None, "x..............."}},
    {"A''",
     8,
     Score_Lead,
     1.05,
     0.65,
     0.60,
     0.80,
     1.05,
     1.05,
     "02 45 34 56 64 53 45 32",
     {"x.....o.x..o....", "....x.......x..o", "o.o.x.o.o.o.x.oo", "......x...x.....",
      "........x......."}},
    {"C",
     8,
     Score_Piano,
     0.95,
     0.00,
     0.80,
     0.70,
     1.00,
     0.75,
     "0 2 4 5 4 3 2 3",
     {Score_None, Score_None, "....o.......o...", Score_None, "x..............."}},
}};

static_assert(std::accumulate(Score_Sections.begin(), Score_Sections.end(), 0,
                              [](int sum, const SECTION &section) { return sum + section.Bars; }) ==
              Score_Bars);

constexpr std::array<BAR, Score_Bars> Score_Score = {{
    // A: the theme, four bars that ask and four that answer.
    {"D", "D2 - - D3 A2 - - -", "A3 D4 F#4 A4", "A4 - - D5 E5 - F#5 -", Score_Rest, Score_Rest},
    {"Bm7", "B1 - - B2 F#2 - - -", "A3 D4 F#4 B4", "F#5 - E5 D5 B4 - - -", Score_Rest, Score_Rest},
    {"Gmaj9", "G2 - - D3 B2 - - -", "B3 D4 F#4 A4", "B4 - - D5 E5 - F#5 -", Score_Rest, Score_Rest},
    {"Asus4 A", "A2 - - E2 A2 - - -", "A3 D4 E4 A4 A3 C#4 E4 A4", "E5 - - - - - . .", Score_Rest,
     ". . . . . . A5 C#6"},
    {"D/F#", "F#2 - - D3 A2 - - -", "A3 D4 F#4 A4", "A4 - - D5 E5 - F#5 -", Score_Rest,
     "D6 - - - . . . ."},
    {"G", "G2 - - D3 G2 - - -", "B3 D4 G4 B4", "G5 - F#5 E5 D5 - B4 -", Score_Rest, Score_Rest},
    {"Em7 A7", "E2 - - B2 A2 - - -", "B3 D4 E4 G4 A3 C#4 E4 G4", "G5 - F#5 E5 C#5 - E5 -",
     Score_Rest, Score_Rest},
    {"D", "D2 - - A2 D3 - A2 -", "A3 D4 F#4 A4", "D5 - - - - - . .", Score_Rest,
     ". . . . F#5 A5 D6 -"},
    // A': the theme again, with a counter-melody, and it climbs.
    {"D", "D2 - - D3 A2 - D2 -", "A3 D4 F#4 A4", "A4 - - D5 E5 - F#5 -", "F#4 - - - A4 - - -",
     Score_Rest},
    {"Bm7", "B1 - - B2 F#2 - B1 -", "A3 D4 F#4 B4", "F#5 - E5 D5 B4 - D5 -", "B4 - A4 - F#4 - - -",
     Score_Rest},
    {"Gmaj9", "G2 - - D3 B2 - G2 -", "B3 D4 F#4 A4", "B4 - - D5 E5 - G5 -", "F#4 - - - B4 - - -",
     Score_Rest},
    {"A", "A2 - - E2 A2 - G2 -", "A3 C#4 E4 A4", "A5 - - G5 E5 - - -", "C#5 - - - A4 - C#5 -",
     ". . . . . E6 C#6 A5"},
    {"D/F#", "F#2 - - D3 A2 - F#2 -", "A3 D4 F#4 A4", "A5 - - F#5 E5 - D5 -", "D5 - - - A4 - - -",
     Score_Rest},
    {"Gmaj7", "G2 - - D3 G2 - B2 -", "B3 D4 F#4 B4", "B5 - A5 G5 F#5 - D5 -", "D5 - - - B4 - - -",
     Score_Rest},
    {"Em7 A7", "E2 - - B2 A2 - A1 -", "B3 D4 E4 G4 A3 C#4 E4 G4", "E5 - F#5 G5 E5 - C#5 -",
     "B4 - - - G4 - - -", Score_Rest},
    {"D A/C#", "D2 - - A2 C#3 - - -", "A3 D4 F#4 A4 A3 C#4 E4 A4", "D5 - - - . . . .",
     "F#4 - - - E4 - - -", ". . . . E6 - C#6 -"},
    // B: the other subject, in the relative minor: long lines over a slow harp, no drums.
    {"Bm7", "B1 - - - - - F#2 -", "A3 D4 F#4 B4", "D5 - - - - - C#5 -", Score_Rest, Score_Rest},
    {"F#m7", "F#2 - - - - - C#3 -", "A3 C#4 E4 A4", "C#5 - - - A4 - - -", Score_Rest,
     ". . . . E6 - C#6 -"},
    {"Gmaj7", "G2 - - - - - D3 -", "B3 D4 F#4 B4", "B4 - - - - - A4 -", Score_Rest, Score_Rest},
    {"D/F#", "F#2 - - - - - D2 -", "A3 D4 F#4 A4", "A4 - - - F#4 - - -", Score_Rest,
     ". . . . D6 - A5 -"},
    {"Em7", "E2 - - - - - B2 -", "B3 D4 E4 G4", "G4 - A4 - B4 - D5 -", Score_Rest, Score_Rest},
    {"Bm/D", "D2 - - - - - F#2 -", "B3 D4 F#4 B4", "F#5 - - - D5 - - -", Score_Rest,
     ". . . . F#5 - B5 -"},
    {"G C#m7b5", "G2 - - - C#2 - - -", "B3 D4 G4 B4 B3 E4 G4 B4", "D5 - - - E5 - B4 -", Score_Rest,
     Score_Rest},
    {"F#7sus F#7", "F#2 - - - - - C#2 -", "B3 C#4 F#4 B4 A#3 C#4 F#4 A#4", "C#5 - - - - - E5 -",
     Score_Rest, ". . . . . . C#6 -"},
    // B': the same harmony opens; it rises, darkens once (Gm6) and waits for the theme.
    {"Bm7", "B1 - - - B2 - F#2 -", "A3 D4 F#4 B4", "D5 - E5 - F#5 - - -", "B4 - - - - - - -",
     Score_Rest},
    {"F#m7/A", "A2 - - - E2 - A2 -", "A3 C#4 E4 A4", "A5 - - - F#5 - E5 -", "C#5 - - - A4 - - -",
     ". . . . C#6 - E6 -"},
    {"Gmaj7", "G2 - - - D3 - G2 -", "B3 D4 F#4 B4", "D5 - E5 - F#5 - B5 -", "B4 - - - D5 - - -",
     Score_Rest},
    {"D/F#", "F#2 - - - A2 - D2 -", "A3 D4 F#4 A4", "A5 - - - - - F#5 -", "D5 - - - A4 - - -",
     ". . . . F#6 - D6 -"},
    {"G", "G2 - - - D3 - B2 -", "B3 D4 G4 B4", "G5 - - - F#5 - D5 -", "B4 - - - - - - -",
     Score_Rest},
    {"Gm6", "G2 - - - D3 - Bb2 -", "Bb3 D4 E4 G4", "E5 - - - D5 - Bb4 -", "G4 - - - - - - -",
     ". . . . D6 - Bb5 -"},
    {"D/A", "A1 - - - A2 - - -", "A3 D4 F#4 A4", "A4 - - D5 F#5 - - -", "F#4 - - - A4 - - -",
     ". . . . . . F#6 -"},
    {"A7sus A7", "A1 - - - A2 - A1 -", "A3 D4 E4 G4 A3 C#4 E4 G4", "E5 - - - - - - -",
     "G4 - - - - - - -", ". . . . G5 A5 C#6 E6"},
    // A'': the theme comes back, fullest, with bells an octave above.
    {"D", "D2 - - D3 A2 - D2 -", "A3 D4 F#4 A4", "A4 - - D5 E5 - F#5 -", "F#4 - - - A4 - - -",
     "A5 - - D6 E6 - F#6 -"},
    {"Bm7", "B1 - - B2 F#2 - B1 -", "A3 D4 F#4 B4", "F#5 - E5 D5 B4 - - -", "B4 - A4 - F#4 - - -",
     "F#6 - E6 D6 B5 - - -"},
    {"Gmaj9", "G2 - - D3 B2 - G2 -", "B3 D4 F#4 A4", "B4 - - D5 E5 - F#5 -", "F#4 - - - B4 - - -",
     "B5 - - D6 E6 - F#6 -"},
    {"Asus4 A", "A2 - - E2 A2 - G2 -", "A3 D4 E4 A4 A3 C#4 E4 A4", "E5 - - - - - . .",
     "A4 - - - C#5 - - -", "E6 - - - . A5 C#6 E6"},
    {"D/F#", "F#2 - - D3 A2 - F#2 -", "A3 D4 F#4 A4", "A5 - - F#5 E5 - D5 -", "D5 - - - A4 - - -",
     Score_Rest},
    {"Gmaj7", "G2 - - D3 G2 - B2 -", "B3 D4 F#4 B4", "B5 - A5 G5 F#5 - D5 -", "D5 - - - B4 - - -",
     "B6 - A6 G6 F#6 - D6 -"},
    {"Em7 A7", "E2 - - B2 A2 - A1 -", "B3 D4 E4 G4 A3 C#4 E4 G4", "E5 - F#5 G5 E5 - C#5 -",
     "B4 - - - G4 - - -", Score_Rest},
    {"D", "D2 - - A2 D3 - - -", "A3 D4 F#4 A4", "D5 - - - - - . .", "F#4 - - - - - - -",
     ". . . . F#5 A5 D6 -"},
    // C: the theme's second bar, thinned out, finds the way back to the beginning.
    {"Gmaj7", "G2 - - - - - D3 -", "B3 D4 F#4 B4", "F#5 - E5 D5 B4 - - -", Score_Rest,
     ". . . . . . B5 -"},
    {"A/G", "G2 - - - - - - -", "A3 C#4 E4 A4", "C#5 - - - E5 - - -", Score_Rest,
     "C#6 - - - A5 - - -"},
    {"F#m7", "F#2 - - - - - C#3 -", "A3 C#4 E4 A4", "E5 - D5 C#5 A4 - - -", Score_Rest,
     ". . . . . . C#6 -"},
    {"Bm7", "B1 - - - - - F#2 -", "A3 D4 F#4 B4", "D5 - - - F#5 - - -", Score_Rest,
     "B5 - - - F#5 - - -"},
    {"Em7", "E2 - - - - - B2 -", "B3 D4 E4 G4", "G5 - F#5 E5 D5 - B4 -", Score_Rest, Score_Rest},
    {"A7sus A7", "A2 - - - - - E2 -", "A3 D4 E4 G4 A3 C#4 E4 G4", "D5 - - - E5 - - -", Score_Rest,
     ". . . . C#6 - E6 -"},
    {"Dadd9", "D2 - - - - - A2 -", "A3 D4 E4 F#4", "F#5 - - - - - . .", Score_Rest,
     "F#6 - - - D6 - A5 -"},
    {"A7sus A7", "A1 - - - - - A2 -", "A3 D4 E4 G4 A3 C#4 E4 G4", ". . . . . . . .", Score_Rest,
     ". . . . E5 G5 C#6 E6"},
}};

// Takes the next token off the front of `text`; empty at the end.
static constexpr std::string_view Score_Token(std::string_view &text)
{
    while (text.starts_with(' '))
        text.remove_prefix(1);
    const std::string_view token = text.substr(0, text.find(' '));
    text.remove_prefix(token.size());
    return token;
}

// The MIDI key of "C4", "F#3" or "Eb5", or -1 for anything else.
static constexpr int Score_Key(std::string_view name)
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

// Four notes or eight.
static constexpr bool Score_IsChord(std::string_view text)
{
    int count = 0;
    for (auto token = Score_Token(text); !token.empty(); token = Score_Token(text), count++)
        if (Score_Key(token) < 0)
            return false;
    return count == 4 || count == 8;
}

// A bar of notes, rests, and holds after a note.
static constexpr bool Score_IsVoice(std::string_view text)
{
    int count = 0;
    bool sounds = false;
    for (auto token = Score_Token(text); !token.empty(); token = Score_Token(text), count++) {
        if (token == "-" ? !sounds : Score_Key(token) < 0 && token != ".")
            return false;
        sounds = token != ".";
    }
    return count == Score_BarSteps;
}

static constexpr bool Score_IsSection(const SECTION &section)
{
    int count = 0;
    std::string_view text = section.Harp;
    for (auto token = Score_Token(text); !token.empty(); token = Score_Token(text), count++)
        if (token.size() > 2 || token.find_first_not_of("01234567") != token.npos)
            return false;
    const auto isLine = [](std::string_view line) {
        return line.size() == 2 * Score_BarSteps && line.find_first_not_of("xo.") == line.npos;
    };
    return count == Score_BarSteps && std::ranges::all_of(section.Drums, isLine);
}

static_assert(Score_Key("A4") == 69 && Score_Key("C4") == 60 && Score_Key("Eb5") == 75);
static_assert(std::ranges::all_of(Score_Sections, Score_IsSection));
static_assert(std::ranges::all_of(Score_Score,
                                  [](const BAR &bar) {
                                      return Score_IsVoice(bar.Bass) && Score_IsVoice(bar.Melody) &&
                                             Score_IsVoice(bar.Counter) &&
                                             Score_IsVoice(bar.Bell) && Score_IsChord(bar.Chord);
                                  }),
              "every bar is full");

double Score_Chance(unsigned seed)
{
    uint32_t mixed = (seed ^ 61) ^ (seed >> 16);
    mixed *= 9;
    mixed ^= mixed >> 4;
    mixed *= 0x27D4EB2D;
    mixed ^= mixed >> 15;
    return static_cast<double>(mixed) / 2147483648.0 - 1;
}

// A player stresses the first and the fifth step, and is never quite even.
static double Score_Accent(double step, unsigned voice)
{
    const int inBar = static_cast<int>(step) % Score_BarSteps;
    const double lean = inBar == 0 ? 1.0 : inBar == 4 ? 0.95 : inBar % 2 == 0 ? 0.90 : 0.84;
    const double offBeat = step != std::floor(step) ? 0.8 : 1;
    return lean * offBeat *
           (1 + 0.06 * Score_Chance(static_cast<unsigned>(step * 2) + voice * 997));
}

// Nor quite in time: up to 4 ms late.
static double Score_Late(double step, unsigned voice)
{
    const unsigned seed = static_cast<unsigned>(step * 2) + voice * 7919;
    return step + 0.004 * Score_Rate / Score_Step * (0.5 + 0.5 * Score_Chance(seed));
}

static std::vector<int> Score_Chord(std::string_view text)
{
    std::vector<int> keys;
    for (auto token = Score_Token(text); !token.empty(); token = Score_Token(text))
        keys.push_back(Score_Key(token));
    return keys;
}

// The four notes that sound at a step of the bar.
static std::array<int, 4> Score_ChordAt(const BAR &bar, int step)
{
    const std::vector<int> keys = Score_Chord(bar.Chord);
    const size_t first = step < Score_BarSteps / 2 ? 0 : keys.size() - 4;
    return {keys[first], keys[first + 1], keys[first + 2], keys[first + 3]};
}

static void Score_AddVoice(std::vector<NOTE> &notes, INSTRUMENT instrument, int start,
                           std::string_view text, double level, double pan)
{
    for (int step = start; step < start + Score_BarSteps; step++) {
        const std::string_view token = Score_Token(text);
        if (token == "-")
            notes.back().Length += 1;
        else if (token != "." && level > 0)
            notes.push_back({instrument, Score_Late(step, instrument), 1, Score_Key(token),
                             level * Score_Accent(step, instrument), pan});
        else if (token != ".")
            return;
    }
}

static void Score_AddHarp(std::vector<NOTE> &notes, const SECTION &section, const BAR &bar,
                          int start, double level)
{
    std::string_view text = section.Harp;
    for (int i = 0; i < Score_BarSteps; i++) {
        const std::array<int, 4> chord = Score_ChordAt(bar, i);
        const std::string_view token = Score_Token(text);
        for (size_t k = 0; k < token.size(); k++) {
            const auto place = static_cast<size_t>(token[k] - '0');
            const double at = start + i + 0.5 * static_cast<double>(k);
            const int key = chord[place % 4] + (place < 4 ? 0 : 12);
            notes.push_back({Score_Harp, Score_Late(at, Score_Harp), 2, key,
                             level * Score_Accent(at, Score_Harp),
                             0.22 * (static_cast<double>(place) - 3.5)});
        }
    }
}

// A key shared by successive chords is held, not struck again, for four bars at most.
static void Score_AddPad(std::vector<NOTE> &notes, std::vector<NOTE> &held, const BAR &bar,
                         int start, double level)
{
    constexpr double half = Score_BarSteps / 2.0;
    for (const int step : {0, Score_BarSteps / 2}) {
        std::vector<NOTE> sounding;
        double pan = -0.45;
        for (const int key : Score_ChordAt(bar, step)) {
            const auto same = [&](const NOTE &note) {
                return note.Key == key && note.Level == level && note.Length < 4 * Score_BarSteps;
            };
            const auto old = std::ranges::find_if(held, same);
            if (old != held.end()) {
                sounding.push_back(*old);
                sounding.back().Length += half;
                held.erase(old);
            } else {
                sounding.push_back(
                    {Score_Pad, static_cast<double>(start + step), half, key, level, pan});
            }
            pan += 0.3;
        }
        notes.insert(notes.end(), held.begin(), held.end());
        held = sounding;
    }
}

// Calls what(section, bar, first step) for every bar.
template <class Do>
static void Score_ForBars(Do what)
{
    size_t bar = 0;
    for (const SECTION &section : Score_Sections)
        for (int i = 0; i < section.Bars; i++, bar++)
            what(section, Score_Score[bar], static_cast<int>(bar) * Score_BarSteps);
}

std::vector<NOTE> Score_Notes()
{
    std::vector<NOTE> notes, held;
    Score_ForBars([&](const SECTION &section, const BAR &bar, int start) {
        Score_AddVoice(notes, Score_Bass, start, bar.Bass, 0.15 * section.BassLevel, 0);
        Score_AddPad(notes, held, bar, start, 0.042 * section.PadLevel);
        Score_AddHarp(notes, section, bar, start, 0.16 * section.HarpLevel);
        Score_AddVoice(notes, section.Melody, start, bar.Melody, 0.18 * section.MelodyLevel, 0.05);
        Score_AddVoice(notes, Score_Viola, start, bar.Counter, 0.13 * section.CounterLevel, -0.35);
        Score_AddVoice(notes, Score_Bell, start, bar.Bell, 0.14 * section.BellLevel, 0.3);
    });
    notes.insert(notes.end(), held.begin(), held.end());
    return notes;
}

std::vector<STROKE> Score_Strokes()
{
    std::vector<STROKE> strokes;
    Score_ForBars([&](const SECTION &section, const BAR &, int start) {
        for (size_t drum = 0; drum < section.Drums.size(); drum++)
            for (size_t i = 0; i < 2 * Score_BarSteps; i++) {
                const char c = section.Drums[drum][i];
                const double at = start + 0.5 * static_cast<double>(i);
                const auto voice = static_cast<unsigned>(100 + drum);
                if (c != '.')
                    strokes.push_back({static_cast<DRUM>(drum), Score_Late(at, voice),
                                       (c == 'x' ? 1.0 : 0.5) * Score_Accent(at, voice)});
            }
    });
    return strokes;
}

// The least distance above a note of the chord, in semitones: 0 is in the chord, 1 clashes.
static int Score_Rub(const BAR &bar, int step, int key)
{
    int least = 12;
    for (const int below : Score_ChordAt(bar, step))
        least = std::min(least, (key - below + 120) % 12);
    return least;
}

void Score_Print()
{
    int number = 0;
    Score_ForBars([&](const SECTION &section, const BAR &bar, int) {
        std::printf("%-4s%2d  %s\n", section.Name, ++number, bar.Name);
        std::printf("  bell     %s\n  melody   %s\n", bar.Bell, bar.Melody);
        std::printf("  counter  %s\n  harp     %s\n", bar.Counter, section.Harp);
        std::printf("  chord    %s\n  bass     %s\n", bar.Chord, bar.Bass);
        for (std::string_view voice : {bar.Melody, bar.Counter, bar.Bell})
            for (int step = 0; step < Score_BarSteps; step++) {
                const std::string_view token = Score_Token(voice);
                const int key = Score_Key(token);
                if (key >= 0 && step % 4 == 0 && Score_Rub(bar, step, key) == 1)
                    std::printf("  rubs     %.*s on step %d\n", static_cast<int>(token.size()),
                                token.data(), step + 1);
            }
    });
}
