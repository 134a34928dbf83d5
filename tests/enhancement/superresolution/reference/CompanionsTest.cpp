#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/RegistrationHarness.h"
#include "enhancement/superresolution/SrFloatConvolution.h"
#include "enhancement/superresolution/SrFloatMinimization.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"
#include "enhancement/superresolution/reference/SuperResolutionMinimization.h"
#include "enhancement/superresolution/reference/SuperResolutionRegistration.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;
using testing::ElementsAre;
using testing::ElementsAreArray;
using vxsupport::CapturedOutput;

namespace {

std::vector<float> randomValues(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> values(-1.0F, 1.0F);
    std::vector<float> result(count);
    std::generate(result.begin(), result.end(), [&] { return values(random); });
    return result;
}

double dot(const std::vector<float>& a, const std::vector<float>& b)
{
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

std::shared_ptr<LineRecorder> listenTo(const std::vector<DebugChannel*>& channels, int level)
{
    auto recorder = std::make_shared<LineRecorder>();
    for (DebugChannel* channel : channels) {
        channel->setDebugDevice(recorder);
        channel->setOutputLevel(level);
    }
    return recorder;
}

}  // namespace

TEST(ReferenceConvolution, AgreesWithTheFastOperatorsAtFactorTwo)
{
    constexpr int lowWidth = 9;
    constexpr int lowHeight = 7;
    constexpr int taps = 6;
    const std::vector<float> kernelX{0.0F, 0.1F, 0.3F, 0.4F, 0.15F, 0.05F};
    const std::vector<float> kernelY{0.05F, 0.2F, 0.35F, 0.25F, 0.15F, 0.0F};
    const std::vector<float> frame = randomValues(lowWidth * lowHeight, 1);
    std::vector<char> mask(frame.size(), 1);
    mask[3] = mask[20] = 0;
    const std::size_t fullSize = (2 * lowWidth + taps - 1) * (2 * lowHeight + taps - 1);
    SuperResolutionConvolution serial(2 * lowWidth, 2 * lowHeight, taps, taps, 2.0F);
    SrFloatConvolution fast(2 * lowWidth, 2 * lowHeight, taps, taps, 2.0F);

    std::vector<float> full(fullSize, 7.0F);
    std::vector<float> expectedFull(fullSize);
    serial.fullConvFromSparse(frame.data(), kernelX.data(), kernelY.data(), mask.data(), full.data());
    fast.fullConvFromSparse(frame.data(), kernelX.data(), kernelY.data(), mask.data(), expectedFull.data());
    EXPECT_THAT(full, testing::Pointwise(testing::FloatNear(1e-6F), expectedFull));

    std::vector<float> sparse(frame.size(), 7.0F);
    std::vector<float> expectedSparse(frame.size());
    serial.validCorrToSparse(full.data(), kernelX.data(), kernelY.data(), sparse.data());
    fast.validCorrToSparse(full.data(), kernelX.data(), kernelY.data(), expectedSparse.data());
    EXPECT_THAT(sparse, testing::Pointwise(testing::FloatNear(1e-6F), expectedSparse));
}

// The fast operators only know a vertical stride of 2.
TEST(ReferenceConvolution, FollowsTheFactorInBothDirections)
{
    constexpr int lowWidth = 5;
    constexpr int lowHeight = 4;
    constexpr int taps = 9;
    constexpr int fullWidth = 3 * lowWidth + taps - 1;
    constexpr int fullHeight = 3 * lowHeight + taps - 1;
    SuperResolutionConvolution conv(3 * lowWidth, 3 * lowHeight, taps, taps, 3.0F);
    const std::vector<float> kernelX = randomValues(taps, 2);
    const std::vector<float> kernelY = randomValues(taps, 3);
    const std::vector<char> all(lowWidth * lowHeight, 1);

    std::vector<float> single(all.size());
    single[2 * lowWidth + 3] = 2.0F;
    std::vector<float> full(fullWidth * fullHeight);
    conv.fullConvFromSparse(single.data(), kernelX.data(), kernelY.data(), all.data(), full.data());
    for (int y = 0; y < fullHeight; ++y) {
        for (int x = 0; x < fullWidth; ++x) {
            const int j = y - 3 * 2;
            const int i = x - 3 * 3;
            const bool isTap = j >= 0 && j < taps && i >= 0 && i < taps;
            ASSERT_FLOAT_EQ(full[y * fullWidth + x], isTap ? 2.0F * kernelY[j] * kernelX[i] : 0.0F)
                << x << ", " << y;
        }
    }

    const std::vector<float> frame = randomValues(all.size(), 4);
    const std::vector<float> image = randomValues(full.size(), 5);
    std::vector<float> scattered(full.size());
    std::vector<float> gathered(frame.size());
    conv.fullConvFromSparse(frame.data(), kernelX.data(), kernelY.data(), all.data(), scattered.data());
    conv.validCorrToSparse(image.data(), kernelX.data(), kernelY.data(), gathered.data());
    EXPECT_NEAR(dot(scattered, image), dot(frame, gathered), 1e-5);
}

TEST(ReferenceConvolution, FiltersAsTheSharedBoxFilterDoes)
{
    constexpr int width = 23;
    constexpr int height = 17;
    SuperResolutionConvolution conv(width, height, 1, 1, 2.0F);
    std::vector<float> image = randomValues(width * height, 6);
    for (const int radius : {0, 1, 3, 8}) {
        std::vector<float> filtered(image.size());
        conv.sameConvOnes(image.data(), radius, filtered.data());
        cv::Mat_<float> expected;
        SrFloatConvolution::blurImageMeanFilter(cv::Mat_<float>(height, width, image.data()), radius,
                                                expected);
        EXPECT_THAT(filtered, testing::Pointwise(testing::FloatNear(2e-6F),
                                                 std::vector<float>(expected.begin(), expected.end())))
            << radius;
    }
}

TEST(ReferenceConvolution, ReportsItsCallsOneLevelBelowTheSolver)
{
    SuperResolutionConvolution conv(4, 4, 1, 1, 2.0F);
    const auto recorder = listenTo(conv.getInternalDebugChannelObjects(), 12);
    std::vector<float> frame(4);
    std::vector<float> full(16);
    const std::vector<char> mask(4, 1);
    const float one = 1.0F;
    conv.fullConvFromSparse(frame.data(), &one, &one, mask.data(), full.data());
    conv.validCorrToSparse(full.data(), &one, &one, frame.data());
    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : recorder->lines) {
        EXPECT_EQ(line.channel, "SR");
        EXPECT_EQ(line.level, 12);
        texts.push_back(line.text);
    }
    EXPECT_THAT(texts, ElementsAre("start SuperResolutionConvolution.fullConvFromSparse",
                                   "end SuperResolutionConvolution.fullConvFromSparse",
                                   "start SuperResolutionConvolution.validCorrToSparse",
                                   "end SuperResolutionConvolution.validCorrToSparse"));
    conv.getInternalDebugChannelObjects()[0]->setOutputLevel(11);
    recorder->lines.clear();
    conv.validCorrToSparse(full.data(), &one, &one, frame.data());
    EXPECT_TRUE(recorder->lines.empty());
}

