// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntMinimization.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>

#include "doubles/AllocationCounter.h"
#include "doubles/ThreadCount.h"
#include "enhancement/superresolution/fixedpoint/FixedBurst.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"
#include "support/PictureMeasures.h"

using namespace halvor::vx;
using vxsupport::SceneKind;
using vxtest::FixedBurst;
using vxtest::messageOf;
using vxtest::sameBits;

namespace {

using Image = cv::Mat_<short>;
using Masks = std::vector<cv::Mat_<signed char>>;

void punchHoles(FixedBurst& burst, unsigned seed)
{
    std::mt19937 random(seed);
    std::bernoulli_distribution unusable(0.07);
    for (cv::Mat_<signed char>& mask : burst.masks)
        for (signed char& pixel : mask)
            pixel = unusable(random) ? 0 : pixel;
}

/// The operator alone, on any image.
class System : public SrIntMinimization
{
public:
    explicit System(int frames) : SrIntMinimization(20, 14, static_cast<short>(frames), 2)
    {
        psfRange_.setMantissa(0x7FFF);
        psfRange_.setExponent(-16);
        const std::vector<PointF> shifts(static_cast<std::size_t>(frames), PointF{0.2F, -0.3F});
        generatePsfs(static_cast<short>(frames), shifts.data());
        computeLSimplified(X_, epsilon_, invEpsilon_, lambda_, -3);
    }

    Image image(short value) const { return Image(fullHeight_, fullWidth_, value); }
    Masks masks(int count) const
    {
        return Masks(static_cast<std::size_t>(count),
                     cv::Mat_<signed char>(inHeight_, inWidth_, static_cast<signed char>(1)));
    }
    Image applied(const Image& in, const Masks& masks)
    {
        Image out = image(0);
        gradient(in, static_cast<short>(masks.size()), masks, out);
        return out;
    }
    void applyTo(const Image& in, const Masks& masks, int count, Image& out)
    {
        gradient(in, static_cast<short>(count), masks, out);
    }
};

}  // namespace

// Frames with shifts to all sides, holes in the masks, up to six of them: the sweep over all frames gives what the
// plain convolutions give that an open channel asks for, and so does any number of threads, with stretches of uneven
// length.
TEST(SrIntMinimization, GivesTheBitsOfThePlainFormsWithAnyNumberOfThreads)
{
    for (const auto& [size, frames] : {std::pair{cv::Size(37, 29), 2U}, {cv::Size(161, 113), 6U}}) {
        FixedBurst burst(size, SceneKind::target, frames);
        punchHoles(burst, 9);
        SrIntMinimization solver(static_cast<short>(size.width), static_cast<short>(size.height), 6, 2);
        cv::Mat_<float> expected;
        vxtest::linesOf(solver.getDebugChannel(), 11, [&] { expected = burst.solve(solver); });
        const short steps = burst.steps;
        EXPECT_GT(steps, 1);
        for (const int threads : {1, 2, 7}) {
            const vxtest::ThreadCount count(threads);
            EXPECT_TRUE(sameBits(burst.solve(solver), expected)) << size << ", " << threads << " threads";
            EXPECT_EQ(burst.steps, steps) << size << ", " << threads << " threads";
        }
    }
}

// Masks and kernels that only the plain forms can serve.
TEST(SrIntMinimization, WeighsPixelsByUnusualMasksAsThePlainFormsDo)
{
    System system(1);
    Masks masks = system.masks(1);
    const Image in = system.image(200);
    const Image plain = system.applied(in, masks);
    masks[0].setTo(2);
    const Image doubled = system.applied(in, masks);
    EXPECT_NEAR(plain(14, 20), 50, 2);
    EXPECT_NEAR(doubled(14, 20), 100, 2);
}

// In decibels, less than half of one below what the solver gains. Solutions in double precision of bursts like these
// came to 0.7 more at most.
TEST(SrIntMinimization, GainsOverTheBicubicEnlargement)
{
    constexpr int margin = 12;
    for (const auto& [size, scene, least] : {std::tuple{cv::Size(64, 48), SceneKind::target, 5.7},
                                             {cv::Size(96, 72), SceneKind::target, 5.0},
                                             {cv::Size(80, 60), SceneKind::board, 9.3},
                                             {cv::Size(160, 120), SceneKind::target, 4.6}}) {
        FixedBurst burst(size, scene);
        SrIntMinimization solver(static_cast<short>(size.width), static_cast<short>(size.height), 5, 2);
        cv::Mat_<float> enlarged;
        cv::resize(burst.frames[1], enlarged, size * 2, 0.0, 0.0, cv::INTER_CUBIC);
        EXPECT_GT(vxsupport::psnr(burst.solve(solver), burst.truth, margin) -
                      vxsupport::psnr(enlarged, burst.truth, margin),
                  least)
            << size;
    }
}

TEST(SrIntMinimization, StartsFromTheRightHandSideMayStayThereAndAllocatesNothing)
{
    FixedBurst burst({40, 30}, SceneKind::target);
    SrIntMinimization solver(40, 30, 5, 2);
    solver.setRelRes(100.0F);
    cv::Mat_<float> satisfied = burst.solve(solver);
    EXPECT_EQ(burst.steps, 0);
    solver.setMaxIter(0);
    EXPECT_TRUE(sameBits(burst.solve(solver), satisfied));

    solver.setMaxIter(3);
    solver.setRelRes(0.001F);
    burst.solve(solver);
    EXPECT_EQ(burst.steps, 3);
    EXPECT_EQ(solver.getCumIters(), 3);
    const vxtest::AllocationCounter counter;
    solver.minimize(5, 1, burst.frames, burst.masks, satisfied);
    EXPECT_EQ(counter.count(), 0U);
}

