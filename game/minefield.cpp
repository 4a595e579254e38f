#include "game/minefield.h"

#include "platform/state.h"
#include "platform/system.h"

std::array<std::array<MineCell, MaxDim>, MaxDim> MineField;
std::mutex GameLock;

uint8_t xDim = 10, yDim = 10, nMines = 20;
int32_t okFlag;
uint32_t step = 1;
float zDepth;

void ReadParameters()
{
    okFlag = 0;
    if (System_ParamCount == 4) {
        const auto parameter = [](size_t i) {
            return static_cast<uint8_t>(System_StrToInt(&System_ParamStr[i * System_ParamLength]));
        };
        xDim = parameter(1);
        yDim = parameter(2);
        nMines = parameter(3);
        okFlag =
            nMines <= xDim * yDim - 1 && xDim >= 2 && xDim <= MaxDim && yDim >= 2 && yDim <= MaxDim;
    }
    if (okFlag == 0) {
        xDim = yDim = 10;
        nMines = 20;
    }
}

// The generator can cycle without hitting a free cell; after 65,536 misses its state is bumped.
static void LayMines()
{
    uint16_t misses = 0;
    for (int mine = 0; mine < nMines;) {
        const uint16_t x = System_RaNDom(xDim), y = System_RaNDom(yDim);
        if (MineField[x][y].content == CONTENT_OPEN) {
            MineField[x][y].content = CONTENT_MINE;
            mine++;
            misses = 0;
        } else if (++misses == 0) {
            System_RND++;
        }
    }
}

static uint8_t CountMinesAround(int x, int y)
{
    uint8_t count = 0;
    for (int nx = x - 1; nx <= x + 1; nx++)
        for (int ny = y - 1; ny <= y + 1; ny++)
            if (nx >= 0 && nx < xDim && ny >= 0 && ny < yDim &&
                MineField[static_cast<size_t>(nx)][static_cast<size_t>(ny)].content == CONTENT_MINE)
                count++;
    return count;
}

void GenerateMinefield()
{
    for (size_t y = 0; y < yDim; y++)
        for (size_t x = 0; x < xDim; x++) {
            MineField[x][y] = {};
            MineField[x][y].content = CONTENT_OPEN;
            MineField[x][y].state = STATE_COVERED;
        }
    LayMines();
    for (int y = 0; y < yDim; y++)
        for (int x = 0; x < xDim; x++) {
            MineCell &cell = MineField[static_cast<size_t>(x)][static_cast<size_t>(y)];
            if (cell.content == CONTENT_MINE)
                continue;
            cell.count = CountMinesAround(x, y);
            cell.content = cell.count != 0 ? CONTENT_NUMBER : CONTENT_EMPTY;
        }
}
