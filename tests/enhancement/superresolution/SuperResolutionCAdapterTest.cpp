#include "enhancement/superresolution/SuperResolutionCAdapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "core/diagnostics/LogFacility.h"
#include "enhancement/superresolution/FlatInterfaceInC.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/TestBursts.h"

using namespace vxtest;
using testing::ElementsAre;

namespace {

constexpr int failure = -999;

std::string message()
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
    std::vector<int> addAll(const std::vector<cv::Mat_<float>>& frames) const
    {
        std::vector<int> codes;
        codes.reserve(frames.size());
        for (const cv::Mat_<float>& frame : frames)
            codes.push_back(add(frame));
        return codes;
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
};

/// A folder of its own as working directory, in which the debug folder's path is a relative one.
class FlatInterfaceLog : public FlatInterface
{
protected:
    void SetUp() override
    {
        FlatInterface::SetUp();
        std::filesystem::create_directories(folder_);
        std::filesystem::current_path(folder_);
        setenv("VXKIT_LOG_FILE", "log.txt", 1);
    }
    void TearDown() override
    {
        unsetenv("VXKIT_LOG_FILE");
        const Context quiet(smallFrame);
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(folder_);
        FlatInterface::TearDown();
    }

    static std::vector<std::string> lines()
    {
        std::ifstream file("log.txt");
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line);)
            if (line.find("Num corners") == std::string::npos)
                all.push_back(line);
        return all;
    }

private:
    std::filesystem::path before_ = std::filesystem::current_path();
    std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() /
        ("vxkit-flat-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

std::string pointerText(const void* pointer)
{
    std::ostringstream text;
    text << pointer;
    return text.str();
}

}  // namespace

TEST_F(FlatInterface, GivesWhatTheEngineWithTheSameSettingsGives)
{
    using namespace halvor::vx;
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    SrFloat<SrFloatRegistration2> engine(smallFrame.width, smallFrame.height, 5, 2.0F);
    engine.setReferenceIndex(3);
    engine.setPsfSigma(0.625F);
    for (const cv::Mat_<float>& frame : burst.frames)
        engine.addFrame(frame);
    cv::Mat_<float> expected;
    EXPECT_GT(engine.computeSR(expected), 1.8F);

    const Context context(smallFrame);
    EXPECT_EQ(SuperResolution_setCameraAndLensType(context.number(), "k322 FOV25"), 0);
    EXPECT_THAT(context.addAll(burst.frames), ElementsAre(0, 0, 0, 0, 0));
    cv::Size size;
    EXPECT_EQ(context.query(size), 0);
    EXPECT_EQ(size, smallFrame * 2);
    cv::Mat_<float> image(size, -1.0F);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(context.number(), image.ptr<float>()), 0);
    EXPECT_TRUE(sameBits(image, expected));
}

TEST_F(FlatInterface, WorksFromC)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    cv::Mat_<float> frames;
    for (const cv::Mat_<float>& frame : burst.frames)
        frames.push_back(frame);
    cv::Mat_<float> image(smallFrame * 2, -1.0F);
    EXPECT_EQ(addAndFetchInC(frames.ptr<float>(), smallFrame.width, smallFrame.height, 5, image.ptr<float>()),
              0);
    EXPECT_GT(cv::mean(image)[0], 0.0);
}

TEST_F(FlatInterface, GivesOutTheLowestFreeNumberWithAFreshCount)
{
    const Context kept(smallFrame);
    const int first = SuperResolution_init(smallFrame.width, smallFrame.height);
    const Context second(smallFrame);
    EXPECT_GT(first, kept.number());
    EXPECT_GT(second.number(), first);
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    for (const cv::Mat_<float>& frame : burst.frames)
        EXPECT_EQ(SuperResolution_addImage(first, frame.ptr<float>()), 0);
    EXPECT_EQ(SuperResolution_release(first), 0);
    EXPECT_EQ(SuperResolution_release(first), failure);

    const Context again({100, 80});
    EXPECT_EQ(again.number(), first);
    cv::Size size;
    EXPECT_EQ(again.query(size), -5);
    EXPECT_EQ(size, cv::Size(200, 160));
}

TEST_F(FlatInterface, KeepsContextsApart)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const Context alone(smallFrame);
    alone.addAll(burst.frames);
    cv::Mat_<float> expected(smallFrame * 2);
    SuperResolution_getSuperresolutionImage(alone.number(), expected.ptr<float>());

    const Context one(smallFrame);
    const Context other({64, 48});
    const vxsupport::Burst otherBurst = burstOf({64, 48}, gentleShifts());
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(one.add(burst.frames[i]), 0);
        EXPECT_EQ(other.add(otherBurst.frames[4 - i]), 0);
    }
    // The table has grown meanwhile, which moves every record.
    std::vector<int> more(20);
    for (int& number : more)
        number = SuperResolution_init(16, 16);
    cv::Mat_<float> image(smallFrame * 2);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(one.number(), image.ptr<float>()), 0);
    EXPECT_TRUE(sameBits(image, expected));
    for (const int number : more)
        EXPECT_EQ(SuperResolution_release(number), 0);
}

