#include "audio/mod_replay.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <unordered_set>
#include <utility>

constexpr size_t MOD_Notes = 36;

// The sound chip counts a clock down from the period and then plays the next sample, so a pitch is
// a period: half the period is an octave up, and a semitone divides it by 2^(1/12). Files store the
// periods of tuning 0. The player finds the stored period in that row, and the note's index then
// gives the period in the sample's own tuning; glissando and arpeggio count semitones by the same
// index.
//
// The rows: three octaves from C-1 in the tunings 0 to 7 and -8 to -1 eighths of a semitone. Each
// ends with the 0 that stops the original's searches.
constexpr std::array<std::array<uint16_t, MOD_Notes + 1>, 16> MOD_Periods = {{
    // clang-format off
    {856, 808, 762, 720, 678, 640, 604, 570, 538, 508, 480, 453,
     428, 404, 381, 360, 339, 320, 302, 285, 269, 254, 240, 226,
     214, 202, 190, 180, 170, 160, 151, 143, 135, 127, 120, 113},
    {850, 802, 757, 715, 674, 637, 601, 567, 535, 505, 477, 450,
     425, 401, 379, 357, 337, 318, 300, 284, 268, 253, 239, 225,
     213, 201, 189, 179, 169, 159, 150, 142, 134, 126, 119, 113},
    {844, 796, 752, 709, 670, 632, 597, 563, 532, 502, 474, 447,
     422, 398, 376, 355, 335, 316, 298, 282, 266, 251, 237, 224,
     211, 199, 188, 177, 167, 158, 149, 141, 133, 125, 118, 112},
    {838, 791, 746, 704, 665, 628, 592, 559, 528, 498, 470, 444,
     419, 395, 373, 352, 332, 314, 296, 280, 264, 249, 235, 222,
     209, 198, 187, 176, 166, 157, 148, 140, 132, 125, 118, 111},
    {832, 785, 741, 699, 660, 623, 588, 555, 524, 495, 467, 441,
     416, 392, 370, 350, 330, 312, 294, 278, 262, 247, 233, 220,
     208, 196, 185, 175, 165, 156, 147, 139, 131, 124, 117, 110},
    {826, 779, 736, 694, 655, 619, 584, 551, 520, 491, 463, 437,
     413, 390, 368, 347, 328, 309, 292, 276, 260, 245, 232, 219,
     206, 195, 184, 174, 164, 155, 146, 138, 130, 123, 116, 109},
    {820, 774, 730, 689, 651, 614, 580, 547, 516, 487, 460, 434,
     410, 387, 365, 345, 325, 307, 290, 274, 258, 244, 230, 217,
     205, 193, 183, 172, 163, 154, 145, 137, 129, 122, 115, 109},
    {814, 768, 725, 684, 646, 610, 575, 543, 513, 484, 457, 431,
     407, 384, 363, 342, 323, 305, 288, 272, 256, 242, 228, 216,
     204, 192, 181, 171, 161, 152, 144, 136, 128, 121, 114, 108},
    {907, 856, 808, 762, 720, 678, 640, 604, 570, 538, 508, 480,
     453, 428, 404, 381, 360, 339, 320, 302, 285, 269, 254, 240,
     226, 214, 202, 190, 180, 170, 160, 151, 143, 135, 127, 120},
    {900, 850, 802, 757, 715, 675, 636, 601, 567, 535, 505, 477,
     450, 425, 401, 379, 357, 337, 318, 300, 284, 268, 253, 238,
     225, 212, 200, 189, 179, 169, 159, 150, 142, 134, 126, 119},
    {894, 844, 796, 752, 709, 670, 632, 597, 563, 532, 502, 474,
     447, 422, 398, 376, 355, 335, 316, 298, 282, 266, 251, 237,
     223, 211, 199, 188, 177, 167, 158, 149, 141, 133, 125, 118},
    {887, 838, 791, 746, 704, 665, 628, 592, 559, 528, 498, 470,
     444, 419, 395, 373, 352, 332, 314, 296, 280, 264, 249, 235,
     222, 209, 198, 187, 176, 166, 157, 148, 140, 132, 125, 118},
    {881, 832, 785, 741, 699, 660, 623, 588, 555, 524, 494, 467,
     441, 416, 392, 370, 350, 330, 312, 294, 278, 262, 247, 233,
     220, 208, 196, 185, 175, 165, 156, 147, 139, 131, 123, 117},
    {875, 826, 779, 736, 694, 655, 619, 584, 551, 520, 491, 463,
     437, 413, 390, 368, 347, 328, 309, 292, 276, 260, 245, 232,
     219, 206, 195, 184, 174, 164, 155, 146, 138, 130, 123, 116},
    {868, 820, 774, 730, 689, 651, 614, 580, 547, 516, 487, 460,
     434, 410, 387, 365, 345, 325, 307, 290, 274, 258, 244, 230,
     217, 205, 193, 183, 172, 163, 154, 145, 137, 129, 122, 115},
    {862, 814, 768, 725, 684, 646, 610, 575, 543, 513, 484, 457,
     431, 407, 384, 363, 342, 323, 305, 288, 272, 256, 242, 228,
     216, 203, 192, 181, 171, 161, 152, 144, 136, 128, 121, 114},
    // clang-format on
}};

