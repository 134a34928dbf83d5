// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "core/base/PointF.h"
#include "enhancement/superresolution/TestBursts.h"

namespace vxtest {

inline constexpr int windowLength = 5;

/// An engine with the flat interface's reference frame.
template <typename Engine>
struct Made : Engine
{
    explicit Made(cv::Size size = smallFrame) : Engine(size.width, size.height, windowLength, 2.0F)
    {
        this->setReferenceIndex(3);
    }
};

/// What an engine tells of a computation.
struct Outcome
{
    float result = 0.0F;
    cv::Mat_<float> image;
    std::vector<PointF> shifts;
    std::vector<cv::Mat_<unsigned char>> masks;
};

template <typename Engine>
Outcome compute(Engine& engine, cv::Size size = smallFrame * 2)
{
    Outcome run;
    run.image.create(size);
    run.result = engine.computeSR(run.image.template ptr<float>());
    engine.getCompleteShifts(run.shifts);
    engine.getMasks(run.masks);
    return run;
}

template <typename Engine>
Outcome feedAndCompute(Engine& engine, const std::vector<cv::Mat_<float>>& frames)
{
    for (const cv::Mat_<float>& frame : frames)
        EXPECT_EQ(engine.addFrame(frame.template ptr<float>()), 0);
    return compute(engine, frames[0].size() * 2);
}

/// What a call throws: an exception's message, or a refusal's bare text.
inline std::string messageOf(const std::function<void()>& work)
{
    testing::internal::CaptureStderr();
    std::string message = "nothing was thrown";
    try {
        work();
    } catch (const halvor::vx::Exception& failure) {
        message = failure.what();
    } catch (const char* text) {
        message = text;
    }
    testing::internal::GetCapturedStderr();
    return message;
}

}  // namespace vxtest
