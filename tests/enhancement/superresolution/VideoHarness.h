// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <opencv2/core.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "doubles/SameBits.h"
#include "enhancement/superresolution/SrIntRegistration.h"
#include "enhancement/superresolution/TestBursts.h"

namespace vxtest {

/// Some thousand counts over the range of a frame in degrees.
inline cv::Mat_<short> countsOf(const cv::Mat_<float>& frame)
{
    cv::Mat_<short> counts;
    frame.convertTo(counts, CV_16S, 150.0, -1000.0);
    return counts;
}

inline std::vector<cv::Mat_<short>> countsOf(const std::vector<cv::Mat_<float>>& frames)
{
    std::vector<cv::Mat_<short>> counts;
    for (const cv::Mat_<float>& frame : frames)
        counts.push_back(countsOf(frame));
    return counts;
}

/// Frames of a scene, the last of which is the reference.
///
/// @param shifts  none: five frames with the motion of a hand
inline vxsupport::Burst videoBurst(const cv::Size& size, vxsupport::SceneKind kind,
                                   const std::vector<PointF>& shifts = {})
{
    vxsupport::BurstSettings settings;
    settings.scene.frame = size;
    settings.scene.kind = kind;
    settings.reference = 4;
    settings.shifts = shifts;
    return vxsupport::simulateBurst(settings);
}

/// A registration of the fixed-point engine with the window that an engine keeps for it.
template <typename Registration = halvor::vx::SrIntRegistration>
class VideoHarness
{
public:
    explicit VideoHarness(const cv::Size& size, unsigned int window = 5)
        : registration(size.width, size.height, window), window_(window)
    {}

    int add(const cv::Mat_<short>& frame)
    {
        if (frames.size() == window_)
            frames.erase(frames.begin());
        frames.push_back(frame.clone());
        return registration.prepareFrame(frame);
    }

    int run()
    {
        return registration.doRegistrationVideo(frames, subShifts, totalShifts, roundedShifts, masks,
                                                shiftedFrames);
    }

    PointF total(std::size_t i) const { return {totalShifts[i].x.toFloat(), totalShifts[i].y.toFloat()}; }
    PointF rest(std::size_t i) const { return {subShifts[i].x.toFloat(), subShifts[i].y.toFloat()}; }

    Registration registration;
    std::vector<cv::Mat_<short>> frames;
    std::vector<cv::Point_<halvor::vx::Fixpoint>> subShifts;
    std::vector<cv::Point_<halvor::vx::Fixpoint>> totalShifts;
    std::vector<cv::Point_<short>> roundedShifts;
    std::vector<cv::Mat_<signed char>> masks;
    std::vector<cv::Mat_<short>> shiftedFrames;

private:
    std::size_t window_;
};

}  // namespace vxtest