// Notes and tunings descend, an octave halves the period, and eight eighths make a semitone.
static constexpr bool PeriodsHold()
{
    for (size_t t = 0; t < 16; t++)
        for (size_t i = 0; i < MOD_Notes; i++) {
            const int period = MOD_Periods[t][i];
            if (period <= MOD_Periods[t][i + 1])
                return false;
            if (i + 12 < MOD_Notes) {
                const int off = period - 2 * MOD_Periods[t][i + 12];
                if (off < -2 || off > 2)
                    return false;
            }
            if (t != 7 && period < MOD_Periods[(t + 1) % 16][i])
                return false;
            if (i > 0 && MOD_Periods[8][i] != MOD_Periods[0][i - 1])
                return false;
        }
    return true;
}
static_assert(PeriodsHold());

// Half a sine, 255 x sin(i x pi / 32).
constexpr std::array<uint8_t, 32> MOD_Sine = {
    0,   24,  49,  74,  97,  120, 141, 161, 180, 197, 212, 224, 235, 244, 250, 253,
    255, 253, 250, 244, 235, 224, 212, 197, 180, 161, 141, 120, 97,  74,  49,  24,
};
static_assert([] {
    for (size_t i = 1; i < 32; i++)
        if (MOD_Sine[i] != MOD_Sine[32 - i] || (i <= 16 && MOD_Sine[i] <= MOD_Sine[i - 1]))
            return false;
    return true;
}());

// What a tick adds to the invert loop's counter, which acts at 128.
constexpr std::array<uint8_t, 16> MOD_InvertSteps = {0,  5,  6,  7,  8,  10, 11, 13,
                                                     16, 19, 22, 26, 32, 43, 64, 128};
static_assert(std::ranges::is_sorted(MOD_InvertSteps));

// 2^(-i / 12), for notes outside the table.
constexpr std::array<double, 16> MOD_Semitones = [] {
    std::array<double, 16> ratios{};
    double ratio = 1;
    for (double &r : ratios) {
        r = ratio;
        ratio *= 0.9438743126816935;  // 2^(-1 / 12)
    }
    return ratios;
}();
static_assert(MOD_Semitones[12] > 0.5 - 1e-12 && MOD_Semitones[12] < 0.5 + 1e-12);

constexpr uint32_t MOD_MaxRows = 65536;  // of a song; 128 orders without loops have 8192

static bool InTable(uint32_t period)
{
    return period >= 113 && period <= 856;
}

// The first note of a tuning whose period is not longer; MOD_Notes if there is no such note.
static size_t FindNote(uint8_t finetune, uint16_t period)
{
    const auto &notes = MOD_Periods[finetune];
    return static_cast<size_t>(std::ranges::find_if(notes, [=](int p) { return period >= p; }) -
                               notes.begin());
}

static MOD_PITCH MakePitch(int period, int heard)
{
    return {static_cast<uint16_t>(period), static_cast<int8_t>(heard - 4 * period)};
}

// What a voice plays at a pitch: quarters of a clock.
static uint32_t Heard(MOD_PITCH pitch)
{
    return pitch.Period == 0 ? 0 : static_cast<uint32_t>(4 * pitch.Period + pitch.Quarters);
}

