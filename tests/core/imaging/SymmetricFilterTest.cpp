// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/SymmetricFilter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <type_traits>

#include "support/Random.h"

using namespace halvor::vx;

namespace {

struct Case
{
    cv::Size size;
    int radius;
};

// Sizes with every kind of rest, and images smaller than the kernel.
const Case cases[] = {{{64, 40}, 5}, {{37, 23}, 5}, {{33, 9}, 1}, {{50, 17}, 2}, {{45, 31}, 7},
                      {{4, 3}, 5},   {{1, 6}, 5},   {{19, 1}, 5}, {{20, 20}, 0}};

template <typename Pixel>
cv::Mat_<Pixel> noiseImage(const cv::Size& size)
{
    vxsupport::Random random(7);
    cv::Mat_<Pixel> image(size);
    for (Pixel& pixel : image)
        pixel = static_cast<Pixel>(255.0 * random.uniform());
    return image;
}

// One pixel after the other. Float images are folded along rows, too, where the kernel is short.
template <typename Pixel>
cv::Mat_<Pixel> plainForm(const cv::Mat_<Pixel>& image, const std::vector<float>& taps)
{
    const int radius = static_cast<int>(taps.size() / 2);
    const float* centre = taps.data() + radius;
    const auto folded = [&](auto sample) {
        float sum = sample(0) * centre[0];
        for (int k = 1; k <= radius; ++k)
            sum += (sample(k) + sample(-k)) * centre[k];
        return sum;
    };
    cv::Mat_<float> rows(image.size());
    cv::Mat_<Pixel> result(image.size());
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x) {
            const auto sample = [&](int k) {
                return static_cast<float>(
                    image(y, cv::borderInterpolate(x + k, image.cols, cv::BORDER_REFLECT_101)));
            };
            float sum = 0.0F;
            for (int k = -radius; k <= radius; ++k)
                sum += sample(k) * centre[k];
            rows(y, x) = std::is_same_v<Pixel, float> && radius <= 2 ? folded(sample) : sum;
        }
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x)
            result(y, x) = cv::saturate_cast<Pixel>(folded([&](int k) {
                return rows(cv::borderInterpolate(y + k, image.rows, cv::BORDER_REFLECT_101), x);
            }));
    return result;
}

template <typename Pixel>
void expectThePlainForm()
{
    for (const Case& c : cases) {
        const cv::Mat_<Pixel> image = noiseImage<Pixel>(c.size);
        const std::vector<float> taps = gaussianKernel(c.radius, 0.3 + 0.4 * c.radius);
        SymmetricFilter filter(c.size);
        filter.setTaps(taps);
        cv::Mat_<Pixel> result;
        filter.run(image, result);
        const cv::Mat_<Pixel> expected = plainForm(image, taps);
        EXPECT_EQ(std::memcmp(result[0], expected[0], result.total() * sizeof(Pixel)), 0)
            << c.size << ", radius " << c.radius;
    }
}

}  // namespace

TEST(SymmetricFilter, GivesTheBitsOfThePlainForm)
{
    expectThePlainForm<float>();
    expectThePlainForm<unsigned char>();
}
