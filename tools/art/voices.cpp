#include "tools/art/voices.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace
{
struct PARTIAL {
    double Ratio;  // frequency, as a multiple of the note's
    double Level;
    double Decay;  // seconds to fall by 60 dB at A4; 0: sustained
    double Pan;    // -1 left, 1 right
};

struct SOUNDING {
    std::vector<PARTIAL> Partials;
    double Attack;   // seconds
    double Release;  // seconds from the note's end to silence
    double Vibrato;  // depth, as a fraction of the frequency, after a short while
    double Breath;   // level of the noise at its start
    double Hall;     // level sent to the hall
    double Echo;
};

struct STROKE_SOUND {
    double Seconds, Level, Pan, Hall;
    double From, To;       // Hz of its tone, which glides from one to the other; 0: none
    double Noise, Centre;  // level and Hz of its noise, 0: none
    double Sharp;          // bandwidth of the noise: 1 wide, 0.1 narrow
};
}  // namespace

// `count` harmonics that fall off as a power and ring at most `decay` seconds, higher ones shorter;
// `spread` detunes three of each and pans them.
static std::vector<PARTIAL> Voices_Harmonics(int count, double power, double decay, double spread)
{
    std::vector<PARTIAL> partials;
    for (int h = 1; h <= count; h++)
        for (int side = -1; side <= 1; side++)
            if (spread > 0 || side == 0)
                partials.push_back({h * (1 + spread * side),
                                    std::pow(h, -power) / (spread > 0 ? 2 : 1),
                                    decay / std::pow(h, 0.6), spread > 0 ? 0.8 * side : 0});
    return partials;
}

// In the order of INSTRUMENT.
static const std::array<SOUNDING, 7> Voices_Soundings = {{
    // The pad: strings.
    {Voices_Harmonics(14, 1.0, 0, 0.0013), 0.30, 1.3, 0, 0, 0.40, 0},
    // The lead: a whistle with some reed in it.
    {{{1, 1, 0, 0},
      {2, 0.62, 0, 0},
      {3, 0.38, 0, 0},
      {4, 0.20, 0, 0},
      {5, 0.13, 0, 0},
      {6, 0.07, 0, 0},
      {7, 0.05, 0, 0},
      {8, 0.03, 0, 0}},
     0.028,
     0.22,
     0.0045,
     0.10,
     0.30,
     0.28},
    // The viola: the second subject and the counter-melody.
    {Voices_Harmonics(16, 1.05, 0, 0.0005), 0.07, 0.30, 0.0050, 0.03, 0.42, 0.20},
    // A piano of tines: two of each, slightly detuned, beating slowly.
    {{{0.9998, 0.5, 5, -0.5},
      {1.0002, 0.5, 5, 0.5},
      {2, 0.50, 3.2, 0},
      {3, 0.32, 2.2, 0.1},
      {4, 0.18, 1.4, -0.1},
      {5, 0.10, 0.9, 0},
      {7.02, 0.12, 0.3, 0}},
     0.003,
     0.5,
     0,
     0,
     0.35,
     0.30},
    // The harp.
    {Voices_Harmonics(10, 0.95, 2.6, 0), 0.002, 0.7, 0, 0, 0.28, 0.22},
    // Bells.
    {{{0.9997, 0.5, 4, -0.6},
      {1.0003, 0.5, 4, 0.6},
      {2, 0.35, 2.4, 0},
      {3.01, 0.22, 1.3, 0},
      {5.42, 0.12, 0.5, 0}},
     0.002,
     1.8,
     0,
     0,
     0.45,
     0.32},
    // The bass: plucked, with enough harmonics for small loudspeakers.
    {Voices_Harmonics(9, 0.75, 2.4, 0), 0.005, 0.18, 0, 0, 0.06, 0},
}};

// In the order of DRUM.
constexpr std::array<STROKE_SOUND, 5> Voices_Strokes = {{
    {0.26, 0.26, 0.00, 0.05, 105, 52, 0.06, 2200, 0.9},
    {0.20, 0.08, 0.12, 0.30, 190, 170, 1.00, 2600, 0.9},
    {0.09, 0.15, -0.30, 0.15, 0, 0, 1.00, 7200, 0.6},
    {0.10, 0.06, 0.40, 0.35, 1180, 1140, 0.10, 3000, 0.5},
    {1.60, 0.030, -0.45, 0.50, 5274, 5274, 0.15, 9000, 0.3},
}};

void Voices_Put(SOUND &sound, int at, double left, double right)
{
    const auto n = static_cast<size_t>(at % Score_Length);
    sound.Left[n] += static_cast<float>(left);
    sound.Right[n] += static_cast<float>(right);
}

double Voices_Ease(double x)
{
    return 0.5 - 0.5 * std::cos(std::numbers::pi * std::clamp(x, 0.0, 1.0));
}

static double Voices_Angle(double pan)
{
    return (std::clamp(pan, -1.0, 1.0) + 1) * std::numbers::pi / 4;
}

// The vibrato, which sets in after a quarter of a second.
static double Voices_Sway(double vibrato, double seconds)
{
    return 1 + vibrato * Voices_Ease((seconds - 0.25) / 0.35) *
                   std::sin(2 * std::numbers::pi * 5.3 * seconds);
}

