// Fields as texts for the game's tests: one row per line, one character per cell.
#pragma once

#include <cstring>
#include <string>

#include "extra/heap.h"
#include "game/minefield.h"
#include "game/moves.h"

// Lays out a field: '*' mine, 'F' flagged, 'X' flagged mine, '?' question-marked, '.' none of
// these. The counts follow from the mines; the game waits for its first click.
inline void FieldFromText(const char *text)
{
    xDim = static_cast<uint8_t>(std::strchr(text, '\n') - text);
    yDim = static_cast<uint8_t>(std::strlen(text) / (xDim + 1u));
    nMines = 0;
    MineField = {};
    const auto at = [text](int x, int y) {
        return x < 0 || x >= xDim || y < 0 || y >= yDim ? ' ' : text[y * (xDim + 1) + x];
    };
    const auto isMine = [](char c) { return c == '*' || c == 'X'; };
    for (int y = 0; y < yDim; y++)
        for (int x = 0; x < xDim; x++) {
            MineCell &cell = MineField[static_cast<size_t>(x)][static_cast<size_t>(y)];
            const char c = at(x, y);
            cell.state = c == 'F' || c == 'X' ? STATE_FLAG
                         : c == '?'           ? STATE_QUESTION
                                              : STATE_COVERED;
            for (int i = 0; i < 9; i++)
                cell.count = static_cast<uint8_t>(
                    cell.count + (i != 4 && isMine(at(x + i % 3 - 1, y + i / 3 - 1))));
            cell.content = isMine(c)         ? CONTENT_MINE
                           : cell.count != 0 ? CONTENT_NUMBER
                                             : CONTENT_EMPTY;
            nMines = static_cast<uint8_t>(nMines + isMine(c));
        }
    mb = GAME_IDLE;
    step = 1;
    zDepth = 18;
    Extra_DestroyHeap(0);
    Extra_CreateHeap(0, xDim * yDim * 3);
    Extra_SetHeap(0, 0);
}

// The mines: '*' mine, '.' none.
inline std::string MinesToText()
{
    std::string text;
    for (size_t i = 0; i < size_t{yDim} * (xDim + 1u); i++) {
        const size_t x = i % (xDim + 1u), y = i / (xDim + 1u);
        text += x == xDim ? '\n' : MineField[x][y].content == CONTENT_MINE ? '*' : '.';
    }
    return text;
}

// What the player sees: '#' covered, '*' mine, 'F' flag, '?' question mark, digit: number, '.'
// empty.
inline std::string FieldToText()
{
    std::string text;
    for (size_t y = 0; y < yDim; y++) {
        for (size_t x = 0; x < xDim; x++) {
            const MineCell &cell = MineField[x][y];
            text += cell.state == STATE_NUMBER ? static_cast<char>('0' + cell.count)
                                               : ".#F?*"[cell.state];
        }
        text += '\n';
    }
    return text;
}

// One move: 1 uncovers, 2 cycles the marks.
inline void Click(int x, int y, uint8_t button)
{
    mx = static_cast<uint8_t>(x);
    my = static_cast<uint8_t>(y);
    mb = GAME_TURNING;
    DoSomething(button);
}
