// SPDX-License-Identifier: Apache-2.0
#pragma once

// VXKIT_API marks what the shared library shows to its users; all other symbols are hidden. VXKIT_HIDDEN
// takes a private member template of an exported class out again: whether an instance of it remains is up to
// the compiler's inlining, and the exported names must not depend on that.
#if defined(_WIN32)
#if defined(VXKIT_BUILDING)
#define VXKIT_API __declspec(dllexport)
#else
#define VXKIT_API __declspec(dllimport)
#endif
#define VXKIT_HIDDEN
#else
#define VXKIT_API __attribute__((visibility("default")))
#define VXKIT_HIDDEN __attribute__((visibility("hidden")))
#endif
