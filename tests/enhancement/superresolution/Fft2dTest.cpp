// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "core/base/Exception.h"
#include "doubles/SameBits.h"
#include "doubles/ThreadCount.h"
#include "enhancement/superresolution/SrFloatFft2d.h"
#include "enhancement/superresolution/reference/SuperResolutionFft2d.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;
using vxsupport::CapturedOutput;

namespace {

constexpr int radius = 5;

cv::Mat_<float> randomImage(cv::Size size)
{
    cv::Mat_<float> image(size);
    cv::RNG(static_cast<unsigned>(size.width * 1000 + size.height))
        .fill(image, cv::RNG::UNIFORM, -1.0F, 1.0F);
    return image;
}

// The first half of each row, as the transforms take it.
struct HalfSpectrum : cv::Mat_<cv::Vec2f>
{
    explicit HalfSpectrum(cv::Size image) : Mat_(image.height, image.width / 2 + 1) {}
    float (*values())[2] { return reinterpret_cast<float(*)[2]>(data); }
};

template <typename Fft>
HalfSpectrum transformed(Fft& fft, const cv::Mat_<float>& image)
{
    HalfSpectrum spectrum(image.size());
    fft.forward(image[0], spectrum.values());
    return spectrum;
}

template <typename Fft>
cv::Mat_<float> returned(Fft& fft, const cv::Mat_<float>& image)
{
    cv::Mat_<float> back(image.size());
    HalfSpectrum spectrum = transformed(fft, image);
    fft.backward(spectrum.values(), back[0]);
    back /= static_cast<double>(image.total());
    return back;
}

// Smooths an image by a product of spectra and repairs its border.
template <typename Fft>
cv::Mat_<float> smooth(Fft&& fft, const cv::Mat_<float>& image, float* kernel)
{
    HalfSpectrum gauss(image.size());
    fft.gaussFft(radius, std::sqrt(3.0F), gauss.values(), kernel);
    HalfSpectrum spectrum = transformed(fft, image);
    cv::mulSpectrums(spectrum, gauss, spectrum, 0);
    cv::Mat_<float> blurred(image.size());
    fft.backward(spectrum.values(), blurred[0]);
    fft.repairGaussBlur(image[0], blurred[0], radius, kernel);
    return blurred;
}

// Each output pixel from its definition: in-frame taps, divided by the mass that stayed inside.
cv::Mat truncatedBlur(const cv::Mat_<float>& image, const float* kernel)
{
    cv::Mat_<double> taps(2 * radius + 1, 1);
    for (int i = -radius; i <= radius; ++i)
        taps(radius + i) = kernel[std::abs(i)];
    const auto blur = [&taps](const cv::Mat& in) {
        cv::Mat out;
        cv::sepFilter2D(in, out, CV_64F, taps, taps, {-1, -1}, 0.0, cv::BORDER_CONSTANT);
        return out;
    };
    cv::Mat result;
    cv::divide(blur(image), blur(cv::Mat_<float>(image.size(), 1.0F)), result, 1.0, CV_32F);
    return result;
}

// The twin's lines are not for the test's report.
template <typename Fft>
class Fft2d : public testing::Test
{
    CapturedOutput silence_;
};

using Transforms = testing::Types<SrFloatFft2d, SuperResolutionFft2d>;
TYPED_TEST_SUITE(Fft2d, Transforms);

}  // namespace

// Widths with one, two and more factors, beyond and below a tile of columns; heights with large primes.
TYPED_TEST(Fft2d, GivesEveryHarmonicOfTheDefinitionAndTheImageBack)
{
    for (const cv::Size size : {cv::Size(2, 1),
                                {8, 7},
                                {14, 11},
                                {22, 13},
                                {18, 49},
                                {26, 8},
                                {34, 22},
                                {160, 120},
                                {202, 37},
                                {64, 1},
                                {2, 101}}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat_<float> image = randomImage(size);
        TypeParam fft(size.width, size.height);
        const HalfSpectrum spectrum = transformed(fft, image);
        cv::Mat expected;
        image.convertTo(expected, CV_64F);
        cv::dft(expected, expected, cv::DFT_COMPLEX_OUTPUT);
        expected.colRange(0, spectrum.cols).convertTo(expected, CV_32F);
        EXPECT_LT(cv::norm(spectrum, expected, cv::NORM_INF), 2e-6 * std::sqrt(size.area()));
        EXPECT_LT(cv::norm(returned(fft, image), image, cv::NORM_INF), 2e-6);
    }
}