// A note of the table; the 0 that ends a tuning is not a note. The pitch that sounds is the first
// octave's, halved per octave, as in today's players; in tuning 0, except for the last note, it is
// the one that files state.
static MOD_PITCH NotePitch(size_t finetune, size_t note)
{
    const auto &notes = MOD_Periods[finetune];
    const int period = notes[note];
    const bool asStated = finetune == 0 && note != MOD_Notes - 1;
    return MakePitch(period, asStated ? 4 * period : 4 * notes[note % 12] >> note / 12);
}

// A note outside the table is tuned like the same note of the first octave.
static MOD_PITCH OutsidePitch(size_t finetune, uint16_t period)
{
    if (finetune == 0 || period == 0)
        return MakePitch(period, 4 * period);
    double inOctave = period;
    int octave = 0;
    for (; inOctave < 441; octave++)  // the boundary is halfway between C-2 and B-1
        inOctave *= 2;
    for (; inOctave >= 882; octave--)
        inOctave /= 2;
    const std::span notes(MOD_Periods[0].data(), 12);
    const auto nearest =
        std::ranges::min_element(notes, {}, [=](int p) { return std::abs(p - inOctave); });
    const int first = 4 * MOD_Periods[finetune][static_cast<size_t>(nearest - notes.begin())];
    const int heard = octave >= 0 ? first >> octave : first << -octave;
    return MakePitch((heard + 2) / 4, heard);
}

// The pitch of a cell's note in the channel's tuning.
static MOD_PITCH TuneNote(const MOD_CHANNEL &c)
{
    return InTable(c.Cell.Period) ? NotePitch(c.Finetune, FindNote(0, c.Cell.Period))
                                  : OutsidePitch(c.Finetune, c.Cell.Period);
}

static uint8_t High(const MOD_CHANNEL &c)
{
    return c.Cell.Parameter >> 4;
}

static uint8_t Low(const MOD_CHANNEL &c)
{
    return c.Cell.Parameter & 15;
}

static void SetLoop(const MOD_PLAYER &p, const MOD_CHANNEL &c, MOD_VOICE &v)
{
    const bool heard = v.On && c.LoopLength > 2;
    v.LoopData = heard ? p.Waves[c.Sample].data() : nullptr;
    v.LoopStart = c.LoopStart;
    v.LoopEnd = c.LoopStart + c.LoopLength;
}

static void Trigger(const MOD_PLAYER &p, const MOD_CHANNEL &c, MOD_VOICE &v)
{
    v.Data = p.Waves[c.Sample].data();
    v.Position = static_cast<uint64_t>(c.Start) << 32;
    v.End = c.Start + c.Length;
    v.Period = Heard(c.Pitch);
    v.Started = v.On = true;
    SetLoop(p, c, v);
}

// Sets the run to the channel's whole sample.
static void SetRun(const MOD_PLAYER &p, MOD_CHANNEL &c)
{
    const MOD_SAMPLE &sample = p.Song->Samples[c.Sample];
    c.Start = 0;
    // A loop from the very start is entered only after the whole sample was played.
    c.Length = sample.LoopStart > 0 ? sample.LoopStart + sample.LoopLength
                                    : static_cast<uint32_t>(sample.Data.size());
}

static void SetSample(const MOD_PLAYER &p, MOD_CHANNEL &c)
{
    c.Sample = c.Cell.Sample <= MOD_MaxSamples ? c.Cell.Sample : uint8_t{0};
    const MOD_SAMPLE &sample = p.Song->Samples[c.Sample];
    c.Finetune = sample.Finetune;
    c.Volume = sample.Volume;
    c.LoopStart = c.InvertAt = sample.LoopStart;
    c.LoopLength = sample.LoopLength;
    SetRun(p, c);
}

static bool IsDelayed(const MOD_CHANNEL &c)
{
    return c.Cell.Command == 0xE && High(c) == 0xD;
}

static void StartNote(const MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    c.Pitch = TuneNote(c);
    if (IsDelayed(c) && !(p.Song->Foreign && p.Tick == Low(c)))
        return;
    for (MOD_WAVE *wave : {&c.Vibrato, &c.Tremolo})
        if (!(wave->Shape & 4))
            wave->Position = 0;
    Trigger(p, c, v);
}

