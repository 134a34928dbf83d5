// SPDX-License-Identifier: Apache-2.0
#pragma once

#ifdef __has_builtin
#if __has_builtin(__builtin_assoc_barrier)
#define VX_HAS_ASSOC_BARRIER
#endif
#endif

namespace halvor::vx {

/// A product as it is, rounded: the compiler must not merge it with the sum that takes it.
///
/// GCC's vectoriser turns sums and differences of products of interleaved values, as complex multiplication
/// has them, into fused multiply-adds although contraction is off. scripts/check-fma tells where.
[[gnu::always_inline]] inline float rounded(float product)
{
#ifdef VX_HAS_ASSOC_BARRIER
    return __builtin_assoc_barrier(product);
#else
    return product;
#endif
}

}  // namespace halvor::vx

#undef VX_HAS_ASSOC_BARRIER
