// The instruments of the game's music: each note and stroke is added to one round of the piece.
#pragma once

#include <vector>

#include "tools/art/score.h"

// One round of the piece at Score_Rate; what rings past its end goes on at its start.
struct SOUND {
    std::vector<float> Left, Right;
    SOUND() : Left(Score_Length), Right(Score_Length) {}
};

// What is heard as it is, what the hall hears, and what the echo hears.
struct MIX {
    SOUND Dry, Hall, Echo;
};

void Voices_Play(const NOTE &note, MIX &mix);
void Voices_Strike(const STROKE &stroke, MIX &mix);

/// Adds to a sample; `at` counts from the round's start and wraps around its end.
void Voices_Put(SOUND &sound, int at, double left, double right);

/// From 0 to 1 as x does, without a corner at either end.
double Voices_Ease(double x);
