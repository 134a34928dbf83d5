// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/optics/SlantedEdge.h"

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/vxkit/optics/EdgeFrames.h"

using testing::HasSubstr;
using vxapp::EdgeMeasurement;
using vxapp::measureEdge;

namespace {

const cv::Rect whole(0, 0, 48, 40);

using Psf = ProgramFolder;

}  // namespace

TEST(SlantedEdge, FindsThePointSpreadOfTheSimulatorAtAnySlant)
{
    for (const double sigma : {0.5, 0.683, 1.4})
        for (const double degrees : {4.0, -14.0, 38.0, 85.0, 110.0, 184.0}) {
            const EdgeMeasurement found = measureEdge(edgeFrame(degrees, sigma, 0.0), whole);
            ASSERT_TRUE(found.isUsable()) << found.problem << ' ' << degrees;
            EXPECT_NEAR(2.0 * found.sigma, sigma, 0.007) << degrees;
            const double toAxis = std::abs(std::remainder(degrees, 90.0));
            EXPECT_NEAR(found.angle, toAxis, 0.05);
            EXPECT_EQ(found.isUpright, std::abs(std::remainder(degrees, 180.0)) < 45.0);
            EXPECT_NEAR(found.contrast, 10.0, 0.02);
        }
}

TEST(SlantedEdge, TellsAnErrorThatTheErrorsOfManyFramesBearOut)
{
    double squares = 0.0;
    double told = 0.0;
    constexpr int frames = 24;
    for (int seed = 1; seed <= frames; ++seed) {
        const EdgeMeasurement found =
            measureEdge(edgeFrame(8.0, 0.8, 0.2, static_cast<std::uint64_t>(seed)), whole);
        ASSERT_TRUE(found.isUsable()) << found.problem;
        squares += std::pow(found.sigma - 0.4, 2);
        told += found.deviation;
        EXPECT_NEAR(found.noise, 0.2, 0.03);
    }
    const double ratio = std::sqrt(squares / frames) / (told / frames);
    EXPECT_GT(ratio, 0.6);
    EXPECT_LT(ratio, 1.6);
}

TEST(SlantedEdge, KeepsTheEdgeApartFromAGradientOfTheSurfaces)
{
    cv::Mat_<float> frame = edgeFrame(8.0, 0.683, 0.0);
    for (int r = 0; r < frame.rows; ++r)
        for (int c = 0; c < frame.cols; ++c)
            frame(r, c) += 0.05F * static_cast<float>(c) - 0.08F * static_cast<float>(r);
    EXPECT_NEAR(measureEdge(frame, whole).sigma, 0.683 / 2.0, 0.004);
}

TEST(SlantedEdge, RefusesWhatIsNoUsableEdge)
{
    const cv::Mat_<float> edge = edgeFrame(8.0, 0.683, 0.02);
    cv::Mat_<float> bar = edge.clone();
    edge.colRange(18, 39).copyTo(bar.colRange(27, 48));  // a narrow bar beside a second edge
    cv::Mat_<float> soft;
    cv::GaussianBlur(edge, soft, {31, 31}, 4.0);
    cv::Mat_<float> sharpened;
    cv::GaussianBlur(edge, sharpened, {}, 1.5);
    sharpened = 2.0 * edge - sharpened;  // overshoots on both sides
    cv::Mat_<float> bent = edge.clone();
    edge.rowRange(0, 20).copyTo(bent.rowRange(20, 40));
    for (const auto& [name, frame, problem] :
         {std::tuple("flat", cv::Mat_<float>(40, 48, 3.0F), "no straight edge"),
          {"upright", edgeFrame(0.0, 0.683, 0.02), "along the pixels"},
          {"diagonal", edgeFrame(45.0, 0.683, 0.02), "along the pixels"},
          {"noisy", edgeFrame(8.0, 0.683, 2.0), "as large as the noise"},
          {"bar", bar, ""},
          {"sharpened", sharpened, "its shape is not that"},
          {"soft", soft, "too soft"},
          {"bent", bent, ""}})
        EXPECT_THAT(measureEdge(frame, whole).problem, testing::AllOf(testing::Not(""), HasSubstr(problem)))
            << name;
    EXPECT_THAT(measureEdge(edge, {0, 0, 48, 9}).problem, HasSubstr("fewer than 10"));
}

TEST_F(Psf, PrintsTheSigmaThatSuperresTakes)
{
    std::vector<cv::Mat_<float>> frames;
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
        cv::Mat_<float> frame(80, 96, 20.0F);
        edgeFrame(8.0, 0.7, 0.05, seed).copyTo(frame(cv::Rect(40, 30, 48, 40)));
        frames.push_back(frame);
    }
    frames[2].setTo(20.0F);
    writePfmStream(at("f.pfm"), frames);
    const ProgramRun found = run("psf f.pfm --json");
    EXPECT_EQ(found.status, 0);
    EXPECT_THAT(found.error, HasSubstr("warning: 1 of 3 frames show no usable edge"));
    const auto object = nlohmann::json::parse(found.out);
    EXPECT_NEAR(object["psfSigma"].get<double>(), 0.7, 0.03);
    EXPECT_EQ(object["psfSigma"].get<double>(), 2.0 * object["sigma"].get<double>());
    EXPECT_EQ(object["usableFrames"], 2);
    const ProgramRun lines = run("psf f.pfm --frames 0:1 --region 44,34,40,32");
    EXPECT_THAT(lines.out,
                testing::AllOf(HasSubstr("for superres: --psf-sigma 0."), HasSubstr("edge: 8.0 degrees")));

    writePfmStream(at("sharp.pfm"), {edgeFrame(8.0, 0.2, 0.05)});
    EXPECT_THAT(run("psf sharp.pfm --region 0,0,48,40").out, HasSubstr("sigma: at most 0.2"));
    frames[0](3, 3) = std::numeric_limits<float>::quiet_NaN();
    writePfmStream(at("nan.pfm"), {frames[0]});
    expectRefusals("psf", {{"f.pfm --frames 2:1", "f.pfm, frame 2: no usable edge"},
                           {"f.pfm --region 0,0,20,20", "no usable edge"},
                           {"f.pfm --region 60,0,40,20", "inside the 96x80 pixels"},
                           {"nan.pfm", "nan.pfm: holds pixels"}});
}
