// SPDX-License-Identifier: Apache-2.0
// Element operations of the fixed-point solver: the row kernels, and the corners that targets
// depend on.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "bits/Checksum.h"
#include "doubles/ThreadCount.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"

using namespace halvor::vx;
using vxtest::messageOf;
using vxtest::sameBits;

namespace {

using Image = cv::Mat_<short>;
using Mask = cv::Mat_<signed char>;
using Texts = std::vector<std::string>;

Image randomImage(cv::Size size, std::mt19937& random)
{
    Image image(size);
    for (short& sample : image) {
        const auto any = static_cast<short>(random());
        const unsigned kind = random() & 7;
        sample = static_cast<short>(kind == 0 ? -32768 : kind == 1 ? 32767 : kind < 5 ? any / 256 : any);
    }
    return image;
}

Image pixel(short value)
{
    return Image(1, 1, value);
}

/// Adds what each operation makes of two images to its checksum.
void addResults(SrIntMinimization& s, const Image& a, const Image& b, signed char shift, short mantissa,
                std::array<vxtest::Checksum, 7>& sums)
{
    std::size_t next = 0;
    const auto add = [&](auto operation) {
        Image image = a.clone();
        const std::int64_t sum = operation(image);
        sums[next].add(&sum, sizeof sum);
        sums[next++].add(image);
    };
    const auto half = static_cast<signed char>(shift / 2);
    Image S = b.clone();
    add([&](Image& i) {
        s.computeNormalisation(i, Mask(a.size(), std::int8_t{1}), mantissa, shift);
        return s.computeMean(i);
    });
    add([&](Image& i) {
        i = Image(a.rows - 3, a.cols - 3);
        s.computeDenormalisation(a, i, mantissa, shift, 3);
        return s.computeSumSquaredValues(a, shift);
    });
    add([&](Image& i) { return s.computeRandS(i, b, S, shift); });
    add([&](Image& i) { return S.copyTo(i), s.computeAlpha(a, b, shift); });
    add([&](Image& i) { return s.computeU(i, b, mantissa, shift), 0; });
    add([&](Image& i) { return s.computeS(i, b, mantissa, shift), 0; });
    add([&](Image& i) { return s.computeR(i, b, mantissa, shift, half); });
}

Texts linesOf(SrIntMinimization& solver, const std::function<void()>& work)
{
    return vxtest::linesOf(solver.getDebugChannel(), 2, work);
}

}  // namespace

// Shifts up to far beyond the width of a sample. The checksums were taken of plain loops, pixel by pixel.
TEST(FixedElements, KeepTheirBits)
{
    std::mt19937 random(7);
    SrIntMinimization solver(16, 12, 1, 2);
    std::array<vxtest::Checksum, 7> sums;
    for (const int shift :
         {-128, -64, -33, -32, -31, -20, -16, -15, -14, -2, -1, 0, 1, 2, 9, 31, 32, 63, 127})
        for (const int mantissa : {-32768, -16385, -1, 0, 1, 20000, 32767}) {
            const Image a = randomImage({37, 5}, random);
            const Image b = randomImage({37, 5}, random);
            addResults(solver, a, b, static_cast<signed char>(shift), static_cast<short>(mantissa), sums);
        }
    constexpr std::array<std::uint64_t, 7> expected{
        0xf4b9454752bb4057, 0x9275f885fc8c1973, 0xb9719721f456070b, 0x0f69476edcf47c9b,
        0x21a3e7e56c1ad5c2, 0x2c18e864ad86e9e1, 0xf37dfbdc214875c3};
    for (std::size_t i = 0; i < sums.size(); ++i)
        EXPECT_EQ(sums[i].value(), expected[i]) << "operation " << i;
}

TEST(FixedElements, OfLargeImagesAreTheSameForAnyNumberOfThreads)
{
    std::mt19937 random(11);
    const Image a = randomImage({1200, 1001}, random);
    const Image b = randomImage({1200, 1001}, random);
    SrIntMinimization solver(16, 12, 1, 2);
    std::vector<Image> found;
    std::vector<std::int64_t> sums;
    for (const int threads : {1, 2, 7}) {
        const vxtest::ThreadCount count(threads);
        found.push_back(a.clone());
        sums.push_back(solver.computeR(found.back(), b, 20000, -14, -3));
        EXPECT_EQ(sums.back(), sums[0]) << threads << " threads";
        EXPECT_TRUE(sameBits(found.back(), found[0])) << threads << " threads";
    }
    Image low(2, 70000, short{-32768});  // rows longer than the blocks of their sums
    EXPECT_EQ(solver.computeAlpha(low, low, 0), 2 * 70000 * (std::int64_t{1} << 30));
    EXPECT_EQ(solver.computeMean(low), -32768);
}

