// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntRegistration.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "enhancement/superresolution/RegistrationHarness.h"
#include "enhancement/superresolution/VideoHarness.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

const std::array<cv::Point2d, 5> places{{{0.0, 0.0}, {1.3, -0.8}, {3.4, 0.1}, {2.9, -2.6}, {0.4, 1.7}}};

/// Frames of a moving scene; the second is (1.3, -0.8) from the first, and so on.
cv::Mat_<short> videoFrame(std::size_t number, const cv::Size& size = frameSize, float warmer = 0.0F)
{
    cv::Mat_<float> frame = fineScene(size).frame(size, places[number].x, places[number].y);
    frame += warmer;
    return countsOf(frame);
}

void feed(VideoHarness<>& harness, std::size_t from, std::size_t to, const cv::Size& size = frameSize)
{
    for (std::size_t number = from; number < to; ++number) {
        harness.add(videoFrame(number, size));
        harness.run();
    }
}

void expectShift(const PointF& shift, const cv::Point2d& truth, double tolerance, std::size_t frame)
{
    EXPECT_NEAR(shift.x, truth.x, tolerance) << "frame " << frame;
    EXPECT_NEAR(shift.y, truth.y, tolerance) << "frame " << frame;
}

/// Sums in place of measured ones, to see what becomes of them.
class RiggedRegistration : public SrIntRegistration
{
public:
    using SrIntRegistration::SrIntRegistration;

    void computeStructureTensor(const cv::Mat_<short>&, const cv::Mat_<short>&, std::int64_t& xx,
                                std::int64_t& xy, std::int64_t& yy) override
    {
        xx = sums[0] + outside[0];
        xy = sums[1] + outside[1];
        yy = sums[2] + outside[2];
    }
    void computeRepair(const cv::Mat_<short>&, const cv::Mat_<short>&, const cv::Mat_<short>&,
                       const cv::Mat_<short>&, std::int64_t& xx, std::int64_t& xy, std::int64_t& yy) override
    {
        xx = outside[0];
        xy = outside[1];
        yy = outside[2];
    }
    void computeOpticalFlowSumDiffXtYt(const cv::Mat_<unsigned char>& ref, const cv::Mat_<unsigned char>&,
                                       const cv::Mat_<short>& dx, const cv::Mat_<short>& dy,
                                       std::int64_t& sumXt, std::int64_t& sumYt) override
    {
        ref.copyTo(seen);
        dx.copyTo(seenX);
        dy.copyTo(seenY);
        sumXt = sums[3];
        sumYt = sums[4];
    }
    void computeOpticalFlowError(const cv::Mat_<unsigned char>&, const cv::Mat_<unsigned char>&,
                                 const cv::Mat_<short>&, const cv::Mat_<short>&, cv::Mat_<short>&,
                                 cv::Mat_<short>&, unsigned short fill, cv::Mat_<short>& err,
                                 cv::Point_<short> shift, std::int8_t exponent, short weightMantissa,
                                 int weightShift) override
    {
        err.setTo(error);
        threshold = fill;
        flow = {std::ldexp(static_cast<float>(shift.x), exponent),
                std::ldexp(static_cast<float>(shift.y), exponent)};
        weight = std::ldexp(static_cast<double>(weightMantissa), weightShift);
    }

    std::array<std::int64_t, 5> sums{};     // xx, xy, yy, xt, yt
    std::array<std::int64_t, 3> outside{};  // xx, xy, yy beyond the overlap
    short error = 0;
    cv::Mat_<unsigned char> seen;
    cv::Mat_<short> seenX;
    cv::Mat_<short> seenY;
    double threshold = 0.0;
    PointF flow{};
    double weight = 0.0;
};

class Rigged : public VideoHarness<RiggedRegistration>
{
public:
    Rigged() : VideoHarness({48, 40})
    {
        add(videoFrame(0, {48, 40}));
        add(videoFrame(0, {48, 40}));
    }
    std::string failure(const std::array<std::int64_t, 5>& sums)
    {
        registration.sums = sums;
        return messageOf([this] { run(); });
    }
};

}  // namespace

