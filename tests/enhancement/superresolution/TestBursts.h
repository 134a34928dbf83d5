#pragma once

#include <omp.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "core/base/Exception.h"
#include "core/base/PointF.h"
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

inline bool sameBits(const cv::Mat_<float>& a, const cv::Mat_<float>& b)
{
    return a.size() == b.size() && a.isContinuous() && b.isContinuous() &&
           std::memcmp(a.data, b.data, a.total() * sizeof(float)) == 0;
}

/// A frame with more invalid pixels than can be repaired.
inline cv::Mat_<float> ruined(const cv::Mat_<float>& frame)
{
    cv::Mat_<float> bad = frame.clone();
    bad.row(bad.rows / 2).setTo(std::numeric_limits<float>::quiet_NaN());
    return bad;
}

/// Sets the thread counts of OpenMP and OpenCV for one test.
class ThreadCount
{
public:
    explicit ThreadCount(int count) : openMp_(omp_get_max_threads()), openCv_(cv::getNumThreads())
    {
        omp_set_num_threads(count);
        cv::setNumThreads(count);
    }
    ThreadCount(const ThreadCount&) = delete;
    ThreadCount& operator=(const ThreadCount&) = delete;
    ~ThreadCount()
    {
        omp_set_num_threads(openMp_);
        cv::setNumThreads(openCv_);
    }

private:
    int openMp_;
    int openCv_;
};

}  // namespace vxtest
