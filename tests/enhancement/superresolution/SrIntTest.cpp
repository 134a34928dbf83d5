// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrInt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

#include "core/base/Exception.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/RegistrationHarness.h"
#include "enhancement/superresolution/VideoHarness.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

const cv::Size size(32, 50);

/// Answers what a test wants, and remembers what the driver asked for.
struct ScriptedRegistration
{
    ScriptedRegistration(int, int, unsigned int) {}

    int prepareFrame(const cv::Mat_<short>&) { return prepared; }
    void clearFrames() { ++cleared; }
    int doRegistrationVideo(const std::vector<cv::Mat_<short>>& frames,
                            std::vector<cv::Point_<Fixpoint>>& subShifts,
                            std::vector<cv::Point_<Fixpoint>>& totalShifts,
                            std::vector<cv::Point_<short>>& roundedShifts,
                            std::vector<cv::Mat_<signed char>>& masks,
                            std::vector<cv::Mat_<short>>& shiftedFrames)
    {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            subShifts[i] = {Fixpoint(0.25F), Fixpoint(-0.125F)};
            totalShifts[i] = {Fixpoint(shift.x), Fixpoint(shift.y)};
            roundedShifts[i] = {7, 8};
            masks[i] = cv::Mat_<signed char>(size, std::int8_t{1});
            masks[i].rowRange(0, lostRows).setTo(0);
            shiftedFrames[i] = frames[i];
        }
        if (fail)
            fail();
        return result;
    }
    float getRegError() const { return regError; }
    void setRegError(float error) { regError = error; }

    static inline int prepared = 0;
    static inline int cleared = 0;
    static inline int result = 0;
    static inline PointF shift{};
    static inline int lostRows = 0;
    static inline void (*fail)() = nullptr;
    float regError = 0.5F;
};

class ScriptedMinimization : public SrIntMinimization
{
public:
    using SrIntMinimization::SrIntMinimization;

    void generatePsfs(short n, const PointF* shifts)
    {
        psfs = n;
        subShift = shifts[0];
    }
    short minimize(short numFrames, short refIndex, std::vector<cv::Mat_<float>>& frames,
                   const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<float>& image)
    {
        ++solved;
        count = numFrames;
        reference = refIndex;
        EXPECT_EQ(frames.size(), static_cast<std::size_t>(numFrames));
        EXPECT_EQ(masks.size(), frames.size());
        newest = frames.back()(0, 0);
        image.setTo(40000.0F);
        image(0, 0) = 2.5F;
        return answer;
    }

    static inline int psfs = 0;
    static inline PointF subShift{};
    static inline int solved = 0;
    static inline int count = 0;
    static inline int reference = 0;
    static inline float newest = 0.0F;
    static inline short answer = 3;
};

class SrIntDriver : public testing::Test
{
public:
    SrIntDriver()
    {
        ScriptedRegistration::prepared = ScriptedRegistration::result = ScriptedRegistration::lostRows = 0;
        ScriptedRegistration::shift = {};
        ScriptedRegistration::fail = nullptr;
        ScriptedMinimization::solved = 0;
        ScriptedMinimization::answer = 3;
    }

    int add(short value) { return engine.addFrame(cv::Mat_<short>(size, value)); }
    int codeFor(PointF shift, int lostRows)
    {
        ScriptedRegistration::shift = shift;
        ScriptedRegistration::lostRows = lostRows;
        return engine.computeSr(image);
    }

    std::vector<cv::Mat_<unsigned char>> masksNow()
    {
        std::vector<cv::Mat_<unsigned char>> masks;
        engine.getMasks(masks);
        return masks;
    }

    SrInt<ScriptedRegistration, ScriptedMinimization> engine{size.width, size.height, 3, 2.0F};
    cv::Mat_<short> image;
};

using Engine = SrInt<SrIntRegistration, SrIntMinimization>;

int feed(Engine& engine, const std::vector<cv::Mat_<short>>& frames, cv::Mat_<short>& image)
{
    int code = 0;
    for (const cv::Mat_<short>& frame : frames) {
        engine.setSkipMinimization(&frame != &frames.back());
        EXPECT_EQ(engine.addFrame(frame), 0);
        code = engine.computeSr(image);
    }
    return code;
}

}  // namespace

