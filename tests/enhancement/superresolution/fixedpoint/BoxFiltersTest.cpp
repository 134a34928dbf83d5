// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/BoxFilters.h"

#include <gtest/gtest.h>

#include <array>
#include <opencv2/imgproc.hpp>

#include "doubles/SameBits.h"
#include "doubles/ThreadCount.h"

using namespace halvor::vx;
using vxtest::sameBits;

namespace {

using Filter = void (*)(const cv::Mat_<short>&, cv::Mat_<short>&, cv::Mat_<short>&);

cv::Mat_<short> randomImage(const cv::Size& size, int low = -32768)
{
    cv::Mat_<short> image(size);
    cv::randu(image, low, 32768);
    return image;
}

cv::Mat_<short> filtered(Filter filter, const cv::Mat_<short>& image)
{
    cv::Mat_<short> scratch;
    cv::Mat_<short> result;
    filter(image, scratch, result);
    return result;
}

// A box that is moved along each row, one sample in and one out; transposes the image.
cv::Mat_<short> runningBox(const cv::Mat_<short>& image)
{
    const int n = image.cols;
    cv::Mat_<short> out(n, image.rows);
    for (int y = 0; y < image.rows; ++y)
        for (int i = 0, sum = 0; i < n; ++i) {
            const short* p = image[y];
            sum += i == 0 ? 4 * p[0] + p[1] + p[2] + p[3] + p[4]
                          : p[std::min(i + 4, n - 1)] - p[i < 5 ? 0 : i - 4];
            out(i, y) = static_cast<short>(sum / 8);
        }
    return out;
}

}  // namespace

TEST(BoxFilters, GiveWhatARunningBoxGives)
{
    for (const cv::Size size : {cv::Size(9, 9), cv::Size(33, 20), cv::Size(10, 47)}) {
        const cv::Mat_<short> image = randomImage(size);
        EXPECT_TRUE(sameBits(filtered(smoothByEightTaps, image), runningBox(runningBox(image)))) << size;
    }
}

TEST(BoxFilters, WeighNineSamplesInEachDirection)
{
    constexpr std::array<int, 9> weights{4, 4, 16, 24, 32, 24, 16, 4, 4};
    cv::Mat_<short> impulse(21, 21, short{0});
    impulse(10, 10) = 16384;
    const cv::Mat_<short> spread = filtered(smoothByNineTaps, impulse);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 9; ++j)
            EXPECT_EQ(spread(6 + i, 6 + j),
                      weights[static_cast<std::size_t>(i)] * weights[static_cast<std::size_t>(j)]);
    EXPECT_TRUE(sameBits(filtered(smoothByNineTapShifts, impulse), spread));

    impulse(10, 10) = -1;  // what the divider drops, the shifts carry on
    EXPECT_EQ(cv::countNonZero(filtered(smoothByNineTaps, impulse)), 0);
    EXPECT_EQ(cv::sum(filtered(smoothByNineTapShifts, impulse))[0], -81.0);
}

TEST(BoxFilters, CopyOrMirrorAtTheEndsOfLines)
{
    const cv::Mat_<short> image = randomImage({40, 30}, 0);
    const cv::Mat_<short> copied = filtered(smoothByNineTaps, image);
    EXPECT_TRUE(sameBits(filtered(smoothByNineTapShifts, image), copied)) << "no sign, no other rounding";
    EXPECT_TRUE(sameBits(copied(cv::Rect(0, 0, 4, 4)), image(cv::Rect(0, 0, 4, 4))));

    cv::Mat_<short> wide;
    cv::copyMakeBorder(image, wide, 8, 8, 8, 8, cv::BORDER_REFLECT_101);
    const cv::Mat_<short> inner = filtered(smoothByNineTapShifts, wide)(cv::Rect(8, 8, 40, 30));
    EXPECT_TRUE(sameBits(filtered(smoothByMirroredNineTapShifts, image), inner));
    const cv::Mat_<short> narrow = randomImage({4, 3});
    EXPECT_TRUE(sameBits(filtered(smoothByNineTaps, narrow), narrow));
}

TEST(BoxFilters, KeepFlatImagesAndWorkInPlaceWithAnyNumberOfThreads)
{
    const cv::Mat_<short> image = randomImage({640, 420});
    for (const Filter filter :
         {smoothByEightTaps, smoothByNineTaps, smoothByNineTapShifts, smoothByMirroredNineTapShifts}) {
        for (const cv::Size size : {cv::Size(1, 1), cv::Size(2, 3), cv::Size(7, 4), cv::Size(20, 20)}) {
            const cv::Mat_<short> flat(size, short{-32768});
            EXPECT_TRUE(sameBits(filtered(filter, flat), flat)) << size;
        }
        const cv::Mat_<short> expected = filtered(filter, image);
        for (const int threads : {1, 2, 7}) {
            const vxtest::ThreadCount count(threads);
            cv::Mat_<short> scratch;
            cv::Mat_<short> inPlace = image.clone();
            filter(inPlace, scratch, inPlace);
            EXPECT_TRUE(sameBits(inPlace, expected)) << threads;
        }
    }
}