TEST_F(FlatInterface, RefusesNumbersOfNoOpenContext)
{
    int released = 0;
    {
        const Context context(smallFrame);
        released = context.number();
    }
    std::vector<float> frame(static_cast<std::size_t>(smallFrame.area()) * 4);
    int width = -7;
    int height = -7;
    for (const int number : {released, -1, std::numeric_limits<int>::min(), 1000000}) {
        const std::vector<std::function<int()>> calls{
            [&] { return SuperResolution_addImage(number, frame.data()); },
            [&] { return SuperResolution_addImage(number, nullptr); },
            [&] { return SuperResolution_queryOutputImageSize(number, &width, &height); },
            [&] { return SuperResolution_getSuperresolutionImage(number, frame.data()); },
            [&] { return SuperResolution_setReferenceFrame(number, 99); },
            [&] { return SuperResolution_release(number); }};
        for (const auto& call : calls) {
            const Context other(cv::Size(0, 0));
            SuperResolution_addImage(other.number(), frame.data());
            EXPECT_EQ(message(), "Size of expected Ir images unknown");
            SuperResolution_release(other.number());
            EXPECT_EQ(call(), failure);
            EXPECT_EQ(message(), "Context invalid.");
        }
        EXPECT_EQ(SuperResolution_setCameraAndLensType(number, "k310 FOV20"), 0);
    }
    EXPECT_EQ(width, -7);
    EXPECT_EQ(height, -7);
}

TEST_F(FlatInterface, OpensSizesThatCantTakeFramesAndTellsSoLater)
{
    for (const cv::Size size : {cv::Size(0, 8), cv::Size(8, 0), cv::Size(0, 0)}) {
        const Context context(size);
        ASSERT_GE(context.number(), 0);
        const float pixel = 20.0F;
        EXPECT_EQ(SuperResolution_addImage(context.number(), &pixel), failure);
        EXPECT_EQ(message(), "Size of expected Ir images unknown");
        cv::Size out(-1, -1);
        EXPECT_NE(context.query(out), 0);
        EXPECT_EQ(out, size * 2);
    }
    EXPECT_EQ(SuperResolution_init(-1, 8), -1);
    EXPECT_EQ(message(), "Invalid image size: -1 x 8");
}

TEST_F(FlatInterface, RefusesANullFrameWithoutCountingIt)
{
    const Context context(smallFrame);
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(context.add(burst.frames[static_cast<std::size_t>(i)]), 0);
    EXPECT_EQ(SuperResolution_addImage(context.number(), nullptr), failure);
    EXPECT_EQ(message(), "ir image data pointer is NULL");
    cv::Size size;
    EXPECT_EQ(context.query(size), -5);
    EXPECT_EQ(context.add(burst.frames[4]), 0);
    EXPECT_EQ(context.query(size), 0);
    // A success clears nothing.
    EXPECT_EQ(message(), "Not enough input images (<5)");
}

TEST_F(FlatInterface, GivesAPreviewBeforeTheFifthFrame)
{
    const Context context(smallFrame);
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    cv::Mat_<float> image(smallFrame * 2, -1.0F);
    cv::Size size;
    for (std::size_t i = 0; i < 4; ++i) {
        context.add(burst.frames[i]);
        EXPECT_EQ(context.query(size), -5);
        EXPECT_EQ(message(), "Not enough input images (<5)");
        EXPECT_EQ(size, smallFrame * 2);
        EXPECT_EQ(SuperResolution_getSuperresolutionImage(context.number(), image.ptr<float>()), -5);
        EXPECT_NEAR(cv::mean(image)[0], cv::mean(burst.frames[0])[0], 0.5);
    }
}

TEST_F(FlatInterface, TellsAFrameWithoutStructureButTakesIt)
{
    const Context context(smallFrame);
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    EXPECT_EQ(context.add(cv::Mat_<float>(smallFrame, 20.0F)), -4);
    EXPECT_EQ(message(), "  image has not enough structure");
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(context.add(burst.frames[i]), 0);
    // It was counted: this one is the fifth. What is tracked into the flat frame is open.
    context.add(burst.frames[3]);
    cv::Size size;
    EXPECT_EQ(context.query(size), 0);
    EXPECT_EQ(context.add(burst.frames[4]), 0);
}