static void SlideTo(MOD_CHANNEL &c, MOD_VOICE &v, int period, bool beyond, MOD_PITCH limit)
{
    if (c.Pitch.Period == 0)
        return;
    if (beyond)
        c.Pitch = limit;
    else
        c.Pitch.Period = static_cast<uint16_t>(period);
    v.Period = Heard(c.Pitch);
}

static bool HasWideRange(const MOD_PLAYER &p)
{
    return p.Song->WideRange || p.Song->Foreign;
}

// Slides stop at the same two notes in every tuning; notes beyond jump there at once.
static void SlideUp(const MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v, uint8_t step)
{
    const MOD_PITCH highest = HasWideRange(p) ? MOD_PITCH{14, 0} : NotePitch(0, MOD_Notes - 1);
    const int period = c.Pitch.Period - step;
    SlideTo(c, v, period, period < highest.Period, highest);
}

static void SlideDown(const MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v, uint8_t step)
{
    const MOD_PITCH lowest = HasWideRange(p) ? MOD_PITCH{3424, 0} : NotePitch(0, 0);
    const int period = c.Pitch.Period + step;
    SlideTo(c, v, period, period > lowest.Period, lowest);
}

static void Arpeggio(const MOD_PLAYER &p, const MOD_CHANNEL &c, MOD_VOICE &v)
{
    const uint8_t up = p.Tick % 3 == 0 ? uint8_t{0} : p.Tick % 3 == 1 ? High(c) : Low(c);
    v.Period = Heard(c.Pitch);
    if (up == 0)
        return;
    const size_t raised = FindNote(c.Finetune, c.Pitch.Period) + up;
    if (p.Song->WideRange && (!InTable(c.Pitch.Period) || raised >= MOD_Notes)) {
        v.Period = static_cast<uint32_t>(Heard(c.Pitch) * MOD_Semitones[up] + 0.5);
        return;
    }
    // On purpose: above the highest note come the 0 and the next tuning.
    const size_t note = c.Finetune * (MOD_Notes + 1) + raised;
    const size_t row = note / (MOD_Notes + 1);
    v.Period = row < 16 ? Heard(NotePitch(row, note % (MOD_Notes + 1))) : 0;
}

static void AimPortamento(MOD_CHANNEL &c)
{
    c.Wanted = TuneNote(c);
    c.WantedIsHigher = c.Wanted.Period < c.Pitch.Period;
    if (c.Wanted.Period == c.Pitch.Period)
        c.Pitch = std::exchange(c.Wanted, {});
}

static void Portamento(const MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    uint16_t &period = c.Pitch.Period;
    if (c.Wanted.Period == 0 || period == 0)  // silent without a note to start from
        return;
    const int speed = c.PortamentoSpeed, wanted = c.Wanted.Period;
    period = static_cast<uint16_t>(c.WantedIsHigher ? std::max(period - speed, wanted)
                                                    : std::min(period + speed, wanted));
    if (period == wanted)
        c.Pitch = std::exchange(c.Wanted, {});
    v.Period = Heard(c.Pitch);
    if (c.Glissando && (!p.Song->WideRange || InTable(period)))
        v.Period =
            Heard(NotePitch(c.Finetune, std::min(FindNote(c.Finetune, period), MOD_Notes - 1)));
}

static void NewPortamento(const MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    if (c.Cell.Parameter != 0)
        c.PortamentoSpeed = c.Cell.Parameter;
    Portamento(p, c, v);
}

static void SetWave(const MOD_CHANNEL &c, MOD_WAVE &wave)
{
    if (High(c) != 0)
        wave.Speed = High(c);
    if (Low(c) != 0)
        wave.Depth = Low(c);
}

// The wave's value at its position; `rampFalls` inverts the ramp.
static int WaveValue(const MOD_WAVE &wave, bool rampFalls, int shift)
{
    const int i = wave.Position >> 2 & 31;
    const int shape = wave.Shape & 3;
    const int value = shape == 0   ? MOD_Sine[static_cast<size_t>(i)]
                      : shape == 1 ? (rampFalls ? 255 - i * 8 : i * 8)
                                   : 255;
    const int depth = value * wave.Depth >> shift;
    return wave.Position < 128 ? depth : -depth;
}

