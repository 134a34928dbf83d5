// SPDX-License-Identifier: Apache-2.0
// What the flat interface logs, and what it writes beside the log.

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "core/diagnostics/LogFacility.h"
#include "enhancement/superresolution/FlatContext.h"

using namespace vxtest;

namespace {

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

std::string textOf(const void* pointer)
{
    return testing::PrintToString(pointer);
}

}  // namespace

TEST_F(FlatInterfaceLog, TellsEachCall)
{
    int width = 0;
    int height = 0;
    const int number = SuperResolution_init(smallFrame.width, smallFrame.height);
    const std::string n = std::to_string(number);
    SuperResolution_setCameraAndLensType(number, "k325 FOV 25");
    SuperResolution_setCameraAndLensType(number, "unheard of");
    SuperResolution_setReferenceFrame(number, 2);
    for (const cv::Mat_<float>& frame : burst_.frames)
        SuperResolution_addImage(number, frame.ptr<float>());
    SuperResolution_queryOutputImageSize(number, &width, &height);
    SuperResolution_getSuperresolutionImage(number, image_.ptr<float>());
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
    for (int i = 0; i < 5; ++i)
        expected.insert(expected.end(),
                        {"SuperResolution_addImage(" + n + ", ...)", "  calling addFrame(...)"});
    expected.insert(expected.end(), {"  calling processFrame(...)", "  finished processFrame(...)"});
    expected.push_back("SuperResolution_queryOutputImageSize(" + n + " , " + textOf(&width) + " , " +
                       textOf(&height) + ")");
    expected.push_back("SuperResolution_getSuperresolutionImage(" + n + " , float* " + textOf(image_.data) +
                       ")");
    expected.push_back("SuperResolution_release( " + n + " )");
    // The folder of the debug images does not exist here, so no stream was open that could be closed.
    EXPECT_EQ(lines(), expected);
}

TEST_F(FlatInterfaceLog, WritesFramesAndResultsWhereTheFolderExists)
{
    std::filesystem::create_directories("C:/temp");
    cv::Mat_<float> first = burst_.frames[0].clone();
    first(10, 10) = marker(0x81);
    {
        const Context context(smallFrame);
        context.add(first);
        context.addAll(burst_.frames);
        context.image(image_);
    }
    EXPECT_EQ(lines().back(), "  closing debug image stream");
    // The raw input, ahead of any repair.
    EXPECT_TRUE(sameBits(cv::imread("C:/temp/SrFloat.pfm", cv::IMREAD_UNCHANGED), first));
    const std::size_t header = std::string("Pf\n96 72\n-1.0\n").size();
    EXPECT_EQ(std::filesystem::file_size("C:/temp/SrFloat.pfm"),
              6 * (header + first.total() * sizeof(float)));
    EXPECT_TRUE(sameBits(cv::imread("C:/temp/SrFloat-Result.pfm", cv::IMREAD_UNCHANGED), image_));
}

TEST_F(FlatInterfaceLog, GoesOnWithEachContextAndStopsWhenTheVariableIsGone)
{
    const Context first(smallFrame);
    const Context second(smallFrame);
    EXPECT_EQ(lines().front(), "SuperResolution_init( 96 , 72 )");
    EXPECT_EQ(lines().size(), 6U);
    EXPECT_EQ(halvor::vx::LogFacility::getInstance().getLogLevel(), 4);
    SuperResolution_init(-4, 2);
    EXPECT_EQ(lines().size(), 8U);
    EXPECT_EQ(lines().back(), "  got context number:-1");
    setenv("VXKIT_LOG_FILE", "", 1);
    const Context third(smallFrame);
    EXPECT_EQ(halvor::vx::LogFacility::getInstance().getLogLevel(), 0);
    SuperResolution_release(-1);
    EXPECT_EQ(lines().size(), 8U);
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
