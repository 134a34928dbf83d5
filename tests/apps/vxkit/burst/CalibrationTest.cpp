// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/Calibration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "apps/FrameSamples.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

const cv::Mat_<float> withMarkers = (cv::Mat_<float>(1, 4) << std::bit_cast<float>(std::uint32_t{0x81}),
                                     29315.0F, std::bit_cast<float>(std::uint32_t{0x85}), -1.0F);

}  // namespace

TEST(Calibration, MakesDegreesOfCountsButNotOfMarkers)
{
    const Calibration calibration(0.01, -273.15, false);
    const cv::Mat_<float> fed = calibration.toEngine(withMarkers);
    EXPECT_FLOAT_EQ(fed(0, 1), 20.0F);
    EXPECT_FLOAT_EQ(fed(0, 3), -273.16F);
    EXPECT_TRUE(sameBits(fed.col(0), withMarkers.col(0)));
    EXPECT_TRUE(sameBits(fed.col(2), withMarkers.col(2)));
    EXPECT_TRUE(sameBits(calibration.fromEngine(fed), fed)) << "results are degrees";
    EXPECT_EQ(calibration.unit(), Unit::degrees);
    EXPECT_FLOAT_EQ(Calibration(std::nullopt, 5.0, false).toEngine(withMarkers)(0, 1), 29320.0F);

    const Calibration ofFloats(std::nullopt, std::nullopt, true);
    EXPECT_TRUE(sameBits(ofFloats.toEngine(withMarkers), withMarkers));
    EXPECT_TRUE(sameBits(ofFloats.fromEngine(withMarkers), withMarkers));
    EXPECT_EQ(ofFloats.unit(), Unit::degrees);
}

TEST(Calibration, FeedsEveryCountWithinTheEnginesLimitsAndGivesItBack)
{
    const Calibration calibration(std::nullopt, std::nullopt, false);
    cv::Mat_<float> counts(256, 256);
    for (int i = 0; i < 65536; ++i)
        counts(i / 256, i % 256) = static_cast<float>(i);
    const cv::Mat_<float> fed = calibration.toEngine(counts);
    EXPECT_NO_THROW(calibration.requirePlausible(fed, "a"));
    EXPECT_LE(fed(255, 255), 5000.0F);
    EXPECT_TRUE(sameBits(calibration.fromEngine(fed), counts));
    EXPECT_EQ(calibration.unit(), Unit::counts);
}

TEST(Calibration, RefusesNumbersThatMakeNoDegrees)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double scale : {infinity, std::nan(""), 0.0})
        EXPECT_THROW(Calibration(scale, std::nullopt, false), UsageError) << scale;
    EXPECT_THROW(Calibration(0.01, -infinity, true), UsageError);
}

TEST(Calibration, RefusesFramesThatAreMostlyDefectsToTheEngine)
{
    const Calibration calibration(1.0, std::nullopt, false);
    cv::Mat_<float> frame(10, 10, 20.0F);
    frame.row(0) = 16000.0F;
    EXPECT_NO_THROW(calibration.requirePlausible(frame, "a.raw"));
    frame(1, 0) = -300.0F;
    try {
        calibration.requirePlausible(frame, "a.raw");
        FAIL() << "accepted";
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(),
                    testing::AllOf(HasSubstr("a.raw"), HasSubstr("11 %"), HasSubstr("--scale")));
    }
}
