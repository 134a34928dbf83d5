#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Runs a whole session from C: count frames, one behind the other, into an image of twice the size.
/// @return 0 if every call succeeded, else the lowest code
int addAndFetchInC(const float* frames, int width, int height, int count, float* image);

#ifdef __cplusplus
}
#endif
