#include "tools/art/hall.h"

#include <array>
#include <cmath>
#include <numbers>

namespace
{
// A delay line: returns what was put in as many samples ago as it is long.
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
}  // namespace

// Runs an effect over the round twice and keeps the second pass, in which the end already rings on
// into the start. effect(left, right) processes a pair of samples.
template <class Effect>
static SOUND Hall_Cycle(Effect effect, const SOUND &in)
{
    SOUND out;
    for (const bool keep : {false, true})
        for (size_t n = 0; n < in.Left.size(); n++) {
            double left = in.Left[n], right = in.Right[n];
            effect(left, right);
            if (keep)
                Voices_Put(out, static_cast<int>(n), left, right);
        }
    return out;
}

static void Hall_Add(SOUND &sound, const SOUND &other, double level)
{
    for (size_t n = 0; n < other.Left.size(); n++)
        Voices_Put(sound, static_cast<int>(n), level * other.Left[n], level * other.Right[n]);
}

// Echoes three sixteenths apart, alternating sides and growing darker.
static SOUND Hall_Echo(const SOUND &in)
{
    constexpr double again = 0.38, dark = 0.22;
    DELAY toLeft(3 * Score_Step / 2), toRight(3 * Score_Step / 2);
    double heardLeft = 0, heardRight = 0;
    const auto effect = [&](double &left, double &right) {
        heardLeft += dark * (toLeft.Get() - heardLeft);
        heardRight += dark * (toRight.Get() - heardRight);
        toLeft.Put(right + again * heardRight);
        toRight.Put(left + again * heardLeft);
        left = heardLeft;
        right = heardRight;
    };
    return Hall_Cycle(effect, in);
}

// Early reflections: five delays, each quieter than the one before.
static double Hall_Reflect(std::array<DELAY, 5> &walls, double in)
{
    constexpr double level = 0.5;
    double sum = 0;
    for (size_t i = 0; i < walls.size(); i++) {
        sum += (i % 2 == 0 ? level : -level) / static_cast<double>(i + 1) * walls[i].Get();
        walls[i].Put(in);
    }
    return sum;
}

// An all-pass filter: every frequency keeps its level, smeared in time.
static double Hall_Diffuse(DELAY &delay, double in)
{
    constexpr double gain = 0.55;
    const double held = delay.Get(), put = in + gain * held;
    delay.Put(put);
    return held - gain * put;
}

// Multiplies by the Hadamard matrix of order 8, which mixes all and keeps the energy.
static void Hall_Scatter(std::array<double, 8> &v)
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
static SOUND Hall_Room(const SOUND &in)
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
            std::pow(10, -3 * static_cast<double>(lines[i].Line.size()) / (seconds * Score_Rate));
    double low = 0;
    const auto effect = [&](double &left, double &right) {
        double sent = (left + right) / 2;
        low += rumble * (sent - low);
        sent -= low;
        for (DELAY &diffuser : diffusers)
            sent = Hall_Diffuse(diffuser, sent);
        for (size_t i = 0; i < 8; i++)
            v[i] = heard[i] += (1 - dark) * (gains[i] * lines[i].Get() - heard[i]);
        // reflections return from the other side
        const double first = Hall_Reflect(wallsLeft, right);
        right = Hall_Reflect(wallsRight, left) + tail * (v[1] - v[3] + v[5] + v[7]);
        left = first + tail * (v[0] + v[2] - v[4] + v[6]);
        Hall_Scatter(v);
        for (size_t i = 0; i < 8; i++)
            lines[i].Put(sent + v[i]);
    };
    return Hall_Cycle(effect, in);
}

// Frequencies below 35 Hz are inaudible and would only use up level.
static SOUND Hall_CutRumble(const SOUND &mix)
{
    const double corner = 2 * std::numbers::pi * 35 / Score_Rate;
    std::array<double, 4> low = {};
    const auto effect = [&](double &left, double &right) {
        for (size_t i = 0; i < 4; i++) {
            double &value = i % 2 == 0 ? left : right;
            low[i] += corner * (value - low[i]);
            value -= low[i];
        }
    };
    return Hall_Cycle(effect, mix);
}

SOUND Hall_Mix(MIX mix)
{
    constexpr double level = 0.595;
    const SOUND echo = Hall_Echo(mix.Echo);
    Hall_Add(mix.Dry, echo, 1);
    Hall_Add(mix.Hall, echo, 0.3);
    Hall_Add(mix.Dry, Hall_Room(mix.Hall), 1);
    SOUND master = Hall_CutRumble(mix.Dry);
    for (std::vector<float> *side : {&master.Left, &master.Right})
        for (float &sample : *side)
            sample *= static_cast<float>(level);
    return master;
}
