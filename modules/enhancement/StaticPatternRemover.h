// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"

namespace halvor::vx {

namespace pattern {
class PatternRemoval;
}

/// Static pattern removal for a stream of 16-bit images: learns the stripes and pixel offsets that stay with
/// the detector, one correction per column and one per pixel, and subtracts them. The arithmetic is that of
/// the hardware block SprCmod, but a row's column corrections act at once: the result is that of a scan from
/// left to right, for any number of threads.
///
/// A copy goes on from what has been learned, on its own.
class VXKIT_API StaticPatternRemover
{
public:
    /// The values are those of the setters; one out of range leaves 0.
    StaticPatternRemover(int threshold, int lineLimit, int frameLimit);
    /// The copy has learned the same, and goes on by itself.
    StaticPatternRemover(const StaticPatternRemover& other);
    StaticPatternRemover& operator=(const StaticPatternRemover& other);
    ~StaticPatternRemover();

    /// Corrects the next frame of the stream and learns from it; a frame of another size than the last
    /// forgets what has been learned. Samples of 32767 (over-range) pass unchanged; results beyond 16 bits
    /// wrap.
    /// @param dst  created at the size of src; may be src
    void process(const cv::Mat_<short>& src, cv::Mat_<short>& dst);

    /// The setters refuse a value out of range, in which case they return false and change nothing.
    /// @param value  0 to 100: deviation from the neighbours, in sample steps, above which a pixel is scene
    bool setThreshold(int value);
    bool setLineLimit(int value);   ///< 0 to 31: bounds the column correction
    bool setFrameLimit(int value);  ///< 0 to 31: bounds the pixel correction

private:
    void validateInput(const cv::Size_<int>& size);
    void init(const cv::Size_<int>& size);

    std::vector<int> mLine_;
    std::vector<int> mFrame_;
    cv::Size frameSize_;
    int threshold_ = 0;
    int th07_ = 0;
    int lineLimit_ = 0;
    int frameLimit_ = 0;
    std::unique_ptr<pattern::PatternRemoval> removal_;
};

}  // namespace halvor::vx
