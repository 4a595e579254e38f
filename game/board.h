// The board: six textured faces for every cell, drawn according to the state of the game, and
// picking of the cell under the mouse.
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

/// The faces, [x][y][face], and a record that holds the camera and the board's rotation in the end
/// views.
extern std::array<std::array<std::array<GLFEW_VERTEX, FACE_COUNT>, MaxDim>, MaxDim> OGLvertex;
extern GLFEW_VERTEX World;

/// Loads the tiles and creates the faces of all cells in play, printing its progress on the
/// console. A cell without mines around it gets a random number as its left face.
void CreateBoard();

/// Releases what CreateBoard made, except the textures.
void DestroyBoard();

/// Share of one side of the window that the board is drawn into. The picking grid has cells of
/// whole window units only, and this share makes the drawn cells coincide with it. `window` is the
/// side's length in window units, `longest` the longer side of the field in cells.
float GridShare(int window, int longest);

/// Cell under the mouse, or NoCell for both. The picking grid has equal cells, is centred, and the
/// longer side of the field fills the window. A point on a grid line belongs to no cell.
void Get3DMouseXY(uint8_t *x, uint8_t *y);
