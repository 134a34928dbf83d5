// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/DSP_Convolution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "bits/Checksum.h"
#include "core/base/Exception.h"
#include "enhancement/superresolution/LineRecorder.h"

using namespace halvor::vx;
using testing::HasSubstr;

namespace {

// A frame with its mask, filters of six taps, and the large grid.
template <typename T>
struct Model
{
    Model(int w, int h, int largestSample, unsigned seed)
        : width(w), height(h), pitch(2 * w + 5), operators(2 * w, 2 * h, 6, 6, 2.0F)
    {
        std::mt19937 random(seed);
        const auto values = [&random](auto& out, int count, int lowest, int highest) {
            std::uniform_int_distribution<int> range(lowest, highest);
            for (int i = 0; i < count; ++i)
                out.push_back(static_cast<std::remove_reference_t<decltype(out[0])>>(range(random)));
        };
        values(frame, w * h, -largestSample, largestSample);
        values(large, pitch * (2 * h + 5), -largestSample, largestSample);
        values(filterX, 6, -32768, 32767);
        values(filterY, 6, -32768, 32767);
        values(mask, w * h, -2, 1);
    }

    std::vector<T> full()
    {
        std::vector<T> out(large.size(), T{77});
        operators.fullConvFromSparse(frame.data(), filterX.data(), filterY.data(), mask.data(), out.data());
        return out;
    }

    std::vector<T> valid()
    {
        std::vector<T> out(frame.size(), T{77});
        operators.validCorrToSparse(large.data(), filterX.data(), filterY.data(), out.data());
        return out;
    }

    int width;
    int height;
    int pitch;
    DSP_Convolution<T> operators;
    std::vector<T> frame;
    std::vector<T> large;
    std::vector<T> filterX;
    std::vector<T> filterY;
    std::vector<char> mask;
};

template <typename T>
std::string failureOf(DSP_Convolution<T>& operators, int scale, bool full)
{
    std::vector<T> values(32);
    std::vector<char> mask(32);
    operators.setFilterScale(scale);
    try {
        if (full)
            operators.fullConvFromSparse(values.data(), values.data(), values.data(), mask.data(),
                                         values.data());
        else
            operators.validCorrToSparse(values.data(), values.data(), values.data(), values.data());
    } catch (const Exception& error) {
        return error.what();
    }
    return "";
}

}  // namespace

template <typename T>
class DspConvolution : public testing::Test
{};
using SampleTypes = testing::Types<short, int>;
TYPED_TEST_SUITE(DspConvolution, SampleTypes);

// The checksums were taken of a convolution of the zero-stuffed frame, summed in 32 bits, shifted and saturated, and of
// a correlation each term of which is divided by itself, towards zero.
//
// Small shifts saturate, and a mask of -2 to 1 weights: both belong to the contract.
TYPED_TEST(DspConvolution, ConvolvesTheZeroStuffedFrameAndLeavesTheLastRowAndColumnAlone)
{
    vxtest::Checksum sum;
    for (const int shift : {0, 9, 15}) {
        Model<TypeParam> model(7, 5, 3000, 1);
        model.operators.setFilterScale(shift);
        const std::vector<TypeParam> out = model.full();
        EXPECT_EQ(model.full(), out);
        sum.add(out.data(), out.size() * sizeof out[0]);
        for (std::size_t i = 0; i < out.size(); ++i)
            EXPECT_TRUE(out[i] == 77 || (i / 19 < 14 && i % 19 < 18)) << i;
    }
    EXPECT_EQ(sum.value(), sizeof(TypeParam) == 2 ? 0x0542f9a612caae07 : 0x323ad735a0b4aacf);
}

// Sums of shorts wrap for each of these divisors, products of ints for some.
TYPED_TEST(DspConvolution, DividesEachTermOfTheCorrelationTowardsZero)
{
    vxtest::Checksum sum;
    for (const int divisor : {32768, 20011, -7919, 1, -1}) {
        Model<TypeParam> model(6, 9, 30000, 2);
        model.operators.setFilterScale(divisor);
        const std::vector<TypeParam> out = model.valid();
        sum.add(out.data(), out.size() * sizeof out[0]);
    }
    EXPECT_EQ(sum.value(), sizeof(TypeParam) == 2 ? 0xb5ec4fd61d2bfb5f : 0xf9b09801612c3c37);
}

TEST(DspConvolutionOfInts, WrapsTheSmallestProductDividedByMinusOne)
{
    DSP_Convolution<int> operators(1, 1, 1, 1, 1.0F);
    operators.setFilterScale(-1);
    const int smallest = INT32_MIN;
    const int one = 1;
    int out = 0;
    operators.validCorrToSparse(&smallest, &one, &one, &out);
    EXPECT_EQ(out, smallest);
}

// 179 x 177 samples make a run of 183 * 179 - 2 = 32755, one row more one of 32938.
TEST(DspConvolutionLimits, AreToldByTheirNumbers)
{
    Model<short> largest(179, 177, 100, 4);
    largest.operators.setFilterScale(15);
    EXPECT_NO_THROW(largest.full());

    DSP_Convolution<short> tooLarge(358, 356, 6, 6, 2.0F);
    EXPECT_THAT(failureOf(tooLarge, 15, true), HasSubstr("frame of 179x178: expected at most 32767"));
    DSP_Convolution<short> small(2, 2, 6, 6, 2.0F);
    EXPECT_THAT(failureOf(small, 32, true), HasSubstr("filter scale 32: expected a shift of 0 to 31"));
    EXPECT_THAT(failureOf(small, -1, true), HasSubstr("filter scale -1"));
    EXPECT_THAT(failureOf(small, 0, false), HasSubstr("filter scale 0: expected a divisor"));
    DSP_Convolution<short> longFilter(2, 2, 7, 6, 2.0F);
    EXPECT_THAT(failureOf(longFilter, 15, true), HasSubstr("7 and 6 taps: expected at most 6"));
    DSP_Convolution<short> otherFactor(6, 6, 6, 6, 3.0F);
    EXPECT_THAT(failureOf(otherFactor, 15, true), HasSubstr("expected 2"));
    EXPECT_THROW(DSP_Convolution<int>(0, 4, 6, 6, 2.0F), Exception);
    EXPECT_THROW(DSP_Convolution<int>(4, 4, 6, 6, 0.5F), Exception);
}

TEST(DspConvolutionChannel, TellsKernelsAndPlanesOnlyInDetail)
{
    Model<short> model(4, 4, 100, 5);
    model.operators.setFilterScale(15);
    const auto lines = std::make_shared<vxtest::LineRecorder>();
    DebugChannel& channel = *model.operators.getInternalDebugChannelObjects().front();
    EXPECT_EQ(channel.getDebugChannelName(), "DSP_Convolution");
    channel.setDebugDevice(lines);
    channel.setOutputLevel(11);
    model.full();
    model.valid();
    ASSERT_EQ(lines->lines.size(), 4U);
    EXPECT_EQ(lines->lines[0].text, "start DSP_Convolution.fullConvFromSparse");
    EXPECT_EQ(lines->lines[3].text, "end DSP_Convolution.validCorrToSparse");
    channel.setOutputLevel(12);
    lines->lines.clear();
    model.full();
    ASSERT_EQ(lines->lines.size(), 2U + 4U * (9U + 1U));
    EXPECT_THAT(lines->lines[1].text, HasSubstr(", rm: "));
    EXPECT_THAT(lines->lines[10].text, HasSubstr("Norm plane 0: "));
}
