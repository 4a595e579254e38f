#include "game/minefield.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "platform/state.h"
#include "platform/system.h"
#include "tests/field.h"

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
        {{"game", "65", "10", "5"}, 10, 10, 20},
        {{"game", "10", "1", "5"}, 10, 10, 20},
        {{"game", "64", "64", "4095"}, 64, 64, 255},  // truncated to 8 bits before the check
        {{"game", "266", "10", "5"}, 10, 10, 5},
        {{"game", "2", "2", "-3"}, 10, 10, 20},
    };
    for (const auto &r : rows) {
        std::string name;
        for (const char *parameter : r.parameters)
            name += std::string(parameter) + ' ';
        System_ParamCount = static_cast<int32_t>(r.parameters.size());
        for (size_t i = 0; i < r.parameters.size(); i++)
            std::strcpy(&System_ParamStr[i * System_ParamLength], r.parameters[i]);
        ReadParameters();
        EXPECT_TRUE(xDim == r.x && yDim == r.y && nMines == r.mines) << name;
        EXPECT_EQ(okFlag, r.parameters.size() == 4 && r.mines != 20) << name;
    }
}

TEST(Minefield, MinesAndCountsAgree)
{
    const struct {
        uint8_t x, y, mines;
        uint16_t seed = 4711, seed2 = 1234;
    } rows[] = {
        // clang-format off
        {10, 10, 20}, {2, 2, 3}, {64, 64, 255}, {7, 3, 0}, {3, 3, 8},
        {16, 16, 255, 57495, 13223},  // these seeds lead into a cycle without a free cell
        // clang-format on
    };
    for (const auto &r : rows) {
        System_RND = r.seed, System_RND2 = r.seed2;
        xDim = r.x, yDim = r.y, nMines = r.mines;
        GenerateMinefield();
        const auto generated = MineField;
        const std::string mines = MinesToText();
        EXPECT_EQ(std::ranges::count(mines, '*'), r.mines);
        FieldFromText(mines.c_str());
        for (size_t i = 0; i < size_t{r.x} * r.y; i++) {
            const MineCell &cell = generated[i % r.x][i / r.x];
            const MineCell &expected = MineField[i % r.x][i / r.x];
            EXPECT_TRUE(cell.state == expected.state && cell.content == expected.content) << i;
            EXPECT_TRUE(cell.count == expected.count || cell.content == CONTENT_MINE) << i;
        }
    }
}

TEST(Minefield, AFieldFollowsFromItsSeed)
{
    System_RND = System_RND2 = 0;
    xDim = yDim = 4, nMines = 3;
    GenerateMinefield();
    EXPECT_EQ(MinesToText(), "....\n..**\n....\n...*\n");
}