TYPED_TEST(Fft2d, GaussianKernelSumsToOneAndItsSpectrumKeepsAFlatFrame)
{
    float kernel[radius + 1];
    const cv::Mat_<float> flat(13, 22, 36.6F);
    EXPECT_LT(cv::norm(smooth(TypeParam(22, 13), flat, kernel), flat, cv::NORM_INF), 36.6 * 2e-6);
    double sum = kernel[0];
    for (int i = 1; i <= radius; ++i) {
        sum += 2.0 * kernel[i];
        // The pixel integral of a Gaussian of that width; the closed form of erf is good to about 1e-4.
        const double scale = std::sqrt(2.0 * 3.0);
        const double integral = (std::erf((i + 0.5) / scale) - std::erf((i - 0.5) / scale)) / 2.0;
        EXPECT_NEAR(kernel[i], integral / std::erf(5.5 / scale), 2e-4) << i;
    }
    EXPECT_NEAR(sum, 1.0, 1e-6);
}

TYPED_TEST(Fft2d, RepairedBlurIsTheBlurThatStopsAtTheFramesEdges)
{
    for (const cv::Size size : {cv::Size(12, 11), {22, 13}, {40, 31}}) {  // from the smallest possible on
        const cv::Mat_<float> image = randomImage(size);
        float kernel[radius + 1];
        const cv::Mat_<float> smoothed = smooth(TypeParam(size.width, size.height), image, kernel);
        EXPECT_LT(cv::norm(smoothed, truncatedBlur(image, kernel), cv::NORM_INF), 3e-6) << size;
    }
}

TYPED_TEST(Fft2d, RefusesSizesThatItCannotTransformOrSmooth)
{
    testing::internal::CaptureStderr();
    EXPECT_THROW(TypeParam(7, 8), Exception);
    EXPECT_THROW(TypeParam(0, 8), Exception);
    EXPECT_THROW(TypeParam(8, 0), Exception);
    TypeParam fft(10, 20);
    HalfSpectrum spectrum({10, 20});
    float kernel[radius + 1];
    cv::Mat_<float> image = randomImage({10, 20});
    EXPECT_THROW(fft.gaussFft(5, 1.0F, spectrum.values(), kernel), Exception);
    EXPECT_THROW(fft.repairGaussBlur(image[0], image[0], 5, kernel), Exception);
    EXPECT_THROW(fft.gaussFft(-1, 1.0F, spectrum.values(), kernel), Exception);
    EXPECT_NO_THROW(fft.gaussFft(4, 1.0F, spectrum.values(), kernel));
    testing::internal::GetCapturedStderr();
}

TEST(Fft2dTwins, GiveTheSameBitsWithAnyNumberOfThreadsAlsoOfThoseAddedAfterConstruction)
{
    const cv::Mat_<float> image = randomImage({362, 182});  // small frames are not shared among threads
    float kernel[radius + 1];
    const CapturedOutput silence;
    const cv::Mat_<float> serial = smooth(SuperResolutionFft2d(362, 182), image, kernel);
    const ThreadCount one(1);
    SrFloatFft2d early(362, 182);
    for (const int threads : {1, 2, 8}) {
        const ThreadCount limit(threads);
        EXPECT_TRUE(sameBits(smooth(early, image, kernel), serial)) << threads;
        EXPECT_TRUE(sameBits(smooth(SrFloatFft2d(362, 182), image, kernel), serial)) << threads;
    }
}
