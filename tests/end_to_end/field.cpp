// Prints the field that the game generates for the given parameters at this time of day, a row a
// line: '*' mine, '.' none. With the time of day held still it tells a test where the mines lie.
#include <cstdio>

#include "game/minefield.h"
#include "platform/application.h"
#include "platform/system.h"

int main(int argc, char **argv)
{
    Velmorandis_SetParamCount(argc);
    Velmorandis_SetParamStr(argv);
    System_RaNDomize();
    ReadParameters();
    GenerateMinefield();
    for (size_t y = 0; y < yDim; y++) {
        for (size_t x = 0; x < xDim; x++)
            std::putchar(MineField[x][y].content == CONTENT_MINE ? '*' : '.');
        std::putchar('\n');
    }
}
