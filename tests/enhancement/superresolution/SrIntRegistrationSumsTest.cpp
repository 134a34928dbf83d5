// SPDX-License-Identifier: Apache-2.0
// The sums and the error image of the fixed-point registration, one by one.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>

#include "enhancement/superresolution/SrIntRegistration.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"

using namespace halvor::vx;
using vxtest::messageOf;

namespace {

/// What computeOpticalFlowError() gives for one pixel, in doubles, which are exact for the numbers here.
double errorOf(int gray, int dx, int dy, cv::Point_<short> shift, int exponent, int weight, int weightShift)
{
    const double scaled = dx * shift.x + dy * shift.y + std::ldexp(gray, -exponent);
    const double left = std::floor(std::ldexp(scaled, exponent) + 0.5);
    return std::clamp(std::floor(std::ldexp(left * left * weight, weightShift) + 0.5), -32768.0, 32767.0);
}

}  // namespace

TEST(VideoRegistration, GradesPixelsInAnyScale)
{
    const cv::Size size(37, 5);
    SrIntRegistration registration(size.width, size.height, 2);
    cv::Mat_<unsigned char> ref(size);
    cv::Mat_<unsigned char> frame(size);
    cv::Mat_<short> dx(size);
    cv::Mat_<short> dy(size);
    cv::randu(ref, 0, 256);
    cv::randu(frame, 0, 256);
    cv::randu(dx, -255, 256);
    cv::randu(dy, -255, 256);
    cv::Mat_<short> err(size);
    cv::Mat_<short> band(2, 37, short{0});
    cv::Mat_<short> strip(3, 4, short{0});
    using Scale = std::tuple<cv::Point_<short>, std::int8_t, short, int>;
    for (const auto& [shift, exponent, weight, weightShift] :
         {Scale{{9000, -12000}, -15, 20000, -12}, Scale{{-31000, 17}, -16, 16384, -17},
          Scale{{25000, 32767}, -22, 31000, -20}, Scale{{-1, 200}, -1, 1, -1},
          Scale{{25000, 32767}, -23, 31000, -20}, Scale{{30000, 2}, -40, 20000, -20},
          Scale{{1, -2}, 0, 300, 2}, Scale{{300, 200}, -9, -700, -3},
          Scale{{9000, -12000}, -15, 20000, -70}}) {
        registration.computeOpticalFlowError(ref, frame, dx, dy, band, strip, 1677, err, shift, exponent,
                                             weight, weightShift);
        int wrong = 0;
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                wrong += err(y, x) != errorOf(frame(y, x) - ref(y, x), dx(y, x), dy(y, x), shift, exponent,
                                              weight, weightShift);
        EXPECT_EQ(wrong, 0) << static_cast<int>(exponent) << ", " << weightShift;
    }
    EXPECT_EQ(cv::countNonZero(band == 1677), 74);
    EXPECT_EQ(cv::countNonZero(strip == 1677), 12);
}

TEST(VideoRegistration, RefusesGrayValuesBeyond16Bits)
{
    SrIntRegistration registration(1, 1, 2);
    const cv::Mat_<short> none(1, 1, short{0});
    cv::Mat_<short> err(1, 1);
    cv::Mat_<short> outside;
    const auto failure = [&](short shift, int gray, std::int8_t exponent, int weightShift) {
        const cv::Mat_<unsigned char> ref(1, 1, static_cast<unsigned char>(gray < 0 ? 1 : 0));
        const cv::Mat_<unsigned char> frame(1, 1, static_cast<unsigned char>(gray > 0 ? 1 : 0));
        const cv::Mat_<short> dx(1, 1, static_cast<short>(1 << -exponent));
        return messageOf([&] {
            registration.computeOpticalFlowError(ref, frame, dx, none, outside, outside, 1677, err,
                                                 {shift, 0}, exponent, 1, weightShift);
        });
    };
    for (const auto& [exponent, weightShift] : {std::pair<std::int8_t, int>{0, -20}, {-1, -20}, {-1, 0}}) {
        EXPECT_EQ(failure(32767, 0, exponent, weightShift), "");
        EXPECT_EQ(failure(32767, 1, exponent, weightShift), "out of range");
        EXPECT_EQ(failure(-32768, 0, exponent, weightShift), "");
        EXPECT_EQ(failure(-32768, -1, exponent, weightShift), "out of range");
    }
}

TEST(VideoRegistration, RepairsTheTensorByTheStripsOutsideTheOverlap)
{
    SrIntRegistration registration(30, 21, 2);
    cv::Mat_<short> dx(21, 30);
    cv::Mat_<short> dy(21, 30);
    cv::randu(dx, -32768, 32767);
    cv::randu(dy, -32768, 32767);
    using Tensor = std::array<std::int64_t, 3>;
    const auto tensorOf = [&](const cv::Rect& rect) {
        Tensor t{};
        registration.computeStructureTensor(dx(rect), dy(rect), t[0], t[1], t[2]);
        return t;
    };
    Tensor repair{};
    const cv::Rect band(0, 18, 30, 3);
    const cv::Rect strip(0, 0, 4, 18);
    registration.computeRepair(dx(band), dy(band), dx(strip), dy(strip), repair[0], repair[1], repair[2]);
    const Tensor whole = tensorOf({0, 0, 30, 21});
    const Tensor overlap = tensorOf({4, 0, 26, 18});
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(whole[i], overlap[i] + repair[i]);
    EXPECT_EQ(whole[1], std::llround(dx.dot(dy)));
    EXPECT_EQ(messageOf([&] { tensorOf({}); }), "invalid DiffX or DiffY frame size");
}

TEST(VideoRegistration, TakesGradientsInLanes)
{
    SrIntRegistration registration(30, 20, 2);
    for (const int width : {1, 2, 9, 10, 37}) {
        cv::Mat_<short> src(1, width);
        cv::randu(src, -32768, 32768);
        cv::Mat_<short> diffX(1, width);
        registration.computeDiffX_neon(src, diffX);
        for (int x = 0; x < width; ++x) {
            const int difference = src(0, std::min(x + 1, width - 1)) - src(0, std::max(x - 1, 0));
            EXPECT_EQ(diffX(x), static_cast<short>(difference >> (x > 0 && x < width - 1 ? 1 : 0)));
        }
    }
    cv::Mat_<short> diffX(3, 30);
    EXPECT_EQ(messageOf([&] { registration.computeDiffX_neon(cv::Mat_<short>(2, 30), diffX); }),
              "invalid Ref or DiffX frame size");
}