namespace {

// Frames with structure, their shifts and masks, for a solver.
struct SolverInput
{
    SolverInput(int width, int height, int count)
    {
        for (int k = 0; k < count; ++k) {
            frames.push_back(randomValues(static_cast<std::size_t>(width) * height, 10U + k));
            masks.emplace_back(frames.back().size(), char{1});
            masks.back()[static_cast<std::size_t>(3 * k)] = 0;
            shifts.push_back({0.15F * static_cast<float>(k), -0.2F * static_cast<float>(k)});
        }
        for (int k = 0; k < count; ++k) {
            for (float& value : frames[k])
                value = 25.0F + 4.0F * value;
            framePointers.push_back(frames[k].data());
            maskPointers.push_back(masks[k].data());
        }
    }

    std::vector<std::vector<float>> frames;
    std::vector<std::vector<char>> masks;
    std::vector<PointF> shifts;
    std::vector<float*> framePointers;
    std::vector<char*> maskPointers;
};

// The lines of a debugMat() call.
void expectMatrix(std::vector<std::string>& expected, const std::string& name)
{
    expected.push_back(name + ":");
    for (const char* label : {" - min:  ", " - max:  ", " - sum:  ", " - mean: "})
        expected.emplace_back(label);
}

void expectGradient(std::vector<std::string>& expected, int frames)
{
    expected.emplace_back("start gradient");
    for (int k = 0; k < frames; ++k) {
        expected.push_back("gradient for frame: " + std::to_string(k));
        expectMatrix(expected, "gradient TmpConv (between validCorr & fullConv) " + std::to_string(k));
    }
    expected.emplace_back("end gradient");
}

void expectIteration(std::vector<std::string>& expected, int frames, bool goesOn)
{
    for (const char* name :
         {"S (before", "Ldl (before", "Ld  (before", "Ldr (before", "Lr  (before", "Lc  (before"})
        expectMatrix(expected, std::string("iteration ") + name + " gradient)");
    expectGradient(expected, frames);
    expectMatrix(expected, "iteration Q (after gradient)");
    expected.emplace_back("alpha : ");
    expectMatrix(expected, "iteration U (before U=U+alpha*S)");
    expectMatrix(expected, "iteration U (after U=U+alpha*S)");
    expectMatrix(expected, "iteration R (before R=R-alpha*Q)");
    expectMatrix(expected, "iteration R (after R=R-alpha*Q)");
    for (const char* label : {"nr    : ", "NormB : ", "RelRes: "})
        expected.emplace_back(label);
    if (!goesOn)
        return;
    expected.emplace_back("beta  : ");
    expectMatrix(expected, "iteration S (before S=R-beta*S)");
    expectMatrix(expected, "iteration S (after S=R-beta*S)");
    expected.emplace_back("iteration Pnr: ");
}

void expectRoundStart(std::vector<std::string>& expected, int frames)
{
    expectMatrix(expected, "conjugateGradients input U");
    expectGradient(expected, frames);
    expectMatrix(expected, "conjugateGradients R (after gradient)");
    expectMatrix(expected, "conjugateGradients B (before R=B-R)");
    expectMatrix(expected, "conjugateGradients R (after R=B-R)");
    expectMatrix(expected, "conjugateGradients S (after R=B-R)");
    for (const char* label : {"Pnr   :", "NormB :", "RelRes:"})
        expected.emplace_back(label);
}

}  // namespace