// Adds a sine to both sides, computed as a rotating vector that is renewed every few samples.
static void Voices_AddPartial(const PARTIAL &partial, const NOTE &note, double vibrato,
                              double phase, std::vector<double> &left, std::vector<double> &right)
{
    constexpr double highest = 15000, soft = 9000;
    constexpr size_t block = 64;
    const double frequency = 440 * std::exp2((note.Key - 69) / 12.0);
    const double own = frequency * partial.Ratio;
    if (own > highest)
        return;
    // higher notes ring shorter and are struck more softly
    const double decay = partial.Decay * std::pow(440 / frequency, 0.6);
    const double fall = decay > 0 ? std::log(1000.0) / (decay * Score_Rate) : 0;
    const double level = note.Level * partial.Level * std::pow(440 / frequency, 0.2) /
                         (1 + own * own / (soft * soft));
    const double angle = Voices_Angle(note.Pan + partial.Pan), keep = std::exp(-fall);
    const double toLeft = level * std::cos(angle), toRight = level * std::sin(angle);
    double x = std::cos(phase), y = std::sin(phase), turnX = 1, turnY = 0;
    for (size_t n = 0; n < left.size(); n++) {
        if (n == 0 || (vibrato > 0 && n % block == 0)) {
            const double seconds = static_cast<double>(n) / Score_Rate;
            const double turn =
                2 * std::numbers::pi * own * Voices_Sway(vibrato, seconds) / Score_Rate;
            turnX = keep * std::cos(turn);
            turnY = keep * std::sin(turn);
        }
        left[n] += toLeft * y;
        right[n] += toRight * y;
        const double nextX = x * turnX - y * turnY;
        y = x * turnY + y * turnX;
        x = nextX;
    }
}

// White noise through a state variable filter.
static void Voices_AddNoise(double level, double centre, double sharp, double pan, unsigned seed,
                            std::vector<double> &left, std::vector<double> &right)
{
    const double tune = 2 * std::sin(std::numbers::pi * centre / Score_Rate);
    const double toLeft = level * std::cos(Voices_Angle(pan));
    const double toRight = level * std::sin(Voices_Angle(pan));
    double low = 0, band = 0;
    for (size_t n = 0; n < left.size(); n++) {
        low += tune * band;
        band += tune * (Score_Chance((seed + static_cast<unsigned>(n)) * 2654435761u) - low -
                        sharp * band);
        left[n] += toLeft * band;
        right[n] += toRight * band;
    }
}

void Voices_Play(const NOTE &note, MIX &mix)
{
    const SOUNDING &sounding = Voices_Soundings[note.Instrument];
    const int first = static_cast<int>(note.Start * Score_Step);
    const int held = static_cast<int>(note.Length * Score_Step);
    const int size = held + static_cast<int>(sounding.Release * Score_Rate);
    std::vector<double> left(static_cast<size_t>(size)), right(left.size());
    for (size_t i = 0; i < sounding.Partials.size(); i++) {
        const PARTIAL &partial = sounding.Partials[i];
        const unsigned seed =
            static_cast<unsigned>(first + note.Key * 64) + static_cast<unsigned>(i);
        // struck partials start in phase, bowed ones anywhere
        const double phase = partial.Decay > 0 ? 0 : std::numbers::pi * Score_Chance(seed);
        Voices_AddPartial(partial, note, sounding.Vibrato, phase, left, right);
    }
    if (sounding.Breath > 0) {
        std::vector<double> puffLeft(std::min<size_t>(left.size(), Score_Rate / 6));
        std::vector<double> puffRight(puffLeft.size());
        Voices_AddNoise(sounding.Breath * note.Level, 3200, 0.5, note.Pan,
                        static_cast<unsigned>(first), puffLeft, puffRight);
        for (size_t n = 0; n < puffLeft.size(); n++) {
            const double fall =
                std::pow(1 - static_cast<double>(n) / static_cast<double>(puffLeft.size()), 3);
            left[n] += fall * puffLeft[n];
            right[n] += fall * puffRight[n];
        }
    }
    for (int n = 0; n < size; n++) {
        double level = Voices_Ease(n / (sounding.Attack * Score_Rate));
        if (n > held)
            level *= std::pow(1 - static_cast<double>(n - held) / (size - held), 3);
        const double l = level * left[static_cast<size_t>(n)];
        const double r = level * right[static_cast<size_t>(n)];
        Voices_Put(mix.Dry, first + n, l, r);
        Voices_Put(mix.Hall, first + n, l * sounding.Hall, r * sounding.Hall);
        Voices_Put(mix.Echo, first + n, l * sounding.Echo, r * sounding.Echo);
    }
}

void Voices_Strike(const STROKE &stroke, MIX &mix)
{
    const STROKE_SOUND &sound = Voices_Strokes[stroke.Drum];
    const int first = static_cast<int>(stroke.Start * Score_Step);
    const auto size = static_cast<size_t>(sound.Seconds * Score_Rate);
    std::vector<double> left(size), right(size);
    Voices_AddNoise(sound.Noise, sound.Centre, sound.Sharp, sound.Pan,
                    static_cast<unsigned>(first + 31 * stroke.Drum), left, right);
    double phase = 0;
    for (size_t n = 0; n < size; n++) {
        const double x = static_cast<double>(n) / static_cast<double>(size);
        const double tone = sound.From > 0 ? std::sin(phase) : 0;
        phase += 2 * std::numbers::pi * (sound.To + (sound.From - sound.To) * std::pow(1 - x, 6)) /
                 Score_Rate;
        const double level = stroke.Level * sound.Level * Voices_Ease(static_cast<double>(n) / 70) *
                             std::pow(1 - x, 4);
        const double l = level * (left[n] + tone * std::cos(Voices_Angle(sound.Pan)));
        const double r = level * (right[n] + tone * std::sin(Voices_Angle(sound.Pan)));
        Voices_Put(mix.Dry, first + static_cast<int>(n), l, r);
        Voices_Put(mix.Hall, first + static_cast<int>(n), l * sound.Hall, r * sound.Hall);
    }
}
