#pragma once

// What the spatial block and the spatial filter share: the adaptive filter of a row.
namespace halvor::vx::spatial {

/// One row of a frame and its neighbours; at the frame's edge the row itself stands for the one that is
/// missing.
template <typename Pixel>
struct RowWindow
{
    const Pixel* above;
    const Pixel* here;
    const Pixel* below;
};

/// Filters a row of cols pixels; out must not overlap the frame.
///
/// The detail d of a pixel against its 3 x 3 mean is kept by k / 32, where k = 13 + activity / gain, at most
/// 32: a higher gain smooths more, and 0 keeps everything.
void filterRow(const RowWindow<int>& window, int* out, int cols, int gain);
void filterRow(const RowWindow<short>& window, short* out, int cols, int gain);

/// The same, but marked pixels pass unchanged and the others are bare 16-bit patterns.
void filterMarkedRow(const RowWindow<int>& window, int* out, int cols, int gain);

}  // namespace halvor::vx::spatial
