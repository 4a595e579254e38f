#include "extra/transform.h"

#include <cmath>
#include <numbers>
#include <utility>

static constexpr EXTRA_MATRIX identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

float Extra_Deg2Rad(float deg)
{
    return static_cast<float>(deg * std::numbers::pi / 180);
}

static std::pair<float, float> CosSin(float deg)
{
    const double angle = Extra_Deg2Rad(deg);
    return {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
}

void Extra_Identity(EXTRA_MATRIX &m)
{
    m = identity;
}

void Extra_CopyMatrix(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src)
{
    dst = src;
}

void Extra_Multiply(EXTRA_MATRIX &dst, const EXTRA_MATRIX &a, const EXTRA_MATRIX &b)
{
    EXTRA_MATRIX product;
    for (size_t r = 0; r < 16; r += 4)
        for (size_t c = 0; c < 4; c++)
            product[r + c] =
                a[r] * b[c] + a[r + 1] * b[4 + c] + a[r + 2] * b[8 + c] + a[r + 3] * b[12 + c];
    dst = product;
}

void Extra_RotateX(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float deg)
{
    const auto [c, s] = CosSin(deg);
    Extra_Multiply(dst, {1, 0, 0, 0, 0, c, -s, 0, 0, s, c, 0, 0, 0, 0, 1}, src);
}

void Extra_RotateY(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float deg)
{
    const auto [c, s] = CosSin(deg);
    Extra_Multiply(dst, {c, 0, s, 0, 0, 1, 0, 0, -s, 0, c, 0, 0, 0, 0, 1}, src);
}

void Extra_RotateZ(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float deg)
{
    const auto [c, s] = CosSin(deg);
    Extra_Multiply(dst, {c, -s, 0, 0, s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, src);
}

// dst = M src, where M is the identity with one element replaced.
static void MultiplyElement(EXTRA_MATRIX &dst, size_t row, size_t column, float value,
                            const EXTRA_MATRIX &src)
{
    EXTRA_MATRIX m = identity;
    m[4 * row + column] = value;
    Extra_Multiply(dst, m, src);
}

void Extra_TranslateX(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float t)
{
    MultiplyElement(dst, 0, 3, t, src);
}

void Extra_TranslateY(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float t)
{
    MultiplyElement(dst, 1, 3, t, src);
}

void Extra_TranslateZ(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float t)
{
    MultiplyElement(dst, 2, 3, t, src);
}

void Extra_ScaleX(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float k)
{
    MultiplyElement(dst, 0, 0, k, src);
}

void Extra_ScaleY(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float k)
{
    MultiplyElement(dst, 1, 1, k, src);
}

void Extra_ScaleZ(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float k)
{
    MultiplyElement(dst, 2, 2, k, src);
}

EXTRA_VECTOR &Extra_Vector(EXTRA_VECTOR &v, float x, float y, float z, float w)
{
    return v = {x, y, z, w};
}

EXTRA_VECTOR &Extra_SubVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &a, const EXTRA_VECTOR &b)
{
    for (size_t i = 0; i < 4; i++)
        dst[i] = a[i] - b[i];
    return dst;
}

float Extra_MulVector(const EXTRA_VECTOR &a, const EXTRA_VECTOR &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

float Extra_LenVector(const EXTRA_VECTOR &v)
{
    return static_cast<float>(std::sqrt(static_cast<double>(Extra_MulVector(v, v))));
}

void Extra_ScaleVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &src, float k)
{
    for (size_t i = 0; i < 4; i++)
        dst[i] = src[i] * k;
}

void Extra_NormalVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &src)
{
    Extra_ScaleVector(dst, src, 1 / Extra_LenVector(src));
}

void Extra_CrossVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &a, const EXTRA_VECTOR &b)
{
    dst = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0], 1};
}

void Extra_LookAt(EXTRA_MATRIX &dst, EXTRA_VECTOR &eye, const EXTRA_VECTOR &centre,
                  const EXTRA_VECTOR &up)
{
    EXTRA_VECTOR f, s, u;
    Extra_SubVector(f, centre, eye);
    Extra_NormalVector(f, f);
    Extra_CrossVector(s, up, f);
    Extra_NormalVector(s, s);
    Extra_CrossVector(u, f, s);
    for (size_t i = 0; i < 3; i++) {
        f[i] = -f[i];
        eye[i] = -eye[i];
    }
    // clang-format off
    dst = {s[0], s[1], s[2], Extra_MulVector(s, eye),
           u[0], u[1], u[2], Extra_MulVector(u, eye),
           f[0], f[1], f[2], Extra_MulVector(f, eye),
           0, 0, 0, 1};
    // clang-format on
}

EXTRA_MATRIX &Extra_Ortho(EXTRA_MATRIX &dst, float left, float right, float bottom, float top,
                          float near, float far)
{
    // clang-format off
    dst = {2 / (right - left), 0, 0, -(right + left) / (right - left),
           0, 2 / (top - bottom), 0, -(top + bottom) / (top - bottom),
           0, 0, -2 / (far - near), -(far + near) / (far - near),
           0, 0, 0, 1};
    // clang-format on
    return dst;
}

EXTRA_MATRIX &Extra_Perspective(EXTRA_MATRIX &dst, float fovDegrees, float aspect, float near,
                                float far)
{
    const double half = Extra_Deg2Rad(fovDegrees) / 2;
    const float f = static_cast<float>(std::cos(half) / std::sin(half));
    // clang-format off
    dst = {f / aspect, 0, 0, 0,
           0, f, 0, 0,
           0, 0, (near + far) / (near - far), 2 * near * far / (near - far),
           0, 0, -1, 0};
    // clang-format on
    return dst;
}