// A budget of two steps, both in the first round; the second round finds it gone.
TEST(ReferenceMinimization, ReportsEveryStepInOrder)
{
    constexpr int frames = 2;
    SolverInput input(12, 10, frames);
    SuperResolutionMinimization solver(12, 10, frames, 2.0F);
    solver.setMaxIter(2);
    solver.setRelRes(1e-6F);
    const auto recorder = listenTo(solver.getInternalDebugChannelObjects(), 11);
    std::vector<float> image(24 * 20);
    EXPECT_EQ(solver.minimize(frames, 0, input.framePointers.data(), input.shifts.data(),
                              input.maskPointers.data(), image.data()),
              2);

    std::vector<std::string> expected{"start minimize", "ref mean:  ", "ref sigma: "};
    for (const char* k : {"0", "1"}) {
        expectMatrix(expected, std::string("input ") + k);
        expectMatrix(expected, std::string("normalized input ") + k);
    }
    expectMatrix(expected, "Psfs 0");
    expectMatrix(expected, "Psfs 1");
    expectMatrix(expected, "initialized B");
    expected.emplace_back("NormB:  ");
    expectMatrix(expected, "initialized U");
    expected.emplace_back("start large iteration: 0");
    expectRoundStart(expected, frames);
    for (const char* step : {"0", "1"}) {
        expected.push_back(std::string("start small iteration: ") + step);
        expectIteration(expected, frames, true);
        expected.push_back(std::string("end small iteration: ") + step);
    }
    expected.emplace_back("end large iteration: 0");
    expected.emplace_back("start large iteration: 1");
    expectRoundStart(expected, frames);
    expected.emplace_back("end large iteration: 1");
    expected.emplace_back("cummulated iterations2");
    expectMatrix(expected, "final U");
    expectMatrix(expected, "denormalized U");
    expectMatrix(expected, "output");
    expected.emplace_back("end minimize");

    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : recorder->lines) {
        EXPECT_EQ(line.channel, "SR");
        EXPECT_EQ(line.level, 11);
        // Of a line with a value that the test does not know, the label alone is compared.
        const std::size_t i = texts.size();
        const bool isLabel = i < expected.size() &&
                             (expected[i].back() == ' ' || expected[i].back() == ':') &&
                             line.text.size() > expected[i].size();
        texts.push_back(isLabel ? line.text.substr(0, expected[i].size()) : line.text);
    }
    EXPECT_THAT(texts, ElementsAreArray(expected));
}

