// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionMinimization.h"

#include <gmock/gmock.h>

#include <cctype>
#include <opencv2/core.hpp>

#include "core/base/Exception.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/SolverBurst.h"
#include "enhancement/superresolution/SrFloatMinimization.h"

using namespace halvor::vx;
using namespace vxtest;
using testing::ElementsAre;

namespace {

// What a solver says, without values; of a matrix its name alone.
std::string labelsOf(const LineRecorder& recorder)
{
    std::string labels;
    for (const std::string& text : recorder.textsOf("SR", 11)) {
        const bool hasValue = std::isdigit(static_cast<unsigned char>(text.back())) != 0;
        const std::size_t end = hasValue ? text.find_last_not_of("0123456789.e+-") + 1 : text.size();
        if (!text.starts_with(" - "))
            labels += text.substr(0, end) + "|";
    }
    return labels;
}

}  // namespace

TEST(ReferenceMinimization, AgreesWithTheFastSolverAtEverySetting)
{
    const SolverBurst burst = makeSolverBurst(20, 14, 3, 7);
    for (const SolverSettings& settings :
         {SolverSettings{}, SolverSettings{0.35F, 20.0F, 0.02F, 1e-5F, 12},
          SolverSettings{0.9F, 3000.0F, 2.0F, 0.05F, 3}, SolverSettings{.maxIter = 0}}) {
        const SolverOutcome serial = solve<SuperResolutionMinimization>(burst, settings);
        const SolverOutcome fast = solve<SrFloatMinimization>(burst, settings);
        EXPECT_EQ(serial.steps, fast.steps);
        EXPECT_THAT(serial.image, testing::Pointwise(testing::FloatNear(1e-4F), fast.image))
            << settings.weightTV << ", " << settings.maxIter;
        EXPECT_THAT(serial.frames, testing::Pointwise(testing::FloatNear(1e-5F), fast.frames));
    }
}

// One frame and a budget of one step; readers of traces look for these texts.
TEST(ReferenceMinimization, ReportsEveryStepInOrder)
{
    const SolverBurst burst = makeSolverBurst(12, 10, 1, 4);
    SuperResolutionMinimization solver(12, 10, 1, 2.0F);
    const auto recorder = listenTo(solver.getInternalDebugChannelObjects(), 11);
    EXPECT_EQ(run(solver, burst, {.relRes = 1e-6F, .maxIter = 1}).steps, 1);
    const std::string gradient =
        "start gradient|gradient for frame: |gradient TmpConv (between validCorr & fullConv) 0:|end "
        "gradient|";
    EXPECT_EQ(labelsOf(*recorder),
              "start minimize|ref mean:  |ref sigma: |input 0:|normalized input 0:|Psfs 0:|initialized B:|"
              "NormB:  |initialized U:|start large iteration: |conjugateGradients input U:|" +
                  gradient +
                  "conjugateGradients R (after gradient):|conjugateGradients B (before R=B-R):|"
                  "conjugateGradients R (after R=B-R):|conjugateGradients S (after R=B-R):|Pnr   :|NormB :|"
                  "RelRes:|start small iteration: |iteration S (before gradient):|"
                  "iteration Ldl (before gradient):|iteration Ld  (before gradient):|"
                  "iteration Ldr (before gradient):|iteration Lr  (before gradient):|"
                  "iteration Lc  (before gradient):|" +
                  gradient +
                  "iteration Q (after gradient):|alpha : |iteration U (before U=U+alpha*S):|"
                  "iteration U (after U=U+alpha*S):|iteration R (before R=R-alpha*Q):|"
                  "iteration R (after R=R-alpha*Q):|nr    : |NormB : |RelRes: |beta  : |"
                  "iteration S (before S=R-beta*S):|iteration S (after S=R-beta*S):|iteration Pnr: |"
                  "end small iteration: |end large iteration: |cummulated iterations|final U:|"
                  "denormalized U:|output:|end minimize|");
}

TEST(ReferenceMinimization, ReportsTheStepThatEndsARoundAsAborted)
{
    SuperResolutionMinimization solver(12, 10, 1, 2.0F);
    const auto recorder = listenTo(solver.getInternalDebugChannelObjects(), 11);
    const SolverOutcome outcome = run(solver, makeSolverBurst(12, 10, 1, 4), {.relRes = 0.2F, .maxIter = 3});
    EXPECT_GT(outcome.steps, 0);
    EXPECT_THAT(recorder->textsOf("SR", 11),
                testing::Contains("abort small iteration: " + std::to_string(outcome.steps - 1)));
}

TEST(ReferenceMinimization, DescribesAMatrixOnlyWhenItIsHeard)
{
    SuperResolutionMinimization solver(8, 8, 1, 2.0F);
    EXPECT_NO_THROW(solver.debugMat("nothing is computed", cv::Mat_<float>()));
    const auto recorder = listenTo({solver.getInternalDebugChannelObjects().back()}, 11);
    solver.debugMat("some matrix", cv::Mat_<float>((cv::Mat_<float>(2, 3) << 1, -2.5F, 4, 0.5F, 8, 1)));
    EXPECT_THAT(recorder->textsOf("SR", 11),
                ElementsAre("some matrix:", " - min:  -2.5", " - max:  8", " - sum:  12", " - mean: 2"));
}

TEST(ReferenceMinimization, RefusesMoreFramesThanItIsMadeFor)
{
    SuperResolutionMinimization solver(12, 10, 1, 2.0F);
    EXPECT_THROW(run(solver, makeSolverBurst(12, 10, 2, 4)), Exception);
}