TEST(VideoRegistration, RecoversTheMotionOfSimulatedBursts)
{
    using Scene = std::pair<vxsupport::SceneKind, cv::Size>;
    std::vector<Scene> scenes{{vxsupport::SceneKind::facade, {64, 48}},
                              {vxsupport::SceneKind::facade, {96, 72}}};
    for (const vxsupport::SceneKind kind :
         vxsupport::allSceneKinds())  // the others have detail below a pixel
        scenes.push_back({kind, {160, 120}});
    for (const auto& [kind, size] : scenes) {
        const vxsupport::Burst recording = videoBurst(size, kind);
        VideoHarness harness(size);
        for (const cv::Mat_<float>& frame : recording.frames) {
            harness.add(countsOf(frame));
            ASSERT_EQ(harness.run(), 0);
        }
        for (std::size_t i = 0; i < 5; ++i) {
            expectShift(harness.total(i), {recording.shifts[i].x, recording.shifts[i].y}, 0.06, i);
            EXPECT_GT(cv::sum(harness.masks[i])[0], 0.9 * size.area()) << "frame " << i;
        }
    }
}

TEST(VideoRegistration, AlignsASlidingWindowToItsNewestFrame)
{
    VideoHarness harness(frameSize, 3);
    for (std::size_t newest = 0; newest < 5; ++newest) {
        feed(harness, newest, newest + 1);
        const std::size_t last = harness.frames.size() - 1;
        EXPECT_EQ(harness.shiftedFrames[last].data, harness.frames[last].data);
        EXPECT_EQ(cv::countNonZero(harness.masks[last]), frameSize.area());
        for (std::size_t i = 0; i <= last; ++i) {
            const std::size_t number = newest - last + i;
            expectShift(harness.total(i), places[number] - places[newest], 0.08, number);
            const cv::Point whole = harness.roundedShifts[i];
            const PointF rest = harness.rest(i);
            expectShift(harness.total(i), cv::Point2d(rest.x, rest.y) + cv::Point2d(whole), 0.001, number);
            EXPECT_LE(std::abs(rest.x), 0.5F);
            EXPECT_TRUE(sameBits(harness.frames[i], videoFrame(number))) << "the window is not touched";
            const cv::Rect all({0, 0}, frameSize);
            const cv::Rect from = all & (all + whole);
            const cv::Rect to = from - whole;
            EXPECT_TRUE(sameBits(harness.shiftedFrames[i](to), harness.frames[i](from)));
            EXPECT_EQ(cv::countNonZero(harness.masks[i]), cv::countNonZero(harness.masks[i](to)));
        }
    }
}

TEST(VideoRegistration, MasksWhatDoesNotMoveWithTheScene)
{
    VideoHarness harness(frameSize);
    cv::Mat_<short> disturbed = videoFrame(0);
    disturbed(cv::Rect(90, 60, 14, 14)) += 600;
    harness.registration.setRegError(1.0F);  // without effect on the masks
    EXPECT_EQ(harness.registration.getRegError(), 1.0F);
    harness.add(disturbed);
    feed(harness, 1, 2);
    EXPECT_EQ(harness.masks[0](60, 90), 0) << "the object's corner";
    EXPECT_EQ(harness.masks[0](20, 20), 1);
    EXPECT_NEAR(cv::sum(harness.masks[0])[0] / frameSize.area(), 0.92, 0.07);
}

TEST(VideoRegistration, RefusesFramesThatLeaveTheRangeOfTheOthers)
{
    VideoHarness harness(frameSize);
    EXPECT_EQ(harness.add(videoFrame(0)), 0);
    const cv::Mat_<short> bright = videoFrame(1, frameSize, 7.0F);
    EXPECT_EQ(harness.add(bright), -8);
    harness.registration.clearFrames();
    harness.frames.clear();
    EXPECT_EQ(harness.run(), 0) << "an empty window";
    EXPECT_TRUE(harness.totalShifts.empty());

    EXPECT_EQ(harness.add(bright), 0) << "the range is this frame's now";
    EXPECT_EQ(harness.run(), 0);
    EXPECT_EQ(harness.add(videoFrame(2, frameSize, 7.0F)), 0);
    EXPECT_EQ(harness.run(), 0);
    EXPECT_NEAR(harness.total(0).x, 1.3 - 3.4, 0.06);
    EXPECT_THROW(harness.registration.prepareFrame(cv::Mat_<short>(5, 5)), Exception);
    harness.frames.pop_back();
    EXPECT_THROW(harness.run(), Exception) << "fewer frames than were prepared";
}