TEST_F(FlatInterface, RanksItsCodes)
{
    const Context context(smallFrame);
    cv::Mat_<float> flat(smallFrame, 0.0F);
    flat(0, 0) = marker(0x84);  // becomes 0, so the frame has neither structure nor a corner
    EXPECT_EQ(context.add(flat), -2);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(context.add(flat), -2);
    EXPECT_EQ(context.add(flat), -9);
    EXPECT_EQ(message(), "  image has not enough structure");

    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const Context good(smallFrame);
    for (std::size_t i = 0; i < 4; ++i)
        good.add(burst.frames[i]);
    cv::Mat_<float> last = burst.frames[4].clone();
    last(0, 0) = marker(0x85);
    EXPECT_EQ(good.add(last), -2);
    cv::Mat_<float> image(smallFrame * 2, -1.0F);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(good.number(), image.ptr<float>()), 0);
    EXPECT_GT(cv::mean(image)[0], 0.0);
}

TEST_F(FlatInterface, HasNoCodeForALargeDisplacement)
{
    std::vector<PointF> shifts = gentleShifts();
    shifts[4] = {9.0F, 0.0F};
    const Context context(smallFrame);
    EXPECT_THAT(context.addAll(burstOf(smallFrame, shifts).frames), ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(FlatInterface, TellsAFrameThatDoesNotFitTheOthers)
{
    vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    // The tracker finds the scene, but its temperatures disagree in soft patches everywhere.
    for (int y = 0; y < smallFrame.height; ++y)
        for (int x = 0; x < smallFrame.width; ++x)
            burst.frames[4](y, x) +=
                5.0F * std::sin(0.26F * static_cast<float>(x)) * std::sin(0.26F * static_cast<float>(y));
    const Context context(smallFrame);
    EXPECT_THAT(context.addAll(burst.frames), ElementsAre(0, 0, 0, 0, -3));
}

TEST_F(FlatInterface, TurnsExceptionsIntoACodeAndAMessage)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const Context context(smallFrame);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(context.add(burst.frames[i]), 0);
    EXPECT_EQ(context.add(ruined(burst.frames[4])), failure);
    EXPECT_EQ(message(), "Too many defect pixels. No processing possible.");
    // Not counted, and no obstacle to what follows.
    cv::Size size;
    EXPECT_NE(context.query(size), 0);
    EXPECT_EQ(size, smallFrame * 2);
    for (int i = 0; i < 2; ++i)
        context.addAll(burst.frames);
    EXPECT_EQ(context.add(burst.frames[0]), 0);

    const cv::Size strip{128, 24};
    std::vector<PointF> shifts = gentleShifts();
    shifts[4] = {13.0F, 0.0F};
    const Context narrow(strip);
    EXPECT_THAT(narrow.addAll(burstOf(strip, shifts).frames), ElementsAre(0, 0, 0, 0, failure));
    EXPECT_EQ(message(), "Too large displacement");
    EXPECT_EQ(narrow.query(size), 0);  // counted, as the frame itself was taken
}

TEST_F(FlatInterface, LetsTheEnginesRefusalOfAReferencePass)
{
    const Context context(smallFrame);
    for (int index = 0; index < 5; ++index)
        EXPECT_EQ(SuperResolution_setReferenceFrame(context.number(), index), 0);
    for (const int index : {5, -1}) {
        try {
            SuperResolution_setReferenceFrame(context.number(), index);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const char* text) {
            EXPECT_STREQ(text, "Invalid reference index specified.");
        }
    }
}

TEST_F(FlatInterface, MovesTheImageWithTheReference)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    std::vector<cv::Mat_<float>> images;
    for (const int index : {3, 0}) {
        const Context context(smallFrame);
        SuperResolution_setReferenceFrame(context.number(), index);
        context.addAll(burst.frames);
        images.emplace_back(smallFrame * 2, -1.0F);
        SuperResolution_getSuperresolutionImage(context.number(), images.back().ptr<float>());
    }
    // The newest frame sees the scene 1.7 pixels higher than the second: about three of the large image's.
    const cv::Rect inner(20, 20, 152, 104);
    const cv::Rect lower(20, 23, 152, 104);
    EXPECT_LT(cv::norm(images[1](inner), images[0](lower)),
              0.5 * cv::norm(images[1](inner), images[0](inner)));
}

TEST_F(FlatInterface, CopiesTheMessageAsFarAsItFits)
{
    SuperResolution_release(-1);
    std::array<char, 24> buffer{};
    buffer.fill('#');
    EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), 7), 0);
    EXPECT_EQ(std::string(buffer.data(), 9), "Context##");
    EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), 20), 0);
    EXPECT_EQ(std::string(buffer.data(), 22), std::string("Context invalid.\0\0\0\0##", 22));
    for (const int size : {0, -1})
        EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), size), 0);
    EXPECT_EQ(buffer[0], 'C');
}