TEST(FixedElements, ClampResidualOnTheRightAndDirectionOnTheLeft)
{
    SrIntMinimization solver(16, 12, 1, 2);
    const auto stepped = [&](short r, short q, short mantissa, signed char shift) {
        Image image = pixel(r);
        solver.computeR(image, pixel(q), mantissa, shift, 0);
        return image(0, 0);
    };
    const auto turned = [&](short s, short r, short mantissa, signed char shift) {
        Image image = pixel(s);
        solver.computeS(image, pixel(r), mantissa, shift);
        return image(0, 0);
    };
    const Texts lines = linesOf(solver, [&] {
        // 30000 + 10000 leaves 16 bits: R is 32767 before 10000 is added.
        EXPECT_EQ(stepped(30000, -10000, 2, -1), static_cast<short>(32767 + 10000));
        EXPECT_EQ(stepped(-30000, 10000, 2, -1), static_cast<short>(-32768 - 10000));
        EXPECT_EQ(stepped(30000, -10000, 1, 0), static_cast<short>(40000));
        // t is formed anew from the bound: 1 * 32767 instead of 1 * 10000.
        EXPECT_EQ(turned(10000, 30000, 1, 0), static_cast<short>(30000 + 32767));
        EXPECT_EQ(turned(-10000, -30000, 1, 0), static_cast<short>(-30000 - 32768));
        EXPECT_EQ(turned(10000, 30000, 2, -1), static_cast<short>(40000));
    });
    EXPECT_EQ(lines, (Texts{"clamped R value", "clamped R value", "clamped R value", "clamped S value",
                            "clamped S value", "clamped S value"}));
}

TEST(FixedElements, TakeANegativeSumShiftOfTheLeftFormAsUnsigned)
{
    SrIntMinimization solver(16, 12, 1, 2);
    Image image = pixel(100);
    EXPECT_EQ(solver.computeRleftShift(image, pixel(0), 1, 0, -1), 0);
    EXPECT_EQ(solver.computeRleftShift(image, pixel(0), 1, 0, 2), 40000);
    EXPECT_EQ(solver.computeRrightShift(image, pixel(0), 1, 1, -1), 5000);
    EXPECT_EQ(solver.shiftToFactor(0), 1);
    EXPECT_EQ(solver.shiftToFactor(31), std::numeric_limits<int>::min());
    EXPECT_EQ(solver.shiftToFactor(-1), 0);
}

TEST(FixedElements, ReportByMaskByHeadroomAndByATruncatingDivision)
{
    SrIntMinimization solver(16, 12, 1, 2);
    const auto normalised = [&](short value, signed char usable, signed char shift) {
        Image image = pixel(value);
        return linesOf(solver, [&] { solver.computeNormalisation(image, Mask(1, 1, usable), 0, shift); });
    };
    const Texts overflow{"overflow occured for normalized value"};
    const Texts underflow{"underflow occured for normalized value"};
    EXPECT_EQ(normalised(16384, 1, 1), overflow);
    EXPECT_EQ(normalised(16384, 0, 1), Texts{});
    EXPECT_EQ(normalised(-16384, 1, 1), Texts{});
    EXPECT_EQ(normalised(-16385, 1, 1), underflow);
    // The right form tells of its headroom whatever the mask says: 16383.5 rounds up to 16384.
    EXPECT_EQ(normalised(32766, 0, -1), Texts{});
    EXPECT_EQ(normalised(32767, 0, -1), underflow);
    EXPECT_EQ(normalised(-32768, 0, -1), Texts{});

    const auto denormalised = [&](short value, short mean, signed char shift) {
        Image out(1, 1);
        return linesOf(solver, [&] { solver.computeDenormalisation(pixel(value), out, mean, shift, 0); });
    };
    const Texts clamped{"clamped denormalized value"};
    EXPECT_EQ(denormalised(16384, 0, 1), clamped);
    // 7 / 2 rounds to 4 and truncates to 3: the value wraps without a word.
    EXPECT_EQ(denormalised(7, 32764, -1), Texts{});
    EXPECT_EQ(denormalised(8, 32764, -1), clamped);
    EXPECT_EQ(denormalised(100, 32767, -40), Texts{});  // a divisor of 0
}

TEST(FixedElements, NameTheOperationThatRefusesASize)
{
    SrIntMinimization solver(16, 12, 1, 2);
    Image none;
    Image a(2, 2, short{0});
    Image b(2, 3, short{0});
    EXPECT_EQ(messageOf([&] { solver.computeRandS(a, b, a, 0); }), "invalid R, B or S frame size");
    EXPECT_EQ(messageOf([&] { solver.computeRandS(none, none, none, 0); }), "invalid R, B or S frame size");
    EXPECT_EQ(messageOf([&] { solver.computeAlpha(a, b, 0); }), "invalid S or Q frame size");
    for (const signed char shift : std::initializer_list<signed char>{0, -1}) {
        EXPECT_EQ(messageOf([&] { solver.computeR(a, b, 1, shift, 0); }), "invalid R or Q frame size");
        EXPECT_EQ(messageOf([&] { solver.computeS(a, b, 1, shift); }), "invalid S or R frame size");
        EXPECT_EQ(messageOf([&] { solver.computeDenormalisation(b, a, 0, shift, 1); }),
                  "invalid input or output frame size");
    }
}
