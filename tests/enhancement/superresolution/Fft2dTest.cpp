#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/superresolution/SrFloatFft2d.h"
#include "enhancement/superresolution/reference/SuperResolutionFft2d.h"
#include "support/CapturedOutput.h"

using halvor::vx::Exception;
using halvor::vx::SrFloatFft2d;
using halvor::vx::SuperResolutionFft2d;
using vxsupport::CapturedOutput;

namespace {

std::vector<float> randomImage(int width, int height)
{
    std::mt19937 random(static_cast<unsigned>(width * 1000 + height));
    std::uniform_real_distribution<float> values(-1.0F, 1.0F);
    std::vector<float> image(static_cast<std::size_t>(width * height));
    for (float& value : image)
        value = values(random);
    return image;
}

class HalfSpectrum
{
public:
    HalfSpectrum(int width, int height)
        : half_(width / 2 + 1),
          values_(std::make_unique<float[][2]>(static_cast<std::size_t>(half_) * height))
    {}
    float (*data())[2] { return values_.get(); }
    std::complex<double> at(int y, int k) const
    {
        const float(&value)[2] = values_[static_cast<std::ptrdiff_t>(y) * half_ + k];
        return {value[0], value[1]};
    }
    float (&operator[](int i))[2] { return values_[static_cast<std::size_t>(i)]; }

private:
    int half_;
    std::unique_ptr<float[][2]> values_;
};

std::complex<double> naiveHarmonic(const std::vector<float>& image, int width, int height, int v, int u)
{
    std::complex<double> sum;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double turns =
                static_cast<double>(u * x % width) / width + static_cast<double>(v * y % height) / height;
            sum += static_cast<double>(image[y * width + x]) * std::polar(1.0, -2 * std::numbers::pi * turns);
        }
    }
    return sum;
}

// Each output pixel from its definition: in-frame taps, divided by the mass that stayed inside.
std::vector<float> truncatedBlur(const std::vector<float>& image, int width, int height,
                                 const std::vector<float>& kernel)
{
    const int radius = static_cast<int>(kernel.size()) - 1;
    std::vector<float> out(image.size());
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double sum = 0.0;
            double mass = 0.0;
            for (int j = std::max(-radius, -y); j <= std::min(radius, height - 1 - y); ++j) {
                for (int i = std::max(-radius, -x); i <= std::min(radius, width - 1 - x); ++i) {
                    const double weight = static_cast<double>(kernel[std::abs(i)]) * kernel[std::abs(j)];
                    sum += weight * image[(y + j) * width + x + i];
                    mass += weight;
                }
            }
            out[y * width + x] = static_cast<float>(sum / mass);
        }
    }
    return out;
}

float largestDifference(const std::vector<float>& a, const std::vector<float>& b)
{
    float largest = 0.0F;
    for (std::size_t i = 0; i < a.size(); ++i)
        largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

// Smooths an image by a product of spectra and repairs its border.
template <typename Fft>
std::vector<float> smooth(const std::vector<float>& image, int width, int height, int radius,
                          std::vector<float>& kernel)
{
    Fft fft(width, height);
    HalfSpectrum gauss(width, height);
    HalfSpectrum spectrum(width, height);
    kernel.resize(static_cast<std::size_t>(radius) + 1);
    fft.gaussFft(radius, std::sqrt(3.0F), gauss.data(), kernel.data());
    fft.forward(image.data(), spectrum.data());
    for (int i = 0; i < (width / 2 + 1) * height; ++i) {
        const std::complex<float> product = std::complex<float>(spectrum[i][0], spectrum[i][1]) *
                                            std::complex<float>(gauss[i][0], gauss[i][1]);
        spectrum[i][0] = product.real();
        spectrum[i][1] = product.imag();
    }
    std::vector<float> blurred(image.size());
    fft.backward(spectrum.data(), blurred.data());
    fft.repairGaussBlur(image.data(), blurred.data(), radius, kernel.data());
    return blurred;
}

// The twin's lines are not for the test's report.
template <typename Fft>
class Fft2d : public testing::Test
{
    CapturedOutput silence_;
};

using Transforms = testing::Types<SrFloatFft2d, SuperResolutionFft2d>;
TYPED_TEST_SUITE(Fft2d, Transforms);

struct Size
{
    int width;
    int height;
};

// Widths with one, two and more factors, beyond and below a tile of columns; heights with large primes.
constexpr Size sizes[] = {{2, 1}, {8, 7}, {14, 11}, {22, 13}, {18, 49}, {26, 8}, {34, 22}};

}  // namespace

TYPED_TEST(Fft2d, ForwardGivesEveryHarmonicOfTheDefinition)
{
    for (const auto [width, height] : sizes) {
        SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
        const std::vector<float> image = randomImage(width, height);
        HalfSpectrum spectrum(width, height);
        TypeParam(width, height).forward(image.data(), spectrum.data());
        double largest = 0.0;
        for (int v = 0; v < height; ++v) {
            for (int u = 0; u <= width / 2; ++u) {
                const auto expected = naiveHarmonic(image, width, height, v, u);
                largest = std::max(largest, std::abs(spectrum.at(v, u) - expected));
            }
        }
        EXPECT_LT(largest, 2e-6 * std::sqrt(width * height));
    }
}