TEST_F(SrIntDriver, HandsTheWindowToTheSolver)
{
    engine.setReferenceIndex(2);
    for (short value = 1; value <= 4; ++value) {
        EXPECT_EQ(add(value), 0);
        EXPECT_EQ(engine.computeSr(image), 0);
        EXPECT_EQ(ScriptedMinimization::psfs, std::min<int>(value, 3));
        EXPECT_EQ(ScriptedMinimization::count, std::min<int>(value, 3));
        EXPECT_EQ(ScriptedMinimization::reference, 0);
        EXPECT_EQ(ScriptedMinimization::newest, static_cast<float>(value));
    }
    engine.setReferenceIndex(0);
    engine.computeSr(image);
    EXPECT_EQ(ScriptedMinimization::reference, 2);
    EXPECT_EQ(ScriptedMinimization::subShift.x, 0.25F);
    EXPECT_EQ(ScriptedMinimization::subShift.y, -0.125F);
    EXPECT_EQ(engine.getRoundedTotalShift(1), cv::Point_<short>(7, 8));
    EXPECT_EQ(image.size(), size * 2);
    EXPECT_EQ(image(0, 0), 2) << "halves to the even value";
    EXPECT_EQ(image(5, 5), 32767);

    const int solved = ScriptedMinimization::solved;
    engine.setSkipMinimization(true);
    EXPECT_EQ(codeFor({5.5F, 0.0F}, 0), -6) << "warns all the same";
    EXPECT_EQ(ScriptedMinimization::solved, solved);
    engine.setSkipMinimization(false);
    ScriptedMinimization::answer = -4;
    EXPECT_EQ(engine.computeSr(image), -4);
}

TEST_F(SrIntDriver, WarnsOfLargeDisplacementsAndPoorFrames)
{
    add(1);
    EXPECT_EQ(codeFor({5.0F, 5.0F}, 24), 0) << "a tenth of the height, and less than half of the pixels";
    EXPECT_EQ(codeFor({5.5F, 0.0F}, 0), -6);
    EXPECT_EQ(codeFor({-5.5F, 0.0F}, 0), -6);
    EXPECT_EQ(codeFor({0.0F, 5.5F}, 25), -6) << "overrides the other warning";
    EXPECT_EQ(codeFor({0.0F, -1000.0F}, 0), 0) << "upwards nothing is too far";
    EXPECT_EQ(codeFor({0.0F, 0.0F}, 25), -3);
    const std::vector<cv::Mat_<unsigned char>> masks = masksNow();
    ASSERT_EQ(masks.size(), 3U);
    EXPECT_EQ(cv::countNonZero(masks[0]), size.area() / 2);
    EXPECT_EQ(cv::countNonZero(masks[2]), 0) << "no frame there";
}

TEST_F(SrIntDriver, TurnsAnyFailureOfTheRegistrationIntoItsCode)
{
    add(1);
    EXPECT_EQ(codeFor({2.0F, 1.0F}, 5), 0);
    image.setTo(9);
    const auto expectUnchanged = [&] {
        EXPECT_EQ(codeFor({4.0F, 4.0F}, 9), -998);
        EXPECT_EQ(engine.getTotalShift(0).x, 2.0F);
        EXPECT_EQ(cv::countNonZero(masksNow()[0] == 0), 5 * size.width);
        EXPECT_EQ(image(0, 0), 9);
    };
    ScriptedRegistration::result = -1;
    expectUnchanged();
    ScriptedRegistration::result = 0;
    for (void (*const fail)() : {+[] { throw Exception("of ours", "test"); },
                                 +[] { throw cv::Exception(1, "of OpenCV", "", "", 1); }, +[] { throw 7; }}) {
        ScriptedRegistration::fail = fail;
        expectUnchanged();
    }
    ScriptedRegistration::fail = [] { throw std::bad_alloc(); };
    EXPECT_THROW(engine.computeSr(image), std::bad_alloc);
    ScriptedRegistration::fail = nullptr;
    EXPECT_EQ(codeFor({4.0F, 4.0F}, 9), 0);
    EXPECT_EQ(engine.getTotalShift(0).x, 4.0F);
}

