// SPDX-License-Identifier: Apache-2.0
// What a firmware engineer writes to put a block of her own beside the fixed-point engine: she derives from the
// registration, replaces one operation, runs the engine with it and compares.
//
//   fixed_point     a made-up burst; results are only printed
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "enhancement/superresolution/SrInt.h"

namespace {

using namespace halvor::vx;

// The block: a multiply-accumulate unit with 32-bit sums. A line of up to 160 samples fits them, as a product of a
// gradient and a difference of grey values is below 2^16; the processor adds the lines up in 64 bits.
void accumulateLine(const unsigned char* ref, const unsigned char* frame, const short* gradient, int n,
                    std::int32_t& sum)
{
    sum = 0;
    for (int i = 0; i < n; ++i)
        sum += gradient[i] * (frame[i] - ref[i]);
}

class FirmwareRegistration : public SrIntRegistration
{
public:
    using SrIntRegistration::SrIntRegistration;

    void computeOpticalFlowSumDiffXtYt(const cv::Mat_<unsigned char>& ref,
                                       const cv::Mat_<unsigned char>& frame, const cv::Mat_<short>& dx,
                                       const cv::Mat_<short>& dy, std::int64_t& sumXt,
                                       std::int64_t& sumYt) override
    {
        sumXt = 0;
        sumYt = 0;
        for (int y = 0; y < ref.rows; ++y) {
            std::int32_t line = 0;
            accumulateLine(ref[y], frame[y], dx[y], ref.cols, line);
            sumXt += line;
            accumulateLine(ref[y], frame[y], dy[y], ref.cols, line);
            sumYt += line;
        }

        // The model's own sums stay within reach, to tell at once where the block differs.
        std::int64_t modelXt = 0;
        std::int64_t modelYt = 0;
        SrIntRegistration::computeOpticalFlowSumDiffXtYt(ref, frame, dx, dy, modelXt, modelYt);
        ++calls;
        differences += sumXt != modelXt || sumYt != modelYt ? 1 : 0;
    }

    static inline int calls = 0;
    static inline int differences = 0;
};

// Warm and cold spots, seen by a camera that has moved by (dx, dy) pixels.
cv::Mat_<short> madeUpFrame(int width, int height, double dx, double dy)
{
    cv::Mat_<short> frame(height, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double u = (x + dx) * 0.55;
            const double v = (y + dy) * 0.47;
            const double spots =
                std::sin(u) * std::cos(v + 0.3 * std::sin(u * 0.17)) + std::sin(0.13 * u - 0.21 * v);
            frame(y, x) = static_cast<short>(std::lround(900.0 * spots) - 12000);
        }
    }
    return frame;
}

// Feeds a burst of five frames; returns the engine's code, or -1 if a frame was refused.
template <typename Engine>
int superResolve(Engine& engine, int width, int height, cv::Mat_<short>& image)
{
    constexpr double motion[5][2] = {{0.3, -0.4}, {-0.2, 0.3}, {0.7, 0.55}, {0.1, 0.2}, {0.0, 0.0}};
    int code = 0;
    for (int i = 0; i < 5; ++i) {
        if (engine.addFrame(madeUpFrame(width, height, motion[i][0], motion[i][1])) != 0)
            return -1;
        // Each frame is registered when it comes; the image is wanted of the last one alone.
        engine.setSkipMinimization(i < 4);
        code = engine.computeSr(image);
    }
    return code;
}

}  // namespace

int main()
{
    constexpr int width = 160;
    constexpr int height = 120;
    SrInt<SrIntRegistration, SrIntMinimization> model(width, height, 5, 2.0F);
    SrInt<FirmwareRegistration, SrIntMinimization> firmware(width, height, 5, 2.0F);
    cv::Mat_<short> expected;
    cv::Mat_<short> found;
    const int modelCode = superResolve(model, width, height, expected);
    const int firmwareCode = superResolve(firmware, width, height, found);

    for (unsigned int i = 0; i < 5; ++i) {
        const PointF shift = firmware.getTotalShift(i);
        std::printf("frame %u lies (%.3f, %.3f) from the newest\n", i, shift.x, shift.y);
    }
    const bool isSame = std::equal(expected.begin(), expected.end(), found.begin(), found.end());
    std::printf("codes %d and %d, %d steps, image of %d x %d\n", modelCode, firmwareCode,
                firmware.getCumIters(), found.cols, found.rows);
    std::printf("the block differed in %d of %d calls; the images are %s\n",
                FirmwareRegistration::differences, FirmwareRegistration::calls,
                isSame ? "the same" : "not the same");
    const bool isGood = modelCode == 0 && firmwareCode == 0 && isSame && FirmwareRegistration::calls == 4 &&
                        FirmwareRegistration::differences == 0;
    return isGood ? EXIT_SUCCESS : EXIT_FAILURE;
}
