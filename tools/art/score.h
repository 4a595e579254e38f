// The score of the game's music: what is played, when, how loud, and where in the stereo field.
#pragma once

#include <vector>

constexpr int Score_Rate = 44100;  // samples a second
constexpr int Score_Step = 13440;  // samples of an eighth: 98.4 quarters a minute
constexpr int Score_BarSteps = 8;
constexpr int Score_Bars = 48;
constexpr int Score_Steps = Score_Bars * Score_BarSteps;
constexpr int Score_Length = Score_Steps * Score_Step;  // samples of one round

enum INSTRUMENT {
    Score_Pad,
    Score_Lead,
    Score_Viola,
    Score_Piano,
    Score_Harp,
    Score_Bell,
    Score_Bass
};
enum DRUM { Score_Kick, Score_Brush, Score_Shaker, Score_Block, Score_Triangle };

struct NOTE {
    INSTRUMENT Instrument;
    double Start, Length;  // steps
    int Key;               // as in MIDI: A4 is 69
    double Level, Pan;     // 0 to about 1; -1 left, 1 right
};

struct STROKE {
    DRUM Drum;
    double Start;  // steps
    double Level;
};

/// Every note of one round. All start within it; what rings past its end continues at its start.
std::vector<NOTE> Score_Notes();

/// Every stroke of the percussion, in the same way.
std::vector<STROKE> Score_Strokes();

/// A pseudo-random number from -1 to 1, the same for the same seed.
double Score_Chance(unsigned seed);

/// Prints every voice, bar by bar, and warns of melody notes that clash with their chord.
void Score_Print();