// A zero direction gives no divisor: alpha is twice the norm then, of which nothing is left here.
TEST(SrIntMinimization, TakesConstantAndSilentFrames)
{
    SrIntMinimization solver(12, 10, 2, 2);
    for (const float value : {0.0F, 1000.0F, -7.0F}) {
        FixedBurst burst({12, 10}, SceneKind::target, 2);
        for (cv::Mat_<float>& frame : burst.frames)
            frame.setTo(value);
        EXPECT_TRUE(sameBits(burst.solve(solver), cv::Mat_<float>(20, 24, value))) << value;
    }
}

TEST(SrIntMinimization, NamesWhatDoesNotFit)
{
    System system(2);
    Masks masks = system.masks(2);
    FixedBurst burst({20, 14}, SceneKind::target, 2);
    SrIntMinimization solver(20, 14, 2, 2);
    const auto apply = [&](const Image& in, int count, const Image& out) {
        return
            [&, in = Image(in), count, out = Image(out)]() mutable { system.applyTo(in, masks, count, out); };
    };
    const auto minimize = [&](short count, short reference) {
        return [&, count, reference] {
            cv::Mat_<float> image;
            solver.minimize(count, reference, burst.frames, burst.masks, image);
        };
    };
    const auto expect = [](const std::string& message, const std::function<void()>& work) {
        EXPECT_EQ(messageOf(work), message);
    };
    const Image in = system.image(0);
    const Image small(3, 3, short{0});
    // No frame reaches the last row and the last column; the plain form checks the row.
    const std::string outOfRange = "integer out of int32_t range in first loop of validCorrToSparse";
    Image edge = system.image(0);
    edge.col(edge.cols - 1).setTo(-32768);
    expect("", apply(edge.clone(), 2, in));
    edge.row(edge.rows - 1).setTo(-32768);
    expect(outOfRange, apply(edge, 2, in));
    expect(outOfRange, apply(system.image(-32768), 2, in));
    expect("", apply(system.image(-32000), 2, in));
    expect("", apply(system.image(32700), 2, in));
    expect("invalid input frame size", apply(small, 2, in));
    expect("invalid image masks size", apply(in, 1, in));
    expect("invalid result frame size", apply(in, 2, small));
    masks[1] = cv::Mat_<signed char>(3, 3);
    expect("invalid image mask size", apply(in, 2, in));

    expect("invalid row mask size", minimize(2, 1));
    burst.solve(solver);
    expect("invalid number of frames", minimize(3, 1));
    expect("invalid reference index", minimize(2, 2));
    burst.frames[0](3, 4) = 1e6F;
    expect("convertMatFloatToMatInt: value clamped to max", [&] { burst.solve(solver); });
    burst.shifts[0].x = -0.6F;
    expect("convertMatFloatToMatInt: value clamped to min", [&] { burst.solve(solver); });
}

TEST(SrIntMinimization, RefusesSettingsOutOfRange)
{
    EXPECT_THROW(SrIntMinimization(20, 14, 5, 3), Exception);
    EXPECT_THROW(SrIntMinimization(0, 14, 5, 2), Exception);
    EXPECT_THROW(SrIntMinimization(20, 14, 0, 2), Exception);
    EXPECT_THROW(SrIntMinimization(16384, 1, 1, 2), Exception);
    SrIntMinimization solver(20, 14, 5, 2);
    for (const float weight : {0.5F, 601.0F, -3.0F, 1e20F, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(messageOf([&] { solver.setWeightTV(weight); }),
                  "invalid value given for setWeightTV (allowed: 1-600)");
    EXPECT_EQ(solver.getWeightTV(), 400.0F);
    solver.setWeightTV(600.9F);
    EXPECT_EQ(solver.getWeightTV(), 600.0F);
}

TEST(SrIntMinimization, TellsItsStepsInOrder)
{
    FixedBurst burst({20, 14}, SceneKind::target, 2);
    SrIntMinimization solver(20, 14, 2, 2);
    solver.setMaxIter(1);
    solver.setRelRes(0.0F);
    const auto recorder = vxtest::listenTo({&solver.getDebugChannel()}, 11);
    burst.solve(solver);
    ASSERT_EQ(burst.steps, 1);
    std::string steps;
    for (const vxtest::LineRecorder::Line& line : recorder->lines)
        if (line.channel == "SrInt" && line.level == 11 && line.text.find("Convolution") == std::string::npos)
            steps += line.text + ", ";
    const std::string gradient =
        "start gradient, gradient for frame: 0, gradient for frame: 1, end gradient, ";
    EXPECT_EQ(steps,
              "start minimize, start real integer minimize, start normalize, end normalize, "
              "start large iteration: 0, " +
                  gradient + "start small iteration: 0, " + gradient +
                  "end small iteration: 0, end large iteration: 0, cummulated iterations1, "
                  "end real integer minimize, end minimize, ");
}
