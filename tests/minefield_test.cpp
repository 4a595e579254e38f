#include "game/minefield.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/application.h"
#include "platform/system.h"

TEST(Minefield, ParametersAreTakenOrReplaced)
{
    const struct {
        std::vector<const char *> parameters;
        int x, y, mines;
    } rows[] = {
        {{"game"}, 10, 10, 20},
        {{"game", "5", "6", "7", "8"}, 10, 10, 20},
        {{"game", "5", "6", "7"}, 5, 6, 7},
        {{"game", "3", "3", "8"}, 3, 3, 8},
        {{"game", "3", "3", "9"}, 10, 10, 20},
        {{"game", "1", "10", "5"}, 10, 10, 20},
        {{"game", "10", "65", "5"}, 10, 10, 20},
        {{"game", "64", "64", "4095"}, 64, 64, 255}, // stored in 8 bits before the check
        {{"game", "266", "10", "5"}, 10, 10, 5},
        {{"game", "2", "2", "-3"}, 10, 10, 20},
    };
    for (const auto &r : rows) {
        std::string name;
        for (const char *parameter : r.parameters)
            name += std::string(parameter) + ' ';
        Velmorandis_SetParamCount(static_cast<int32_t>(r.parameters.size()));
        Velmorandis_SetParamStr(r.parameters.data());
        ReadParameters();
        EXPECT_TRUE(xDim == r.x && yDim == r.y && nMines == r.mines) << name;
        EXPECT_EQ(okFlag, r.parameters.size() == 4 && r.mines != 20) << name;
    }
}

TEST(Minefield, ParametersBeyondTheirSlotsAreCut)
{
    const std::string longer(300, '7');
    std::vector<const char *> many(40, longer.c_str());
    Velmorandis_SetParamCount(40);
    Velmorandis_SetParamStr(many.data());
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(std::string(Velmorandis_ParamStr(i)), longer.substr(0, 127)) << i;
}

TEST(Minefield, MinesAndCountsAgree)
{
    const struct {
        uint8_t x, y, mines;
    } rows[] = {{10, 10, 20}, {2, 2, 3}, {64, 64, 255}, {7, 3, 0}, {3, 3, 8}};
    for (const auto &r : rows) {
        System_RND = 4711;
        System_RND2 = 1234;
        xDim = r.x;
        yDim = r.y;
        nMines = r.mines;
        GenerateMinefield();
        int mines = 0;
        for (int x = 0; x < xDim; x++)
            for (int y = 0; y < yDim; y++) {
                const MineCell &cell = MineField[static_cast<size_t>(x)][static_cast<size_t>(y)];
                int around = 0;
                for (int i = 0; i < 9; i++) {
                    const size_t nx = static_cast<size_t>(x + i % 3 - 1),
                                 ny = static_cast<size_t>(y + i / 3 - 1);
                    around += i != 4 && nx < xDim && ny < yDim &&
                              MineField[nx][ny].content == CONTENT_MINE;
                }
                EXPECT_EQ(cell.state, STATE_COVERED);
                if (cell.content == CONTENT_MINE) {
                    mines++;
                    continue;
                }
                EXPECT_EQ(cell.content, around ? CONTENT_NUMBER : CONTENT_EMPTY) << x << ' ' << y;
                EXPECT_EQ(cell.count, around) << x << ' ' << y;
            }
        EXPECT_EQ(mines, r.mines);
    }
}

TEST(Minefield, AFieldFollowsFromItsSeed)
{
    System_RND = System_RND2 = 0;
    xDim = yDim = 4;
    nMines = 3;
    GenerateMinefield();
    std::string mines;
    for (size_t y = 0; y < 4; y++)
        for (size_t x = 0; x < 4; x++)
            mines += MineField[x][y].content == CONTENT_MINE ? '*' : '.';
    EXPECT_EQ(mines, "......**.......*");
}
