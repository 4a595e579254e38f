// Software projection of single points onto the screen, and tests on projected points: whether a
// face is turned to the viewer, whether the mouse is inside it. All threads share one camera.
#pragma once

#include <cstdint>

struct EXTRA_3DWORLD {
    int16_t CentreX, CentreY;        // projection centre on the screen, pixels
    int16_t Distance;                // added to the depth before the division
    int16_t Scale;                   // focal length; also used by the visibility test
    int16_t AngleA, AngleB, AngleC;  // degrees: about x (applied last), y, z (applied first)
};

struct EXTRA_POINT {
    int16_t X, Y;     // screen pixels
    uint8_t Visible;  // not 0: in front of the camera
};

/// The camera.
extern EXTRA_3DWORLD Extra_3DWorld;

/// Sets, reads and replaces the camera.
void Extra_3Dinit(int16_t centreX, int16_t centreY, int16_t distance, int16_t scale, int16_t angleA,
                  int16_t angleB, int16_t angleC);
EXTRA_3DWORLD Extra_Get3DWorld();
void Extra_Set3DWorld(const EXTRA_3DWORLD &record);

/// Projects a point; coordinates are truncated toward zero, then to 16 bits. If depth + Distance is
/// 0 the result is (0, 0); a coordinate that 32 bits cannot hold is 0. Visible compares the depth
/// with Scale, not with Distance, on purpose.
EXTRA_POINT Extra_2D(double x, double y, double z);

/// 1 if all four points are in front of the camera and A, B, C run clockwise on the screen (y
/// down). B or C straight above or below A counts as one column to its right, on purpose.
uint8_t Extra_3Dvisible(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, EXTRA_POINT D);

/// The sign says on which side of the edge A-B, B-C or C-A the mouse lies; 0 is on the edge.
float Extra_3DclickAB(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my);
float Extra_3DclickBC(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my);
float Extra_3DclickCA(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my);

/// 1 if the mouse lies strictly inside triangle A B D or B C D, of either winding. Points on the
/// diagonal B-D are in neither. The visible flags are ignored.
uint8_t Extra_3Dclick(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, EXTRA_POINT D, float mx,
                      float my);

/// Moves (x, y) by depth z along a fixed oblique direction: the cosine and sine of 45 radians, not
/// degrees, on purpose.
void Extra_xy3d(int32_t *x, int32_t *y, int32_t z);