TEST(VideoRegistration, FailsWithoutACornerAndWorksOnAfterwards)
{
    VideoHarness harness(frameSize);
    const cv::Mat_<short> flat(frameSize, 700);
    harness.add(flat);
    EXPECT_EQ(harness.run(), 0) << "one frame needs no corners";
    harness.add(flat);
    EXPECT_EQ(messageOf([&] { harness.run(); }), "Not enough stable correspondences");
    EXPECT_EQ(harness.add(videoFrame(0)), -8);
    EXPECT_EQ(harness.add(videoFrame(1)), 0);
    EXPECT_EQ(harness.run(), 0);
    EXPECT_NEAR(harness.total(2).x, -1.3, 0.06);
    EXPECT_EQ(harness.total(1).x, harness.total(2).x) << "a pair that failed counts as not displaced";
}

TEST(VideoRegistration, SolvesForTheFlowInMantissas)
{
    Rigged rigged;
    rigged.registration.outside = {70000, -900, 1234567};
    std::mt19937 random(3);
    const auto sum = [&random](double largest) {
        return largest * (static_cast<double>(random()) / 4294967296.0 * 2.0 - 1.0);
    };
    for (const double size : {900.0, 4e4, 3e6, 2e9, 7e12}) {
        for (int i = 0; i < 20; ++i) {
            const double xx = size + std::abs(sum(size));
            const double yy = size + std::abs(sum(size));
            const double xy = sum(size / 2);
            const double u = sum(0.49);
            const double v = sum(0.49);
            rigged.failure({std::llround(xx), std::llround(xy), std::llround(yy),
                            std::llround(-xx * u - xy * v), std::llround(-xy * u - yy * v)});
            const double tolerance = 4e-4 + 2.0 / size;
            EXPECT_NEAR(rigged.registration.flow.x, u, tolerance) << size;
            EXPECT_NEAR(rigged.registration.flow.y, v, tolerance) << size;
            EXPECT_NEAR(-rigged.total(0).x, u, tolerance) << "of the older frame against the newer";
            EXPECT_NEAR(-rigged.rest(0).y, v, tolerance);
            EXPECT_EQ(rigged.roundedShifts[0], cv::Point_<short>(0, 0));
            EXPECT_NEAR(rigged.registration.weight * (xx + yy), std::ldexp(1.0, 24), std::ldexp(1.0, 15));
        }
    }
    EXPECT_EQ(rigged.registration.threshold, 1677.0) << "0.0001 in 12 bits, times 2^24";
}

TEST(VideoRegistration, WrapsTheFractionAtHalfAPixel)
{
    Rigged rigged;
    // A flow u = -xt / 65536, told with the other sign. One of a pixel or more wraps before its fraction does.
    for (const auto& [xt, whole, rest] : {std::tuple{-32768, -1, 0.5F},
                                          {-32766, 0, -16383.0F / 32768.0F},
                                          {32768, 0, 0.5F},
                                          {32770, 1, -16383.0F / 32768.0F},
                                          {-81920, 1, -0.25F}}) {
        EXPECT_EQ(rigged.failure({65536, 0, 65536, xt, xt}), "");
        EXPECT_EQ(rigged.roundedShifts[0], cv::Point_<short>(cv::Point(whole, whole))) << xt;
        EXPECT_EQ(rigged.rest(0).x, rest) << xt;
        EXPECT_EQ(rigged.total(0).x, static_cast<float>(xt) / 65536.0F) << xt;
    }
}

TEST(VideoRegistration, UsesPixelsWhoseErrorLiesBelowTheThreshold)
{
    Rigged rigged;
    for (const short error : {short{1676}, short{1677}}) {
        rigged.registration.error = error;
        EXPECT_EQ(rigged.failure({65536, 0, 65536, 0, 0}), "");
        EXPECT_EQ(cv::countNonZero(rigged.masks[0]), error < 1677 ? 48 * 40 : 0) << error;
    }
}

