#include "game/minefield.h"

#include <cstdio>
#include <cstdlib>

#include "audio/mp3.h"
#include "extra/heap.h"
#include "game/board.h"
#include "platform/application.h"
#include "platform/glfew.h"
#include "platform/system.h"
#include "platform/timer.h"

std::array<std::array<MineCell, MaxDim>, MaxDim> MineField;
std::mutex GameLock;

uint8_t xDim = 10, yDim = 10, nMines = 20;
int32_t okFlag;
uint32_t step = 1;
float zDepth;
AudioTrack *music;

void ReadParameters()
{
    okFlag = 0;
    if (Velmorandis_ParamCount() == 4) {
        const auto parameter = [](int32_t i) {
            return static_cast<uint8_t>(System_StrToInt(Velmorandis_ParamStr(i)));
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

// The random numbers may run into a short cycle that never meets a free cell; a nudge leads out.
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

static void StartMusic()
{
    Audio_Init(2);
    Audio_SetMixer(16, 44100, 32768, 32768);
    Audio_SetMode(1);
    Audio_SetLoop(0);
    music = Audio_Load("datas/ShadowOfTheBeast.mp3");
    const MP3_HEADER *header = MP3_GetHeader(0);
    std::printf("Title: %s\n", header ? header->ID3v2.Title.data() : "");
    std::printf("Artist: %s\n", header ? header->ID3v2.Artist.data() : "");
    std::printf("Year: %s\n", header ? header->ID3v2.Year.data() : "");
    std::printf("Comment: %s\n\n", header ? header->ID3v2.Comment.data() : "");
    Audio_Play(music);
}

void Velmorandis()
{
    if (!CreateApplication(0, 0, 1024, 768, "Tessaruvinel v3.23 - a VELMORANDIS production", "", "",
                           255, 255, 0, 255))
        std::exit(EXIT_FAILURE);
    System_RaNDomize();
    std::printf("\nWelcome to the latest VELMORANDIS production!\n\n");
    std::printf("Minefield properties:\n");
    ReadParameters();
    std::printf("X dimension : %d\n", xDim);
    std::printf("Y dimension : %d\n", yDim);
    std::printf("Mines       : %d\n\n", nMines);
    std::printf("BTW: Tessaruvinel.exe xDim yDim nMines\n\n");
    std::printf("Generate minefield...\n");
    GenerateMinefield();
    CreateBoard();
    std::printf("\n\nOK, let's play.\n\n");
    Extra_CreateHeap(0, xDim * yDim * 3);
    Extra_SetHeap(0, 0);
    StartMusic();
    Timer_Create(0, 10000000);
}
