#include "extra/projection.h"

#include <cmath>
#include <numbers>

EXTRA_3DWORLD Extra_3DWorld;

void Extra_3Dinit(int16_t centreX, int16_t centreY, int16_t distance, int16_t scale, int16_t angleA,
                  int16_t angleB, int16_t angleC)
{
    Extra_3DWorld = {centreX, centreY, distance, scale, angleA, angleB, angleC};
}

EXTRA_3DWORLD Extra_Get3DWorld()
{
    return Extra_3DWorld;
}

void Extra_Set3DWorld(const EXTRA_3DWORLD &record)
{
    Extra_3DWorld = record;
}

// Truncates toward zero and keeps the low bits; a value that no integer can hold (division by zero)
// gives 0.
static int32_t Truncate(double value)
{
    constexpr double limit = 2147483648.0;
    return std::fabs(value) < limit ? static_cast<int32_t>(value) : 0;
}

EXTRA_POINT Extra_2D(double x, double y, double z)
{
    const EXTRA_3DWORLD &w = Extra_3DWorld;
    constexpr double radian = std::numbers::pi / 180;
    const double a = w.AngleA * radian, b = w.AngleB * radian, c = w.AngleC * radian;

    const double x1 = x * std::cos(c) + y * std::sin(c);
    const double y1 = y * std::cos(c) - x * std::sin(c);
    const double z1 = z * std::cos(b) + x1 * std::sin(b);
    const float x2 = static_cast<float>(x1 * std::cos(b) - z * std::sin(b));
    const float d = static_cast<float>(z1 * std::cos(a) - y1 * std::sin(a));
    const float y2 = static_cast<float>(z1 * std::sin(a) + y1 * std::cos(a));

    const double q = static_cast<double>(d) + w.Distance;
    const int32_t sx = Truncate(w.CentreX + static_cast<double>(x2) * w.Scale / q);
    const int32_t sy = Truncate(w.CentreY + static_cast<double>(y2) * w.Scale / q);
    return {static_cast<int16_t>(sx), static_cast<int16_t>(sy), d + w.Scale > 0};
}

uint8_t Extra_3Dvisible(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, EXTRA_POINT D)
{
    if (!A.Visible || !B.Visible || !C.Visible || !D.Visible)
        return 0;
    const auto slope = [&A](EXTRA_POINT P) {
        const float dx = static_cast<float>(P.X - A.X);
        return static_cast<float>(P.Y - A.Y) / (dx == 0 ? 1 : dx);
    };
    return (slope(C) > slope(B)) != ((A.X <= B.X) == (A.X > C.X));
}

static float EdgeValue(EXTRA_POINT P, EXTRA_POINT Q, float mx, float my)
{
    return (my - P.Y) * static_cast<float>(Q.X - P.X) - (mx - P.X) * static_cast<float>(Q.Y - P.Y);
}

float Extra_3DclickAB(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT, float mx, float my)
{
    return EdgeValue(A, B, mx, my);
}

float Extra_3DclickBC(EXTRA_POINT, EXTRA_POINT B, EXTRA_POINT C, float mx, float my)
{
    return EdgeValue(B, C, mx, my);
}

float Extra_3DclickCA(EXTRA_POINT A, EXTRA_POINT, EXTRA_POINT C, float mx, float my)
{
    return EdgeValue(C, A, mx, my);
}

static bool InTriangle(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, float mx, float my)
{
    const float ab = Extra_3DclickAB(A, B, C, mx, my);
    const float bc = Extra_3DclickBC(A, B, C, mx, my);
    const float ca = Extra_3DclickCA(A, B, C, mx, my);
    return ab * bc > 0 && bc * ca > 0;
}

uint8_t Extra_3Dclick(EXTRA_POINT A, EXTRA_POINT B, EXTRA_POINT C, EXTRA_POINT D, float mx,
                      float my)
{
    return InTriangle(A, B, D, mx, my) || InTriangle(B, C, D, mx, my);
}

void Extra_xy3d(int32_t *x, int32_t *y, int32_t z)
{
    *x = Truncate(*x - z * std::cos(45.0));
    *y = Truncate(*y - z * std::sin(45.0));
}
