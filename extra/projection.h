// Software projection of single points onto the screen, and tests on projected points: is a face
// turned to the viewer, is the mouse inside it. All threads share one camera.
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

/// Projects a point; coordinates are truncated toward zero. Depth plus Distance 0 reads as (0, 0),
/// and so does a coordinate that 32 bits cannot hold. Visible compares the depth with Scale, not
/// with Distance, on purpose.
EXTRA_POINT Extra_2D(double x, double y, double z);

/// 1 when all four points are in front and A, B, C run round the face as seen by the viewer.
uint8_t Extra_3Dvisible(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, EXTRA_POINT D);

/// The sign says on which side of the edge A-B, B-C or C-A the mouse lies; 0 is on the edge.
float Extra_3DclickAB(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my);
float Extra_3DclickBC(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my);
float Extra_3DclickCA(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my);

/// 1 when the mouse lies strictly inside triangle A B D or B C D, in either winding. The diagonal
/// B-D belongs to neither. The visible flags are ignored.
uint8_t Extra_3Dclick(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, EXTRA_POINT D, float mx,
                      float my);

/// Moves (x, y) by depth z along a fixed oblique direction: cosine and sine of 45 radians, on
/// purpose not degrees.
void Extra_xy3d(int32_t *x, int32_t *y, int32_t z);