TEST(ReferenceMinimization, ReportsTheStepThatEndsARoundAsAborted)
{
    SolverInput input(12, 10, 1);
    SuperResolutionMinimization solver(12, 10, 1, 2.0F);
    solver.setRelRes(0.2F);
    solver.setMaxIter(3);
    const auto recorder = listenTo(solver.getInternalDebugChannelObjects(), 11);
    std::vector<float> image(24 * 20);
    const int steps = solver.minimize(1, 0, input.framePointers.data(), input.shifts.data(),
                                      input.maskPointers.data(), image.data());
    EXPECT_EQ(steps, 2) << "one in each of two rounds";
    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : recorder->lines) {
        if (line.text.find("small") != std::string::npos || line.text.find("large") != std::string::npos)
            texts.push_back(line.text);
    }
    EXPECT_THAT(
        texts, ElementsAre("start large iteration: 0", "start small iteration: 0", "abort small iteration: 0",
                           "end large iteration: 0", "start large iteration: 1", "start small iteration: 0",
                           "abort small iteration: 0", "end large iteration: 1", "start large iteration: 2",
                           "end large iteration: 2"));
}

TEST(ReferenceMinimization, DescribesAMatrixOnlyWhenItIsHeard)
{
    const SuperResolutionMinimization silent(8, 8, 1, 2.0F);
    EXPECT_NO_THROW(silent.debugMat("nothing is computed", cv::Mat_<float>()));

    SuperResolutionMinimization solver(8, 8, 1, 2.0F);
    const auto recorder = listenTo({solver.getInternalDebugChannelObjects().back()}, 11);
    const cv::Mat_<float> matrix = (cv::Mat_<float>(2, 3) << 1.0F, -2.5F, 4.0F, 0.5F, 8.0F, 1.0F);
    solver.debugMat("some matrix", matrix);
    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : recorder->lines)
        texts.push_back(line.text);
    EXPECT_THAT(texts,
                ElementsAre("some matrix:", " - min:  -2.5", " - max:  8", " - sum:  12", " - mean: 2"));
    EXPECT_EQ(solver.getInternalDebugChannelObjects().size(), 2U);
}

TEST(ReferenceMinimization, AgreesWithTheFastSolverAtEverySetting)
{
    struct Setting
    {
        float sigma;
        float weight;
        float epsilon;
        float residue;
        int budget;
    };
    constexpr Setting settings[] = {{0.683F, 400.0F, 0.1F, 0.007F, 8},
                                    {0.35F, 20.0F, 0.02F, 1e-5F, 12},
                                    {0.9F, 3000.0F, 2.0F, 0.05F, 3},
                                    {0.683F, 400.0F, 0.1F, 0.007F, 0}};
    constexpr int width = 20;
    constexpr int height = 14;
    constexpr int frames = 3;
    for (const Setting& setting : settings) {
        SuperResolutionMinimization serial(width, height, frames, 2.0F);
        SrFloatMinimization fast(width, height, frames, 2.0F);
        const auto apply = [&](auto& solver) {
            solver.setPsfSigma(setting.sigma);
            solver.setWeightTV(setting.weight);
            solver.setEpsilon(setting.epsilon);
            solver.setRelRes(setting.residue);
            solver.setMaxIter(setting.budget);
            SolverInput input(width, height, frames);
            std::vector<float> image(4 * width * height);
            const int steps = solver.minimize(frames, 1, input.framePointers.data(), input.shifts.data(),
                                              input.maskPointers.data(), image.data());
            image.insert(image.end(), input.frames[2].begin(), input.frames[2].end());
            image.push_back(static_cast<float>(steps));
            return image;
        };
        // Image, a normalised frame, and the number of steps.
        EXPECT_THAT(apply(serial), testing::Pointwise(testing::FloatNear(0.002F), apply(fast)))
            << setting.weight << ", " << setting.budget;
    }
}

TEST(ReferenceMinimization, RefusesMoreFramesThanItIsMadeFor)
{
    SolverInput input(12, 10, 2);
    SuperResolutionMinimization solver(12, 10, 1, 2.0F);
    std::vector<float> image(24 * 20);
    testing::internal::CaptureStderr();
    EXPECT_THROW(solver.minimize(2, 0, input.framePointers.data(), input.shifts.data(),
                                 input.maskPointers.data(), image.data()),
                 Exception);
    testing::internal::GetCapturedStderr();
}

namespace {

// Gives the serial registration, whose caller keeps the spectra, the shape of the fast ones.
class SerialRegistration
{
public:
    SerialRegistration(int width, int height, int window)
        : registration(width, height, 2.0F, 5), spectrumSize_((width / 2 + 1) * height), window_(window)
    {}

