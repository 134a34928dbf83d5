// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

// Row kernels of conjugate gradients. A row has whole blocks of LaneOrder::lanes floats; sums are in doubles
// over that many lanes, of products in single precision.

/// @return the sum of a * b
double dotRow(const float* a, const float* b, int floats);

/// r = b - r
/// @return the sum of r * r
double residualRow(const float* b, float* r, int floats);

/// out = beta * s + r
void xpayRow(float beta, const float* s, const float* r, float* out, int floats);

/// s = beta * s + r, after u += alpha * s
void axpyXpayRow(float alpha, float beta, float* s, const float* r, float* u, int floats);

/// out = u + alpha * s; out may be u.
void axpyRow(float alpha, const float* s, const float* u, float* out, int floats);

/// row += other
void addRow(const float* other, float* row, int floats);

/// r = s - alpha * q
/// @return the sum of r * r
double axpyDotRow(float alpha, const float* q, const float* s, float* r, int floats);

/// r -= alpha * q
/// @return the sum of r * r
double axpyDotRow(float alpha, const float* q, float* r, int floats);

/// out = columns * scale + offset, any number of them.
void denormaliseRow(const float* columns, float scale, float offset, float* out, int n);

}  // namespace halvor::vx