TEST(VideoRegistration, HalvesGradientsButForTheEdges)
{
    Rigged rigged;
    EXPECT_EQ(rigged.failure({65536, 0, 65536, 0, 0}), "");
    const cv::Mat_<unsigned char>& ref = rigged.registration.seen;
    const auto gradient = [](int before, int behind, bool isAtEdge) {
        return isAtEdge ? behind - before : (behind - before) >> 1;
    };
    int wrong = 0;
    for (int y = 0; y < ref.rows; ++y) {
        const int above = std::max(y - 1, 0);
        const int below = std::min(y + 1, ref.rows - 1);
        for (int x = 0; x < ref.cols; ++x) {
            const int left = std::max(x - 1, 0);
            const int right = std::min(x + 1, ref.cols - 1);
            wrong +=
                rigged.registration.seenX(y, x) != gradient(ref(y, left), ref(y, right), right < left + 2);
            wrong +=
                rigged.registration.seenY(y, x) != gradient(ref(above, x), ref(below, x), below < above + 2);
        }
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(cv::countNonZero(rigged.registration.seenX.col(0)), 10);
    EXPECT_GT(cv::countNonZero(rigged.registration.seenY.row(39)), 10);
}

TEST(VideoRegistration, KeepsItsRadiusWhenAnotherIsRefused)
{
    SrIntRegistration registration(30, 20, 2);
    EXPECT_EQ(registration.getBlurRadius(), 5);
    for (const int radius : {-1, 32768, std::numeric_limits<int>::max()}) {
        EXPECT_THROW(registration.setBlurRadius(radius), Exception) << radius;
        EXPECT_EQ(registration.getBlurRadius(), 5);
    }
    for (const int radius : {0, 7, 100}) {
        registration.setBlurRadius(radius);
        EXPECT_EQ(registration.getBlurRadius(), radius);
        EXPECT_EQ(registration.prepareFrame(videoFrame(0, {30, 20})), 0) << radius;
        registration.clearFrames();
    }
}

TEST(VideoRegistration, RefusesSumsWithoutASolution)
{
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    Rigged rigged;
    const std::string flat = "no gradients in the common area of the frames";
    EXPECT_EQ(rigged.failure({0, 0, 0, 5, 5}), flat);
    EXPECT_EQ(rigged.failure({400, 400, 400, 5, 5}), flat) << "gradients in one direction alone";
    EXPECT_EQ(rigged.failure({-5, 1, 5, 0, 0}), flat) << "no trace";
    EXPECT_EQ(rigged.failure({1, 0, 1, -(std::int64_t{1} << 40), 0}),
              "invalid result for shift, shifting away integer pixel shift");
    // Whatever a host's own operations give.
    for (const std::int64_t xx : {most, least, std::int64_t{0}, std::int64_t{1}})
        for (const std::int64_t xt : {most, least, std::int64_t{0}, std::int64_t{-1}})
            rigged.failure({xx, xt, xx, xt, xx});
    EXPECT_EQ(rigged.failure({65536, 0, 65536, 0, 0}), "") << "works on";
}

TEST(VideoRegistration, GivesTheSameBitsForAnyNumberOfThreads)
{
    const cv::Size size(640, 420);  // large enough for several threads
    std::vector<VideoHarness<>> runs;
    for (const int threads : {1, 2, 7}) {
        const ThreadCount count(threads);
        runs.emplace_back(size);
        feed(runs.back(), 0, 3, size);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(runs.back().total(i).x, runs[0].total(i).x) << threads;
            EXPECT_EQ(runs.back().rest(i).y, runs[0].rest(i).y) << threads;
            EXPECT_TRUE(sameBits(runs.back().masks[i], runs[0].masks[i])) << threads;
        }
    }
}

TEST(VideoRegistration, CopiesWorkOnByThemselves)
{
    VideoHarness original(frameSize, 3);
    feed(original, 0, 2);
    VideoHarness copy = original;
    feed(original, 2, 5);
    const cv::Mat_<signed char> mask = original.masks[0].clone();
    feed(copy, 2, 5);
    EXPECT_EQ(copy.total(0).x, original.total(0).x);
    EXPECT_TRUE(sameBits(copy.masks[0], mask));
    feed(copy, 0, 1);
    EXPECT_TRUE(sameBits(original.masks[0], mask));
}

TEST(VideoRegistration, TellsItsSteps)
{
    VideoHarness harness({64, 48});
    feed(harness, 0, 1, {64, 48});
    const HeardProcess heard;
    feed(harness, 0, 1, {64, 48});
    std::string steps;
    for (const std::string& text : heard.recorder->textsOf("SrInt", 11))
        steps += text + ", ";
    EXPECT_EQ(steps,
              "start prepareFrame, start GaussianBlur, end GaussianBlur, start buildOpticalFlowPyramid, "
              "end buildOpticalFlowPyramid, end prepareFrame, start doRegistrationVideo, "
              "start extractCorners, end extractCorners, start registerWithCorners, end registerWithCorners, "
              "start getMeanFlow, end getMeanFlow, start prepareGradientsRefImage, "
              "end prepareGradientsRefImage, Video registration: Accumulated shift 0: 0\t0, "
              "Video registration: Accumulated shift 1: 0\t0, end doRegistrationVideo, ");
}