TEST_F(FlatInterfaceLog, TellsEachCall)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    cv::Mat_<float> image(smallFrame * 2);
    int width = 0;
    int height = 0;
    const int number = SuperResolution_init(smallFrame.width, smallFrame.height);
    const std::string n = std::to_string(number);
    SuperResolution_setCameraAndLensType(number, "k325 FOV 25");
    SuperResolution_setCameraAndLensType(number, "unheard of");
    SuperResolution_setReferenceFrame(number, 2);
    for (const cv::Mat_<float>& frame : burst.frames)
        SuperResolution_addImage(number, frame.ptr<float>());
    SuperResolution_queryOutputImageSize(number, &width, &height);
    SuperResolution_getSuperresolutionImage(number, image.ptr<float>());
    SuperResolution_getErrorMessage(nullptr, 0);
    SuperResolution_release(number);

    std::vector<std::string> expected{
        "SuperResolution_init( 96 , 72 )",
        "  opening debug image stream to: C:/temp/SrFloat.pfm",
        "  got context number:" + n,
        "SuperResolution_setCameraAndLensType(k325 FOV 25)",
        "  decoded camera: k325 FOV: 25",
        "  using sigma: 0.35",
        "SuperResolution_setCameraAndLensType(unheard of)",
        "  using sigma: 0.683",
        "SuperResolution_setReferencFrame(" + n + " , 2)",
    };
    for (int i = 0; i < 5; ++i) {
        expected.push_back("SuperResolution_addImage(" + n + ", ...)");
        expected.emplace_back("  calling addFrame(...)");
    }
    expected.emplace_back("  calling processFrame(...)");
    expected.emplace_back("  finished processFrame(...)");
    expected.push_back("SuperResolution_queryOutputImageSize(" + n + " , " + pointerText(&width) + " , " +
                       pointerText(&height) + ")");
    expected.push_back("SuperResolution_getSuperresolutionImage(" + n + " , float* " +
                       pointerText(image.data) + ")");
    expected.push_back("SuperResolution_release( " + n + " )");
    // The folder of the debug images does not exist here, so no stream was open that could be closed.
    EXPECT_EQ(lines(), expected);
}

TEST_F(FlatInterfaceLog, WritesFramesAndResultsWhereTheFolderExists)
{
    std::filesystem::create_directories("C:/temp");
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    cv::Mat_<float> first = burst.frames[0].clone();
    first(10, 10) = marker(0x81);
    cv::Mat_<float> image(smallFrame * 2);
    {
        const Context context(smallFrame);
        context.add(first);
        context.addAll(burst.frames);
        SuperResolution_getSuperresolutionImage(context.number(), image.ptr<float>());
    }
    EXPECT_EQ(lines().back(), "  closing debug image stream");
    // The raw input, ahead of any repair.
    const cv::Mat_<float> logged = cv::imread("C:/temp/SrFloat.pfm", cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(sameBits(logged, first));
    const std::size_t header = std::string("Pf\n96 72\n-1.0\n").size();
    EXPECT_EQ(std::filesystem::file_size("C:/temp/SrFloat.pfm"),
              6 * (header + first.total() * sizeof(float)));
    const cv::Mat_<float> result = cv::imread("C:/temp/SrFloat-Result.pfm", cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(sameBits(result, image));
}

TEST_F(FlatInterfaceLog, StartsAnewWithEachContextAndStopsWhenTheVariableIsGone)
{
    const Context first(smallFrame);
    const Context second(smallFrame);
    EXPECT_EQ(lines().front(), "SuperResolution_init( 96 , 72 )");
    EXPECT_EQ(lines().size(), 3U);
    EXPECT_EQ(halvor::vx::LogFacility::getInstance().getLogLevel(), 4);
    SuperResolution_init(-4, 2);
    EXPECT_THAT(lines(), ElementsAre("SuperResolution_init( -4 , 2 )", "  got context number:-1"));
    setenv("VXKIT_LOG_FILE", "", 1);
    const Context third(smallFrame);
    EXPECT_EQ(halvor::vx::LogFacility::getInstance().getLogLevel(), 0);
    SuperResolution_release(-1);
    EXPECT_EQ(lines().size(), 2U);
}

TEST_F(FlatInterfaceLog, ShowsWhereALineComesFromWhenAsked)
{
    halvor::vx::LogFacility::getInstance().setShowCodeInfo(true);
    const Context context(smallFrame);
    halvor::vx::LogFacility::getInstance().setShowCodeInfo(false);
    EXPECT_THAT(lines().front(),
                testing::MatchesRegex("modules/enhancement/superresolution/SuperResolutionCAdapter\\.cpp, "
                                      "[0-9]+ : SuperResolution_init\\( 96 , 72 \\)"));
}
