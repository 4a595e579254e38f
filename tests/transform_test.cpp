#include "extra/transform.h"

#include <gtest/gtest.h>

#include "extra/projection.h"

static void ExpectNear(const EXTRA_MATRIX &m, const EXTRA_MATRIX &expected, const char *what)
{
    for (size_t i = 0; i < 16; i++)
        EXPECT_NEAR(m[i], expected[i], 1e-6) << what << ", element " << i;
}

// The image of a point under a matrix.
static EXTRA_VECTOR Apply(const EXTRA_MATRIX &m, const EXTRA_VECTOR &v)
{
    EXTRA_VECTOR result;
    for (size_t r = 0; r < 4; r++)
        result[r] =
            m[4 * r] * v[0] + m[4 * r + 1] * v[1] + m[4 * r + 2] * v[2] + m[4 * r + 3] * v[3];
    return result;
}

TEST(Transform, StepsActAfterWhatWasThere)
{
    const EXTRA_VECTOR point = {1, 2, 3, 1};
    const struct {
        const char *what;
        void (*step)(EXTRA_MATRIX &, const EXTRA_MATRIX &, float);
        float by;
        EXTRA_VECTOR where;
    } rows[] = {
        {"turn about x", Extra_RotateX, 90, {1, -3, 2, 1}},
        {"turn about y", Extra_RotateY, 90, {3, 2, -1, 1}},
        {"turn about z", Extra_RotateZ, 90, {-2, 1, 3, 1}},
        {"move in x", Extra_TranslateX, 5, {6, 2, 3, 1}},
        {"move in y", Extra_TranslateY, 5, {1, 7, 3, 1}},
        {"move in z", Extra_TranslateZ, 5, {1, 2, 8, 1}},
        {"stretch in x", Extra_ScaleX, 2, {2, 2, 3, 1}},
        {"stretch in y", Extra_ScaleY, 2, {1, 4, 3, 1}},
        {"stretch in z", Extra_ScaleZ, 2, {1, 2, 6, 1}},
    };
    EXTRA_MATRIX moved;
    Extra_Identity(moved);
    Extra_TranslateX(moved, moved, 10);
    for (const auto &r : rows) {
        EXTRA_MATRIX m;
        Extra_Identity(m);
        r.step(m, m, r.by);
        const EXTRA_VECTOR where = Apply(m, point);
        for (size_t i = 0; i < 4; i++)
            EXPECT_NEAR(where[i], r.where[i], 1e-6) << r.what;
        EXTRA_MATRIX both, product, left = m, right = moved;
        r.step(both, moved, r.by);
        Extra_Multiply(product, m, moved);
        Extra_Multiply(left, left, moved);
        Extra_Multiply(right, m, right);
        for (const EXTRA_MATRIX &same : {both, left, right})
            ExpectNear(same, product, r.what);
    }
}

TEST(Transform, ViewIsScaledAndEyeNegated)
{
    EXTRA_VECTOR eye = {0, 0, -10, 0}, centre = {0, 0, 0, 0}, up = {0, 1, 0, 0};
    EXTRA_MATRIX view;
    Extra_LookAt(view, eye, centre, up);
    constexpr float s = 0.70710678f;
    ExpectNear(view, {s, 0, 0, 0, 0, s, 0, 0, 0, 0, -1, -10, 0, 0, 0, 1}, "view");
    EXPECT_EQ(eye, (EXTRA_VECTOR{0, 0, 10, 0}));
    // The expected numbers here and below come from the formulas in Python.
    eye = {1, 2, -3, 0}, centre = {4, -1, 2, 0}, up = {0.5f, 1, 0.25f, 0};
    Extra_LookAt(view, eye, centre, up);
    ExpectNear(view,
               {0.5768053f, -0.1755495f, -0.4514129f, -1.5799451f, 0.3403747f, 0.6463294f,
                0.1835728f, -1.0823149f, -0.4574957f, 0.4574957f, -0.7624929f, -2.7449743f, 0, 0, 0,
                1},
               "aslant");
}