TEST_F(SrIntDriver, EmptiesItsWindowWhenAFrameIsRefused)
{
    add(1);
    ScriptedRegistration::prepared = -5;
    EXPECT_EQ(add(2), 0) << "any other answer";
    ScriptedRegistration::prepared = -8;
    const int cleared = ScriptedRegistration::cleared;
    EXPECT_EQ(add(3), -8);
    EXPECT_EQ(ScriptedRegistration::cleared, cleared + 1);
    EXPECT_EQ(engine.computeSr(image), -998) << "nothing to compute from";
    EXPECT_EQ(ScriptedMinimization::solved, 0);
    engine.getTotalShift(2);
    EXPECT_THROW(engine.getTotalShift(3), Exception);
    EXPECT_THROW(engine.addFrame(cv::Mat_<short>(3, 3)), Exception);
    ScriptedRegistration::prepared = 0;
    add(4);
    EXPECT_EQ(engine.computeSr(image), 0);
    EXPECT_EQ(ScriptedMinimization::count, 1);
}

TEST_F(SrIntDriver, ChecksItsSettings)
{
    const auto expectRefusal = [](const char* reason, const std::function<void()>& call) {
        try {
            call();
            ADD_FAILURE() << "accepted: " << reason;
        } catch (const char* told) {
            EXPECT_STREQ(told, reason);
        }
    };
    expectRefusal("Invalid maximum number of iterations specified.", [&] { engine.setMaxCGIters(0); });
    expectRefusal("Invalid standard deviation of the sensor psf specified.",
                  [&] { engine.setPsfSigma(0.0F); });
    expectRefusal("Invalid reference index specified.", [&] { engine.setReferenceIndex(3); });
    expectRefusal("Invalid reference index specified.", [] { Engine(32, 32, 0, 2.0F); });
    expectRefusal("Invalid maximum registration error specified.", [&] { engine.setRegError(1.5F); });
    expectRefusal("Invalid total-variation term residue specified.",
                  [&] { engine.setRelativeResidue(1e-6F); });
    expectRefusal("Invalid total-variation term weight specified.", [&] { engine.setWeightTV(0.9F); });
    EXPECT_THROW(engine.setWeightTV(601.0F), Exception);
    engine.setRegError(1.0F);
    EXPECT_EQ(engine.getRegError(), 1.0F);
    EXPECT_NEAR(engine.getRelativeResidue(), 0.007F, 1e-6F);
    EXPECT_FALSE(engine.checkImageStructureQuality(cv::Mat_<short>(2, 2, short{5})));
    engine.setMinStructureThreshold(0.0F);
    EXPECT_TRUE(engine.checkImageStructureQuality(cv::Mat_<short>(2, 2, short{5})));

    for (const auto& [width, window, factor] :
         {std::tuple{-1, 3U, 2.0F}, {40000, 3U, 2.0F}, {32, 40000U, 2.0F}, {32, 3U, 2.5F}, {32, 3U, 3.0F}})
        EXPECT_THROW(Engine(width, 32, window, factor), Exception)
            << width << ", " << window << ", " << factor;
}

TEST(SrInt, StartsAgainAfterAFrameThatLeavesTheRange)
{
    const std::vector<cv::Mat_<short>> frames =
        countsOf(videoBurst({64, 48}, vxsupport::SceneKind::facade).frames);
    cv::Mat_<short> expected;
    cv::Mat_<short> image;
    Engine fresh(64, 48, 5, 2.0F);
    feed(fresh, frames, expected);

    Engine engine(64, 48, 5, 2.0F);
    cv::Mat_<short> dim;
    frames[0].convertTo(dim, CV_16S, 0.25);
    engine.addFrame(dim);
    EXPECT_EQ(engine.addFrame(frames[0]), -8);
    EXPECT_EQ(engine.computeSr(image), -998);
    EXPECT_EQ(feed(engine, frames, image), 0);
    EXPECT_GT(engine.getCumIters(), 0);
    EXPECT_TRUE(sameBits(image, expected));
}

TEST(SrInt, TellsItsStagesWithTheirTimes)
{
    Engine engine(32, 24, 2, 2.0F);
    engine.addFrame(countsOf(fineScene({32, 24}).frame({32, 24}, 0.0, 0.0)));
    engine.setSkipMinimization(true);
    const HeardProcess heard;
    cv::Mat_<short> image;
    engine.computeSr(image);
    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : heard.recorder->lines)
        texts.push_back(line.text);
    using testing::Contains;
    using testing::MatchesRegex;
    EXPECT_EQ(texts.front(), "start computeSr");
    for (const char* label : {" registration:         ", " large_displacement:   ", " minimization:         ",
                              " save.srfactor calc:   "})
        EXPECT_THAT(texts, Contains(MatchesRegex(std::string(label) + "[0-9.e-]+.ms.")));
    EXPECT_EQ(texts.back(), "end computeSr");
}