    void prepareFrame(float* frame)
    {
        storage_.push_back(std::make_unique<float[][2]>(spectrumSize_));
        if (static_cast<int>(storage_.size()) > window_)
            storage_.erase(storage_.begin());
        registration.getFft()->forward(frame, storage_.back().get());
    }

    int doRegistration(int count, int reference, float** frames, PointF* shifts, char** masks,
                       float** registered)
    {
        std::vector<float(*)[2]> spectra;
        for (const auto& spectrum : storage_)
            spectra.push_back(spectrum.get());
        return registration.doRegistration(count, reference, frames, spectra.data(), shifts, masks,
                                           registered);
    }

    void getCompleteShifts(std::vector<PointF>& out) { registration.getCompleteShifts(out); }

    SuperResolutionRegistration registration;

private:
    int spectrumSize_;
    int window_;
    std::vector<std::unique_ptr<float[][2]>> storage_;
};

}  // namespace

TEST(ReferenceRegistration, AgreesWithItsFastTwin)
{
    const CapturedOutput taps;
    const Scene scene(frameSize, 20, 1500, 0.8, 2.5);
    RegistrationHarness<SerialRegistration> serial(frameSize, 5);
    RegistrationHarness<SrFloatRegistration1> fast(frameSize, 5);
    for (const cv::Point2d& d : burst) {
        cv::Mat_<float> frame = scene.frame(frameSize, d.x, d.y);
        if (serial.frames.size() == 2)
            frame(cv::Rect(40, 30, 16, 16)) += 4.0F;
        serial.add(frame);
        fast.add(frame);
    }
    ASSERT_EQ(serial.run(burstReference), 0);
    ASSERT_EQ(fast.run(burstReference), 0);
    for (std::size_t i = 0; i < burst.size(); ++i) {
        EXPECT_NEAR(serial.complete()[i].x, fast.complete()[i].x, 1e-4) << i;
        EXPECT_NEAR(serial.complete()[i].y, fast.complete()[i].y, 1e-4) << i;
        EXPECT_NEAR(serial.shifts[i].x, fast.shifts[i].x, 1e-4) << i;
        EXPECT_NEAR(serial.shifts[i].y, fast.shifts[i].y, 1e-4) << i;
        EXPECT_LE(cv::countNonZero(serial.masks[i] != fast.masks[i]), 3) << i;
        EXPECT_TRUE(sameBits(serial.registered[i], fast.registered[i])) << i;
    }
    EXPECT_EQ(serial.masks[2](38, 48), 0) << "the warm square is in this frame alone";
}

TEST(ReferenceRegistration, RefusesLargeDisplacementsAndThoseThatAreNotNumbers)
{
    const CapturedOutput taps;
    testing::internal::CaptureStderr();
    const cv::Size wide(96, 44);
    const cv::Mat_<float> zero(wide, 0.0F);
    RegistrationHarness<SerialRegistration> empty(wide, 5);
    empty.add(zero);
    empty.add(zero);
    EXPECT_THROW(empty.run(0), Exception);
    EXPECT_TRUE(std::isnan(empty.complete()[1].x));
    EXPECT_EQ(empty.usablePixels(0), empty.area());
    EXPECT_EQ(empty.usablePixels(1), 0);
    EXPECT_EQ(cv::countNonZero(empty.masks[2] == 5), empty.area()) << "not in use";

    cv::Mat_<float> noise(wide);
    const std::vector<float> values = randomValues(noise.total(), 20);
    std::copy(values.begin(), values.end(), noise.begin());
    cv::Mat_<float> moved(wide);
    noise(cv::Rect(0, 0, 68, 44)).copyTo(moved(cv::Rect(28, 0, 68, 44)));
    noise(cv::Rect(68, 0, 28, 44)).copyTo(moved(cv::Rect(0, 0, 28, 44)));
    RegistrationHarness<SerialRegistration> harness(wide, 2);
    harness.add(noise);
    harness.add(moved);
    try {
        harness.run(0);
        ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& failure) {
        EXPECT_STREQ(failure.what(), "Too large displacement");
        EXPECT_THAT(
            failure.where(),
            testing::MatchesRegex("modules/.*SuperResolutionRegistration\\.cpp:[0-9]+ : "
                                  "halvor::vx::SuperResolutionRegistration::doRegistration\\(\\.\\.\\)"));
    }
    EXPECT_NEAR(harness.complete()[1].x, 28.0F, 0.1F);
    testing::internal::GetCapturedStderr();
}