static void Vibrate(MOD_CHANNEL &c, MOD_VOICE &v)
{
    MOD_PITCH pitch = c.Pitch;
    pitch.Period =
        static_cast<uint16_t>(pitch.Period + WaveValue(c.Vibrato, c.Vibrato.Position >= 128, 7));
    v.Period = Heard(pitch);
    c.Vibrato.Position = static_cast<uint8_t>(c.Vibrato.Position + c.Vibrato.Speed * 4);
}

static void Tremolo(MOD_CHANNEL &c, MOD_VOICE &v)
{
    SetWave(c, c.Tremolo);
    // On purpose: the vibrato's position inverts the ramp.
    const int change = WaveValue(c.Tremolo, c.Vibrato.Position >= 128, 6);
    v.Volume = static_cast<uint8_t>(std::clamp(c.Volume + change, 0, 64));
    c.Tremolo.Position = static_cast<uint8_t>(c.Tremolo.Position + c.Tremolo.Speed * 4);
}

static void ChangeVolume(MOD_CHANNEL &c, int change)
{
    c.Volume = static_cast<uint8_t>(std::clamp(c.Volume + change, 0, 64));
}

static void SlideVolume(MOD_CHANNEL &c)
{
    ChangeVolume(c, High(c) != 0 ? High(c) : -Low(c));
}

static void SampleOffset(MOD_CHANNEL &c)
{
    if (c.Cell.Parameter != 0)
        c.Offset = c.Cell.Parameter;
    const uint32_t skip = c.Offset * 256u;
    if (skip < c.Length) {
        c.Start += skip;
        c.Length -= skip;
    } else {
        c.Length = std::min(c.Length, 2u);  // almost nothing, so the loop follows
    }
}

static void InvertLoop(MOD_PLAYER &p, MOD_CHANNEL &c)
{
    c.InvertCount = static_cast<uint8_t>(c.InvertCount + MOD_InvertSteps[c.InvertSpeed]);
    if (c.InvertCount < 128)
        return;
    c.InvertCount = 0;
    if (++c.InvertAt >= c.LoopStart + c.LoopLength)
        c.InvertAt = c.LoopStart;
    if (c.InvertAt >= p.Waves[c.Sample].size())
        return;
    int8_t &value = p.Waves[c.Sample][c.InvertAt];
    value = static_cast<int8_t>(-1 - value);
}

// Takes the cell's sample and note.
static void ReadNote(const MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    const uint8_t command = c.Cell.Command;
    if (c.Cell.Sample != 0)
        SetSample(p, c);
    if (c.Cell.Period == 0)
        return;
    if (p.Song->Foreign)
        SetRun(p, c);
    const bool goesThere = command == 3 || command == 5;
    if (goesThere && !(p.Song->Foreign && c.Pitch.Period == 0)) {
        AimPortamento(c);
        return;
    }
    if (command == 0xE && High(c) == 5)
        c.Finetune = Low(c);
    // On purpose: as in the original the command acts again below, so the next note starts at twice
    // the offset.
    if (command == 9)
        SampleOffset(c);
    StartNote(p, c, v);
}

static void PatternLoop(MOD_PLAYER &p, MOD_CHANNEL &c)
{
    if (Low(c) == 0) {
        c.LoopRow = p.Row;
        return;
    }
    if (c.LoopsLeft == 0)
        c.LoopsLeft = Low(c);
    else if (--c.LoopsLeft == 0)
        return;
    p.BreakRow = c.LoopRow;
    p.RowBreak = true;
}

static void Extended(MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    const uint8_t value = Low(c);
    const bool first = p.Tick == 0;
    switch (High(c)) {
    case 0x0:
        if (first)
            p.Filter = !(value & 1);
        break;
    case 0x1:
        if (first)
            SlideUp(p, c, v, value);
        break;
    case 0x2:
        if (first)
            SlideDown(p, c, v, value);
        break;
    case 0x3:
        c.Glissando = value != 0;
        break;
    case 0x4:
        c.Vibrato.Shape = value;
        break;
    case 0x5:
        c.Finetune = value;
        break;
    case 0x6:
        if (first)
            PatternLoop(p, c);
        break;
    case 0x7:
        c.Tremolo.Shape = value;
        break;
    case 0x9:  // the command also starts a note without one in the cell
        if (value != 0 && p.Tick % value == 0 && !(first && c.Cell.Period != 0))
            Trigger(p, c, v);
        break;
    case 0xA:
        if (first)
            ChangeVolume(c, value);
        break;
    case 0xB:
        if (first)
            ChangeVolume(c, -value);
        break;
    case 0xC:
        if (p.Tick == value)
            c.Volume = 0;
        break;
    case 0xD:
        if (p.Tick == value && p.Song->Foreign && value != 0)
            ReadNote(p, c, v);
        else if (p.Tick == value && c.Cell.Period != 0)
            Trigger(p, c, v);
        break;
    case 0xE:
        if (first && p.DelayLeft == 0)
            p.Delay = static_cast<uint8_t>(value + 1);
        break;
    case 0xF:
        if (!first)
            break;
        c.InvertSpeed = value;
        if (value != 0)
            InvertLoop(p, c);
        break;
    }
}

