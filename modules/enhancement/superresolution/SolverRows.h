#pragma once

namespace halvor::vx {

// Row kernels of conjugate gradients. Rows are whole blocks of SplitLayout::block floats; sums are in doubles
// over that many lanes, of products in single precision.

/// @return the sum of a * b
double dotRow(const float* a, const float* b, int blocks);

/// r = b - r
/// @return the sum of r * r
double residualRow(const float* b, float* r, int blocks);

/// out = beta * s + r
void directionRow(float beta, const float* s, const float* r, float* out, int blocks);

/// u += alpha * s and r -= alpha * q
/// @return the sum of r * r
double stepRow(float alpha, const float* s, const float* q, float* u, float* r, int blocks);

/// Puts the halves of a split row together.
void joinRow(const float* split, int half, float* plain, int width);

/// split += plain, each at its place.
void addSplitRow(const float* plain, int width, float* split, int half);

/// out = the columns of a row whose even and odd columns begin at first and second, each times scale plus
/// offset.
void denormaliseRow(const float* first, const float* second, float scale, float offset, float* out,
                    int width);

}  // namespace halvor::vx
