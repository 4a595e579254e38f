// 4x4 matrices and 4-component vectors in single precision. A matrix is 16 floats, row-major, and
// applies to column vectors, so a translation is its last column. Angles are in degrees; sines and
// cosines are computed in double precision. A matrix `dst` may also be an input.
#pragma once

#include <array>

using EXTRA_MATRIX = std::array<float, 16>;  // row r, column c is [4 r + c]
using EXTRA_VECTOR = std::array<float, 4>;   // x y z w, all four used unless stated

/// Radians of `deg` degrees.
float Extra_Deg2Rad(float deg);

void Extra_Identity(EXTRA_MATRIX &m);
void Extra_CopyMatrix(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src);

/// dst = a b
void Extra_Multiply(EXTRA_MATRIX &dst, const EXTRA_MATRIX &a, const EXTRA_MATRIX &b);

/// dst = R src, T src or S src: the new transform is applied after the existing ones.
void Extra_RotateX(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float deg);
void Extra_RotateY(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float deg);
void Extra_RotateZ(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float deg);
void Extra_TranslateX(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float t);
void Extra_TranslateY(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float t);
void Extra_TranslateZ(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float t);
void Extra_ScaleX(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float k);
void Extra_ScaleY(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float k);
void Extra_ScaleZ(EXTRA_MATRIX &dst, const EXTRA_MATRIX &src, float k);

/// Sets the components; returns `v`.
EXTRA_VECTOR &Extra_Vector(EXTRA_VECTOR &v, float x, float y, float z, float w);
/// dst = a - b; returns `dst`.
EXTRA_VECTOR &Extra_SubVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &a, const EXTRA_VECTOR &b);
/// Dot product.
float Extra_MulVector(const EXTRA_VECTOR &a, const EXTRA_VECTOR &b);
float Extra_LenVector(const EXTRA_VECTOR &v);
void Extra_ScaleVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &src, float k);
/// Normalises over all four components; a zero vector gives infinities or NaNs.
void Extra_NormalVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &src);
/// dst.xyz = a.xyz x b.xyz, dst.w = 1
void Extra_CrossVector(EXTRA_VECTOR &dst, const EXTRA_VECTOR &a, const EXTRA_VECTOR &b);

/// View matrix of a camera at `eye` looking at `centre`. Negates x, y and z of the caller's `eye`.
/// On purpose, the side vector is up x forward normalised with its w of 1, hence shorter than one:
/// this scales the view down, and the board's view is laid out for it.
void Extra_LookAt(EXTRA_MATRIX &dst, EXTRA_VECTOR &eye, const EXTRA_VECTOR &centre,
                  const EXTRA_VECTOR &up);

/// Parallel and perspective projections to OpenGL's clip space; return `dst`. Near and far are
/// distances; `fovDegrees` is the vertical angle, `aspect` is width / height.
EXTRA_MATRIX &Extra_Ortho(EXTRA_MATRIX &dst, float left, float right, float bottom, float top,
                          float near, float far);
EXTRA_MATRIX &Extra_Perspective(EXTRA_MATRIX &dst, float fovDegrees, float aspect, float near,
                                float far);
