#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "FrameSamples.h"
#include "ProgramRun.h"
#include "TemporaryFolder.h"

using testing::AllOf;
using testing::HasSubstr;

namespace {

class CompareCommand : public TemporaryFolder
{
protected:
    std::string at(const std::string& name) const { return (folder / name).string(); }
    cv::Mat read(const std::string& name) const { return cv::imread(at(name), cv::IMREAD_UNCHANGED); }

    ProgramRun simulate(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"simulate", "--size", "48x36", "--format", "tiff", at("burst")});
        return runVxkit(options);
    }
};

}  // namespace

TEST_F(CompareCommand, MeasuresAgainstTheReferenceAndRemovesAShiftWhenAsked)
{
    ASSERT_EQ(simulate({"--netd", "0", "--frames", "2"}).status, 0);
    const std::string truth = at("burst/truth.tiff");
    const ProgramRun same = runVxkit({"compare", truth, truth});
    ASSERT_EQ(same.status, 0) << same.error;
    EXPECT_THAT(same.out,
                AllOf(HasSubstr("PSNR inf dB"), HasSubstr("SSIM 1.0000"), HasSubstr("difference 0.000")));

    const ProgramRun framed = runVxkit({"compare", truth, truth, "--bicubic", at("burst/frame-0001.tiff"),
                                        "--picture", at("p.png"), "--region", "8,8,40,30"});
    ASSERT_EQ(framed.status, 0) << framed.error;
    EXPECT_THAT(framed.out, HasSubstr("bicubic enlargement"));
    EXPECT_GT(read("p.png").cols, 3 * 40);

    const auto largest = [&](const std::vector<std::string>& options) {
        std::vector<std::string> line = {"compare", at("burst/frame-0000.tiff"), at("burst/frame-0001.tiff"),
                                         "--margin", "4"};
        line.insert(line.end(), options.begin(), options.end());
        const std::string out = runVxkit(line).out;
        return std::stod(out.substr(out.find("PSNR ") + 5));
    };
    EXPECT_GT(largest({"--align"}), largest({}) + 3.0);
}

TEST_F(CompareCommand, RefusesWhatItCantCompare)
{
    ASSERT_EQ(simulate({}).status, 0);
    const std::string truth = at("burst/truth.tiff");
    const std::string frame = at("burst/frame-0000.tiff");
    EXPECT_THAT(runVxkit({"compare", frame, truth}).error, AllOf(HasSubstr(frame), HasSubstr("96x72")));
    const std::vector<std::vector<std::string>> lines = {
        {frame, truth},
        {at("missing.tif"), truth},
        {truth, truth, "--margin", "40"},
        {truth, truth, "--margin", "-1"},
        {truth, truth, "--scale", "nan"},
        {truth, truth, "--picture", at("p.jpg")},
        {truth, truth, "--picture", at("p.png"), "--region", "90,0,20,20"},
        {truth, truth, "--picture", truth},
    };
    for (std::vector<std::string> line : lines) {
        line.insert(line.begin(), "compare");
        EXPECT_EQ(runVxkit(line).status, 2) << testing::PrintToString(line);
    }
    EXPECT_FALSE(std::filesystem::exists(at("p.png")));
}