TYPED_TEST(Fft2d, BackwardReturnsTheImageTimesItsSize)
{
    constexpr Size withLargerOnes[] = {{2, 1}, {8, 7}, {22, 13}, {160, 120}, {202, 37}, {64, 1}, {2, 101}};
    for (const auto [width, height] : withLargerOnes) {
        SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
        const std::vector<float> image = randomImage(width, height);
        HalfSpectrum spectrum(width, height);
        std::vector<float> back(image.size());
        TypeParam fft(width, height);
        fft.forward(image.data(), spectrum.data());
        fft.backward(spectrum.data(), back.data());
        for (float& value : back)
            value /= static_cast<float>(width * height);
        EXPECT_LT(largestDifference(back, image), 2e-6F);
    }
}

TYPED_TEST(Fft2d, GaussianKernelSumsToOneAndItsSpectrumKeepsAFlatFrame)
{
    constexpr int width = 22;
    constexpr int height = 13;
    std::vector<float> kernel;
    const std::vector<float> flat(width * height, 36.6F);
    const std::vector<float> smoothed = smooth<TypeParam>(flat, width, height, 5, kernel);
    EXPECT_LT(largestDifference(smoothed, flat), 36.6F * 2e-6F);

    double sum = kernel[0];
    for (std::size_t i = 1; i < kernel.size(); ++i) {
        sum += 2.0 * kernel[i];
        // The pixel integral of a Gaussian of that width; the closed form of erf is good to about 1e-4.
        const double scale = std::sqrt(2.0 * 3.0);
        const double x = static_cast<double>(i);
        const double integral = (std::erf((x + 0.5) / scale) - std::erf((x - 0.5) / scale)) / 2.0;
        EXPECT_NEAR(kernel[i], integral / std::erf(5.5 / scale), 2e-4) << i;
    }
    EXPECT_NEAR(sum, 1.0, 1e-6);
}

TYPED_TEST(Fft2d, RepairedBlurIsTheBlurThatStopsAtTheFramesEdges)
{
    constexpr Size asSmallAsPossibleAndLarger[] = {{12, 11}, {22, 13}, {40, 31}};
    for (const auto [width, height] : asSmallAsPossibleAndLarger) {
        SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
        const std::vector<float> image = randomImage(width, height);
        std::vector<float> kernel;
        const std::vector<float> smoothed = smooth<TypeParam>(image, width, height, 5, kernel);
        EXPECT_LT(largestDifference(smoothed, truncatedBlur(image, width, height, kernel)), 3e-6F);
    }
}

TYPED_TEST(Fft2d, RefusesSizesThatItCannotTransformOrSmooth)
{
    testing::internal::CaptureStderr();
    EXPECT_THROW(TypeParam(7, 8), Exception);
    EXPECT_THROW(TypeParam(0, 8), Exception);
    EXPECT_THROW(TypeParam(8, 0), Exception);
    TypeParam fft(10, 20);
    HalfSpectrum spectrum(10, 20);
    std::vector<float> kernel(6);
    std::vector<float> image(200);
    EXPECT_THROW(fft.gaussFft(5, 1.0F, spectrum.data(), kernel.data()), Exception);
    EXPECT_THROW(fft.repairGaussBlur(image.data(), image.data(), 5, kernel.data()), Exception);
    EXPECT_THROW(fft.gaussFft(-1, 1.0F, spectrum.data(), kernel.data()), Exception);
    EXPECT_NO_THROW(fft.gaussFft(4, 1.0F, spectrum.data(), kernel.data()));
    testing::internal::GetCapturedStderr();
}

TEST(Fft2dTwins, GiveTheSameBitsWithAnyNumberOfThreads)
{
    constexpr int width = 362;  // small frames are not shared among threads
    constexpr int height = 182;
    const std::vector<float> image = randomImage(width, height);
    std::vector<float> kernel;
    const CapturedOutput silence;
    const std::vector<float> serial = smooth<SuperResolutionFft2d>(image, width, height, 5, kernel);
    const int before = omp_get_max_threads();
    for (const int threads : {1, 2, 7}) {
        omp_set_num_threads(threads);
        EXPECT_EQ(smooth<SrFloatFft2d>(image, width, height, 5, kernel), serial) << threads;
    }
    omp_set_num_threads(before);
}

TEST(SrFloatFft2d, WorksWhenThreadsWereAddedAfterItsConstruction)
{
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    SrFloatFft2d fft(256, 256);
    omp_set_num_threads(8);
    const std::vector<float> image = randomImage(256, 256);
    std::vector<float> back(image.size());
    HalfSpectrum spectrum(256, 256);
    fft.forward(image.data(), spectrum.data());
    fft.backward(spectrum.data(), back.data());
    omp_set_num_threads(before);
    for (float& value : back)
        value /= 256 * 256;
    EXPECT_LT(largestDifference(back, image), 2e-6F);
}

TEST(SuperResolutionFft2d, WritesTheTapsOfTheKernel)
{
    SuperResolutionFft2d fft(16, 16);
    HalfSpectrum spectrum(16, 16);
    std::vector<float> kernel(6);
    const CapturedOutput output;
    fft.gaussFft(5, std::sqrt(3.0F), spectrum.data(), kernel.data());
    std::ostringstream expected;
    for (const float tap : kernel)
        expected << tap << '\n';
    EXPECT_EQ(output.text(), expected.str());
}
