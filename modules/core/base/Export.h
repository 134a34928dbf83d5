#pragma once

// Marks what the shared library shows to its users; all other symbols are hidden.
#if defined(_WIN32)
#if defined(VXKIT_BUILDING)
#define VXKIT_API __declspec(dllexport)
#else
#define VXKIT_API __declspec(dllimport)
#endif
#else
#define VXKIT_API __attribute__((visibility("default")))
#endif
