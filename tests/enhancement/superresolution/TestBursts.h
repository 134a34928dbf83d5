// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "core/base/PointF.h"
#include "doubles/SameBits.h"
#include "doubles/ThreadCount.h"
#include "support/Burst.h"

namespace vxtest {

inline const cv::Size smallFrame{96, 72};

/// Five frames of a facade at the given displacements, the second one being the reference, as the flat
/// interface has it.
inline vxsupport::Burst burstOf(cv::Size size, std::vector<PointF> shifts)
{
    vxsupport::BurstSettings settings;
    settings.scene.frame = size;
    settings.frameCount = static_cast<int>(shifts.size());
    settings.shifts = std::move(shifts);
    return vxsupport::simulateBurst(settings);
}

inline const std::vector<PointF>& gentleShifts()
{
    static const std::vector<PointF> shifts{
        {0.3F, -0.4F}, {0.0F, 0.0F}, {-0.45F, 0.2F}, {1.2F, 0.55F}, {0.1F, -1.7F}};
    return shifts;
}

inline float marker(std::uint32_t bits)
{
    return std::bit_cast<float>(bits);
}

/// A frame with more invalid pixels than can be repaired.
inline cv::Mat_<float> ruined(const cv::Mat_<float>& frame)
{
    cv::Mat_<float> bad = frame.clone();
    bad.row(bad.rows / 2).setTo(std::numeric_limits<float>::quiet_NaN());
    return bad;
}

}  // namespace vxtest
