#include "game/moves.h"

#include <gtest/gtest.h>

#include "tests/field.h"

TEST(Moves, LeftClickUncovers)
{
    const struct {
        const char *what, *field;
        int x, y;
        const char *seen;
        uint8_t game;
    } rows[] = {
        {"a number turns alone", "*...\n....\n", 1, 0, "#1##\n####\n", GAME_TURNING},
        {"an empty region, its numbers", "*...\n....\n", 3, 0, "#1..\n#1..\n", GAME_TURNING},
        {"a mine", "*...\n....\n", 0, 0, "*###\n####\n", GAME_TURNING},
        {"a flag is a wall", "*.F.\n..F.\n", 3, 0, "##F.\n##F.\n", GAME_TURNING},
        {"so is a question mark", "*.?.\n..?.\n", 3, 0, "##?.\n##?.\n", GAME_TURNING},
        {"marked numbers stay", "*F..\n.?..\n", 3, 0, "#F..\n#?..\n", GAME_TURNING},
        {"a flagged cell stays", "*.F.\n..F.\n", 2, 0, "##F#\n##F#\n", GAME_IDLE},
        {"regions meet at a corner", "...*\n....\n....\n*...\n", 0, 0, "..1#\n..11\n11..\n#1..\n",
         GAME_TURNING},
    };
    for (const auto &r : rows) {
        FieldFromText(r.field);
        Click(r.x, r.y, 1);
        EXPECT_EQ(FieldToText(), r.seen) << r.what;
        EXPECT_EQ(mb, r.game) << r.what;
        EXPECT_TRUE(Extra_EmptyHeap()) << r.what;
    }
}

TEST(Moves, AFieldWithoutMinesOpensAtOnce)
{
    std::string field;
    for (int y = 0; y < MaxDim; y++)
        field += std::string(MaxDim, '.') + '\n';
    FieldFromText(field.c_str());
    Click(17, 40, 1);
    EXPECT_EQ(FieldToText(), field);
    for (const auto &column : MineField)
        for (const MineCell &cell : column)
            ASSERT_EQ(cell.turnSteps, 90);
}

TEST(Moves, ANumberByTwoCellsOfARegionTurnsOnce)
{
    FieldFromText("...\n...\n..*\n");
    Click(0, 0, 1);
    EXPECT_EQ(FieldToText(), "...\n.11\n.1#\n");
    MineField[1][1].turnSteps = 10;
    Click(0, 0, 1);  // an uncovered cell: nothing happens
    EXPECT_EQ(mb, GAME_IDLE);
    EXPECT_EQ(MineField[1][1].turnSteps, 10);
}

TEST(Moves, RightClickCyclesTheMarks)
{
    FieldFromText("*.\n..\n");
    for (const char *seen : {"F#\n##\n", "?#\n##\n", "##\n##\n"}) {
        Click(0, 0, 2);
        EXPECT_EQ(mb, GAME_TURNING);
        EXPECT_EQ(FieldToText(), seen);
    }
    Click(1, 1, 1);
    Click(1, 1, 2);
    EXPECT_EQ(mb, GAME_IDLE) << "a number takes no mark";
    EXPECT_EQ(FieldToText(), "##\n#1\n");
}
