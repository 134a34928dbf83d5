// SPDX-License-Identifier: Apache-2.0
#pragma once

// VX_KERNEL stands before a small, file-local function that works on one row. The compiler builds it for
// several instruction sets and the loader picks the one that fits the processor. Contraction to fused
// multiply-add is off for the whole project, so every clone gives the same bits; where the vectoriser makes
// some all the same, rounded() of core/base/Rounded.h keeps it from that.
//
// Sanitizers run before the loader's choice is safe to make, and Clang 14 gives the chooser external linkage:
// there the plain function stands alone.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && defined(__OPTIMIZE__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define VX_KERNEL __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define VX_KERNEL
#endif

// VX_KERNEL_BODY stands before a template whose instances are kernels: multiversioning does not reach into
// templates, so each kernel is a plain function that wraps an instance, which is built into every clone.
#define VX_KERNEL_BODY [[gnu::always_inline]] inline

// Promises the compiler that a pointer's target is reached through no other pointer of the function.
#define VX_RESTRICT __restrict__