// On speed 0 today's players, unlike the original, continue.
static void SetSpeed(MOD_PLAYER &p, uint8_t value)
{
    if (value == 0)
        p.AtEnd |= !p.Song->FormatRules;
    else if (value < 32)
        p.Speed = value;
    else
        p.Tempo = value;
}

static void PositionJump(MOD_PLAYER &p, uint8_t order)
{
    p.Position = static_cast<uint8_t>(order - 1);
    p.BreakRow = 0;  // on purpose: a break in an earlier channel loses its row
    p.Jump = true;
}

static void PatternBreak(MOD_PLAYER &p, const MOD_CHANNEL &c)
{
    const int row = High(c) * 10 + Low(c);
    p.BreakRow = static_cast<uint8_t>(row < static_cast<int>(MOD_Rows) ? row : 0);
    p.Jump = true;
}

// Commands that act when the row is read. The others leave the period unchanged, so that an earlier
// vibrato or arpeggio holds its pitch until the next tick.
static void RowEffects(MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    InvertLoop(p, c);
    switch (c.Cell.Command) {
    case 0x9:
        SampleOffset(c);
        break;
    case 0xB:
        PositionJump(p, c.Cell.Parameter);
        break;
    case 0xC:
        c.Volume = std::min(c.Cell.Parameter, uint8_t{64});
        break;
    case 0xD:
        PatternBreak(p, c);
        break;
    case 0xE:
        Extended(p, c, v);
        break;
    case 0xF:
        SetSpeed(p, c.Cell.Parameter);
        break;
    default:
        v.Period = Heard(c.Pitch);
        break;
    }
}

// Commands that act on all other ticks, and on the first tick of a row that a delay repeats.
static void TickEffects(MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v)
{
    InvertLoop(p, c);
    switch (c.Cell.Command) {
    case 0x0:
        Arpeggio(p, c, v);
        break;
    case 0x1:
        SlideUp(p, c, v, c.Cell.Parameter);
        break;
    case 0x2:
        SlideDown(p, c, v, c.Cell.Parameter);
        break;
    case 0x3:
        NewPortamento(p, c, v);
        break;
    case 0x4:
        SetWave(c, c.Vibrato);
        Vibrate(c, v);
        break;
    case 0x5:
        Portamento(p, c, v);
        SlideVolume(c);
        break;
    case 0x6:
        Vibrate(c, v);
        SlideVolume(c);
        break;
    case 0x7:
        Tremolo(c, v);
        return;  // sounds until the next tick; the channel's own volume is unchanged
    case 0xA:
        SlideVolume(c);
        break;
    case 0xE:
        Extended(p, c, v);
        break;
    default:
        v.Period = Heard(c.Pitch);
        break;
    }
    v.Volume = c.Volume;
}

static void ReadCell(MOD_PLAYER &p, MOD_CHANNEL &c, MOD_VOICE &v, const MOD_CELL &cell)
{
    if (c.Cell == MOD_CELL{})
        v.Period = Heard(c.Pitch);
    c.Cell = cell;
    if (!p.Song->Foreign || !IsDelayed(c) || Low(c) == 0)
        ReadNote(p, c, v);
    RowEffects(p, c, v);
    v.Volume = c.Volume;
}