TEST(Transform, Projections)
{
    EXTRA_MATRIX m;
    constexpr float f = 2.4142134f;
    ExpectNear(Extra_Perspective(m, 45, 1, 0.1f, 256),
               {f, 0, 0, 0, 0, f, 0, 0, 0, 0, -1.0007817f, -0.2000782f, 0, 0, -1, 0},
               "perspective");
    ExpectNear(
        Extra_Perspective(m, 60, 1.5f, 2, 9),
        {1.1547005f, 0, 0, 0, 0, 1.7320508f, 0, 0, 0, 0, -1.5714286f, -5.1428571f, 0, 0, -1, 0},
        "a wide window");
    ExpectNear(Extra_Ortho(m, -1, 1, -1, 1, -1, 1),
               {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1}, "ortho");
    ExpectNear(Extra_Ortho(m, 0, 4, 0, 2, 1, 3),
               {0.5f, 0, 0, -1, 0, 1, 0, -1, 0, 0, -1, -2, 0, 0, 0, 1}, "ortho, off centre");
}

TEST(Projection, PointsTurnAndShrinkWithDepth)
{
    Extra_3Dinit(100, 80, 200, 100, 0, 0, 0);
    const struct {
        const char *what;
        int16_t a, b, c;
        double z;
        EXTRA_POINT seen;  // of (20, 10)
    } rows[] = {
        {"ahead", 0, 0, 0, 0, {110, 85, 1}},
        {"farther", 0, 0, 0, 200, {105, 82, 1}},
        {"nearer by the whole scale", 0, 0, 0, -100, {120, 90, 0}},
        {"turned about z", 0, 0, 90, 0, {105, 70, 1}},
        {"turned about y", 0, 90, 0, 0, {100, 84, 1}},
        {"turned about x", 90, 0, 0, 0, {110, 80, 1}},
        {"turned about all", 25, -35, 110, 80, {117, 82, 1}},
        {"no depth left", 0, 0, 0, -200, {0, 0, 0}},
    };
    for (const auto &r : rows) {
        EXTRA_3DWORLD world = Extra_Get3DWorld();
        world.AngleA = r.a, world.AngleB = r.b, world.AngleC = r.c;
        Extra_Set3DWorld(world);
        const EXTRA_POINT p = Extra_2D(20, 10, r.z);
        EXPECT_TRUE(p.X == r.seen.X && p.Y == r.seen.Y && p.Visible == r.seen.Visible) << r.what;
    }
}

TEST(Projection, FacesAreSeenAndClickedInside)
{
    const EXTRA_POINT a = {0, 0, 1}, b = {10, 0, 1}, c = {10, 10, 1}, d = {0, 10, 1};
    EXPECT_EQ(Extra_3Dvisible(a, b, c, d), 1);
    EXPECT_EQ(Extra_3Dvisible(a, d, c, b), 0);
    for (size_t i = 0; i < 4; i++) {
        std::array corners = {a, b, c, d};
        corners[i].Visible = 0;
        EXPECT_EQ(Extra_3Dvisible(corners[0], corners[1], corners[2], corners[3]), 0) << i;
    }
    // Both triangles, the diagonal between them, an edge, outside.
    for (const auto &[x, y, inside] :
         {std::array{2, 3, 1}, {8, 7, 1}, {5, 5, 0}, {0, 5, 0}, {11, 5, 0}}) {
        const auto fx = static_cast<float>(x), fy = static_cast<float>(y);
        EXPECT_EQ(Extra_3Dclick(a, b, c, d, fx, fy), inside) << x;
        EXPECT_EQ(Extra_3Dclick(d, c, b, a, fx, fy), inside) << x << ", other winding";
    }
    int32_t x = 100, y = 100;
    Extra_xy3d(&x, &y, 10);
    EXPECT_EQ(std::pair(x, y), std::pair(94, 91));
}
