// Prints the field that the game generates for the given parameters at this time of day, one row
// per line: '*' mine, '.' none. With a fixed time of day it tells a test where the mines are.
#include <cstdio>

#include "game/minefield.h"
#include "platform/state.h"
#include "platform/system.h"

int main(int argc, char **argv)
{
    System_ParamCount = argc;
    for (size_t i = 0; i < static_cast<size_t>(argc) && i < System_ParamSlots; i++)
        std::snprintf(&System_ParamStr[i * System_ParamLength], System_ParamLength, "%s", argv[i]);
    System_RaNDomize();
    ReadParameters();
    GenerateMinefield();
    for (size_t y = 0; y < yDim; y++) {
        for (size_t x = 0; x < xDim; x++)
            std::putchar(MineField[x][y].content == CONTENT_MINE ? '*' : '.');
        std::putchar('\n');
    }
}
