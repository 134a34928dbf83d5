// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <memory>
#include <new>
#include <opencv2/core.hpp>
#include <optional>
#include <sstream>
#include <string>

#include "core/base/Exception.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "support/drivers/BurstEngine.h"
#include "support/drivers/SettingError.h"

// What the sources of BurstEngine share; not for other files.
namespace vxsupport {

/// "0 (the newest frame) to 4 (the oldest)"
std::string referenceRange(const SuperresSettings& settings);

/// Hands a value to an engine's setter. Engines refuse one by throwing a bare text, which names no option.
template <typename Value, typename Setter>
void applySetting(const std::string& option, const std::string& expected, Value value, const Setter& set)
{
    bool accepted = std::isfinite(static_cast<double>(value));
    try {
        if (accepted)
            set(value);
    } catch (const char*) {
        accepted = false;
    }
    if (accepted)
        return;
    std::ostringstream text;
    text << option << ' ' << value << ": expected " << expected;
    throw SettingError(text.str());
}

/// What a step of an engine answers; a failure that it raises becomes an answer with its text, but for want of memory.
///
/// @param step  fills the answer that it is given
template <typename Step>
BurstAnswer answerOf(Step step)
{
    const auto failed = [](const std::string& message) {
        BurstAnswer answer;
        answer.code = SuperResolution_failure;
        answer.message = message;
        return answer;
    };
    BurstAnswer answer;
    try {
        step(answer);
    } catch (const halvor::vx::Exception& error) {
        return failed(error.what());
    } catch (const cv::Exception& error) {
        if (error.code == cv::Error::StsNoMem)
            throw std::bad_alloc();
        return failed("cv::Exception: " + error.err);
    }
    return answer;
}

/// Adds one frame's shift and mask to an answer.
inline void tellFrame(PointF shift, const cv::Mat_<unsigned char>& mask, BurstAnswer& answer)
{
    answer.frames.push_back(
        {shift, static_cast<double>(cv::countNonZero(mask)) / static_cast<double>(mask.total())});
}

/// An engine in fixed point; openEngineClass() for those kinds.
/// @throws SettingError  for settings with which 16 bits do not hold a result, and sizes that the engine cannot take
std::unique_ptr<BurstEngine> openFixedEngine(cv::Size frameSize, const SuperresSettings& settings);

/// The engines for motions other than the global one.
/// @throws SettingError  for settings that they do not know, and sizes that they cannot take
std::unique_ptr<BurstEngine> openMotionEngine(cv::Size frameSize, const SuperresSettings& settings);

/// The engine class that the settings ask for.
std::unique_ptr<BurstEngine> openEngineClass(cv::Size frameSize, const SuperresSettings& settings);

}  // namespace vxsupport
