// The board: six textured faces for every cell, drawn turned and placed as the game stands, and the
// cell under the mouse.
#pragma once

#include <array>
#include <cstdint>

#include "game/minefield.h"
#include "platform/glfew.h"

/// Faces of a cube at rest, in the order in which they are drawn.
enum FACE : uint8_t {
    FACE_FRONT,   // towards the camera: covered
    FACE_BACK,    // mine
    FACE_TOP,     // empty
    FACE_BOTTOM,  // question mark
    FACE_LEFT,    // number
    FACE_RIGHT,   // flag
    FACE_COUNT,
};

/// A face's 6 vertices of 5 floats: x, y, z and u, v. Edge 2, centred on the origin.
using FACE_VERTICES = std::array<float, 30>;
extern const FACE_VERTICES vertices_front, vertices_back, vertices_top, vertices_bottom,
    vertices_left, vertices_right;

extern uint32_t texBase, texMine, texEmpty, texQuestion, texFlag, texOne, texTwo, texThree, texFour,
    texFive, texSix, texSeven, texEight;

/// The faces, [x][y][face], and a holder of the camera and the board's turn in the end views.
extern std::array<std::array<std::array<GLFEW_VERTEX, FACE_COUNT>, MaxDim>, MaxDim> OGLvertex;
extern GLFEW_VERTEX World;

/// Loads the tiles and makes the faces of all cells in play, telling on the console how far it is.
/// A cell without mines around it gets a random number for its left face.
void CreateBoard();

/// Lets go of what CreateBoard made, but for the textures.
void DestroyBoard();

/// Share of one side of the window that the board is drawn into, so that its cells come to lie on
/// the grid by which the mouse picks them: that grid has whole cells only. `window` is the side's
/// length in window units, `longest` the longer side of the field in cells.
float GridShare(int window, int longest);

/// Cell under the mouse, or NoCell twice: a grid of equal cells, centred, of which the longer
/// side of the field fills the window. A point on a grid line belongs to no cell.
void Get3DMouseXY(uint8_t *x, uint8_t *y);
