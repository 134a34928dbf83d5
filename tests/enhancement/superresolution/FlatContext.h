// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/TestBursts.h"

namespace vxtest {

inline constexpr int failure = -999;

inline std::string message()
{
    std::array<char, 200> buffer{};
    EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), static_cast<int>(buffer.size()) - 1), 0);
    return buffer.data();
}

/// An open context for the length of a scope.
class Context
{
public:
    explicit Context(cv::Size size) : number_(SuperResolution_init(size.width, size.height)) {}
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context() { SuperResolution_release(number_); }

    int number() const { return number_; }
    int add(const cv::Mat_<float>& frame) const
    {
        return SuperResolution_addImage(number_, frame.ptr<float>());
    }
    std::vector<int> addAll(const std::vector<cv::Mat_<float>>& frames, std::size_t count = 5) const
    {
        std::vector<int> codes;
        for (std::size_t i = 0; i < count; ++i)
            codes.push_back(add(frames[i]));
        return codes;
    }
    int image(cv::Mat_<float>& result) const
    {
        return SuperResolution_getSuperresolutionImage(number_, result.ptr<float>());
    }
    int query(cv::Size& size) const
    {
        return SuperResolution_queryOutputImageSize(number_, &size.width, &size.height);
    }

private:
    int number_;
};

// Exceptions tell themselves on the standard error stream; the tests' output stays readable without.
class FlatInterface : public testing::Test
{
protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override { testing::internal::GetCapturedStderr(); }

    const vxsupport::Burst burst_ = burstOf(smallFrame, gentleShifts());
    cv::Mat_<float> image_{smallFrame * 2, -1.0F};
};

}  // namespace vxtest
