// The instruments of the game's music: each note and stroke is added to one round of the piece.
#pragma once

#include <vector>

#include "tools/art/score.h"

// One round of the piece at Score_Rate; what rings past its end continues at its start.
struct SOUND {
    std::vector<float> Left, Right;
    SOUND() : Left(Score_Length), Right(Score_Length) {}
};

// The dry signal, the input of the hall, and the input of the echo.
struct MIX {
    SOUND Dry, Hall, Echo;
};

void Voices_Play(const NOTE &note, MIX &mix);
void Voices_Strike(const STROKE &stroke, MIX &mix);

/// Adds to a sample; `at` counts from the round's start and wraps around at its end.
void Voices_Put(SOUND &sound, int at, double left, double right);

/// From 0 to 1 as x does, smooth at both ends.
double Voices_Ease(double x);
