// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

#include <cstddef>
#include <opencv2/core.hpp>
#include <vector>

#include "support/Burst.h"

namespace vxbench {

constexpr int windowSize = 5;
constexpr float enlargement = 2.0F;

inline void useThreads(int count)
{
    omp_set_num_threads(count);
    cv::setNumThreads(count);
}

/// Of the simulated scenes the chart keeps the solver busy longest.
inline std::vector<cv::Mat_<float>> framesOf(const cv::Size& size)
{
    vxsupport::BurstSettings settings;
    settings.scene.kind = vxsupport::SceneKind::target;
    settings.scene.frame = size;
    settings.frameCount = windowSize;
    return vxsupport::simulateBurst(settings).frames;
}

/// An engine with the settings of the flat interface and a full window: one new frame, one image.
template <typename Engine>
class LiveEngine
{
public:
    explicit LiveEngine(const cv::Size& size)
        : frames_(framesOf(size)), engine_(size.width, size.height, windowSize, enlargement), image_(size * 2)
    {
        engine_.setReferenceIndex(3);
        for (int i = 0; i < windowSize; ++i)
            nextImage();
    }

    auto nextImage()
    {
        engine_.addFrame(frames_[next_].template ptr<float>());
        next_ = (next_ + 1) % frames_.size();
        return engine_.computeSR(image_.ptr<float>());
    }

private:
    std::vector<cv::Mat_<float>> frames_;
    std::size_t next_ = 0;
    Engine engine_;
    cv::Mat_<float> image_;
};

}  // namespace vxbench