static bool ReadRow(MOD_PLAYER &p)
{
    if (p.AtEnd || p.RowsLeft == 0) {
        p.AtEnd = true;
        return false;
    }
    p.RowsLeft--;
    p.PlaysPosition = p.Position;
    p.PlaysRow = p.Row;
    const uint8_t pattern = p.Song->Orders[p.Position];
    for (size_t i = 0; i < p.Channels.size(); i++)
        ReadCell(p, p.Channels[i], p.Voices[i], MOD_GetCell(*p.Song, pattern, p.Row, i));
    for (size_t i = 0; i < p.Channels.size() && !p.Song->Foreign; i++)
        SetLoop(p, p.Channels[i], p.Voices[i]);
    return true;
}

static void NextOrder(MOD_PLAYER &p)
{
    p.Row = p.BreakRow;
    p.BreakRow = 0;
    p.Jump = false;
    p.Position = static_cast<uint8_t>((p.Position + 1) & 127);
    if (p.Position >= p.Song->Length) {
        p.Position = 0;
        p.AtEnd = p.Row == 0;  // a break into the middle of a pattern continues there, once
    }
}

static void NextRow(MOD_PLAYER &p)
{
    p.Row++;
    if (p.Delay != 0) {
        p.DelayLeft = p.Delay;
        p.Delay = 0;
    }
    if (p.DelayLeft != 0 && --p.DelayLeft != 0)
        p.Row--;
    if (p.RowBreak) {
        p.Row = p.BreakRow;
        p.BreakRow = 0;
        p.RowBreak = false;
    }
    if (p.Row >= MOD_Rows)
        NextOrder(p);
}

// Hash of what decides how the song continues: its place, and the loop of each channel in one.
static uint64_t FlowKey(const MOD_PLAYER &p)
{
    uint64_t key = p.Position * MOD_Rows + p.Row;
    for (const MOD_CHANNEL &c : p.Channels) {
        key ^= c.LoopsLeft != 0 ? (c.LoopsLeft * MOD_Rows + c.LoopRow) << 16 : 0;
        key *= 0x9E3779B97F4A7C15;  // odd: distinct keys stay distinct
        key ^= key >> 29;
    }
    return key;
}

// The formats' rules use whole frames, counted here at the most common rate.
static double TickSeconds(const MOD_SONG &song, uint8_t tempo)
{
    constexpr double rate = 44100;
    return song.FormatRules ? std::floor(rate * 2.5 / tempo) / rate : 2.5 / tempo;
}

MOD_LENGTH MOD_Measure(const MOD_SONG &song)
{
    MOD_PLAYER p = {};
    MOD_Start(p, song, MOD_MaxRows);
    std::unordered_set<uint64_t> played;
    double seconds = 0;
    for (;;) {
        if (p.DelayLeft == 0 && !played.insert(FlowKey(p)).second)
            break;
        p.Tick = p.Speed;  // only a row's first tick changes the place
        if (!MOD_Tick(p))
            break;
        seconds += p.Speed * TickSeconds(song, p.Tempo);
    }
    return {MOD_MaxRows - p.RowsLeft, static_cast<uint32_t>(seconds * 1000 + 0.5)};
}

void MOD_Start(MOD_PLAYER &player, const MOD_SONG &song, uint32_t rows)
{
    // The last run's memory is reused, so that starting over in the audio callback allocates
    // nothing.
    MOD_PLAYER last = std::exchange(player, {});
    player.Song = &song;
    player.RowsLeft = rows;
    player.Waves = std::move(last.Waves);
    for (size_t i = 0; i < player.Waves.size(); i++)
        player.Waves[i].assign(song.Samples[i].Data.begin(), song.Samples[i].Data.end());
    player.Channels = std::move(last.Channels);
    player.Channels.assign(song.Channels, {});
    player.Voices = std::move(last.Voices);
    player.Voices.assign(song.Channels, {});
    player.Speed = 6;
    player.Tempo = 125;
    player.Tick = player.Speed;  // the first tick reads a row
}

bool MOD_Tick(MOD_PLAYER &player)
{
    player.Tick++;
    const bool first = player.Tick >= player.Speed;
    if (first)
        player.Tick = 0;
    if (first && player.DelayLeft == 0) {
        if (!ReadRow(player)) {
            player.Tick = player.Speed;  // stays at the end
            return false;
        }
    } else {
        for (size_t i = 0; i < player.Channels.size(); i++)
            TickEffects(player, player.Channels[i], player.Voices[i]);
    }
    if (first)
        NextRow(player);
    if (player.Jump)
        NextOrder(player);
    return true;
}
