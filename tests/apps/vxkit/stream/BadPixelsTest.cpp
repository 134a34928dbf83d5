// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "apps/TemporaryFolder.h"
#include "apps/vxkit/stream/BadPixels.h"

using namespace vxapp;

namespace {

using Samples = cv::Mat_<short>;
using Change = std::function<void(Samples& frame, int number)>;

constexpr int frameCount = 30;
const cv::Size frameSize{40, 30};

// A slope with an edge, a wire as optics show it, fine texture and two counts of noise.
Samples scene(int number)
{
    cv::RNG random(static_cast<std::uint64_t>(number) + 1);
    cv::Mat_<float> values(frameSize);
    for (int y = 0; y < values.rows; ++y)
        for (int x = 0; x < values.cols; ++x)
            values(y, x) = static_cast<float>(2 * x + (x > 25 ? 500 : 0) + 20 * ((x / 2 + y / 2) % 2));
    cv::line(values, {3, 20}, {15, 24}, cv::Scalar(400.0), 1);
    cv::circle(values, {12, 10}, 0, cv::Scalar(900.0), cv::FILLED);
    cv::GaussianBlur(values, values, {}, 0.6);
    for (float& value : values)
        value += static_cast<float>(random.gaussian(2.0));
    Samples samples;
    values.convertTo(samples, CV_16S);
    return samples;
}

BadPixelMap learned(const Change& change, int frames = frameCount)
{
    BadPixelLearner learner(frames);
    for (int number = 0; number < frames; ++number) {
        Samples frame = scene(number);
        change(frame, number);
        learner.add(frame);
    }
    return learner.map();
}

void addDefects(Samples& frame, int /*number*/)
{
    frame(2, 36) = static_cast<short>(frame(2, 36) + 270);
    frame(0, 0) = static_cast<short>(frame(0, 0) - 300);
    for (const int x : {8, 9})
        frame(15, x) = static_cast<short>(frame(15, x) + 600);
}

class BadPixels : public TemporaryFolder
{};

}  // namespace

TEST_F(BadPixels, AreFoundHotAndColdApart)
{
    // One torn row in the first frame, as at the start of a recording; and a warm hand that hides some.
    const auto change = [](Samples& frame, int number) {
        addDefects(frame, number);
        if (number == 0)
            frame.row(0) -= 300;
        if (number == 3 || number == 4)
            frame(cv::Rect(30, 0, 10, 10)) = 900;
    };
    for (const int frames : {frameCount, 1}) {
        const BadPixelMap map = learned(frames > 1 ? Change(change) : Change(addDefects), frames);
        EXPECT_EQ(map.marks(2, 36), BadPixelMap::hot);
        EXPECT_EQ(map.marks(0, 0), BadPixelMap::cold);
        EXPECT_EQ(map.marks(15, 8), BadPixelMap::hot);
        EXPECT_EQ(map.marks(15, 9), BadPixelMap::hot);
        EXPECT_EQ(map.bad(), 4);
        EXPECT_EQ(map.count(BadPixelMap::cold), 1);
    }
}

TEST_F(BadPixels, AreNotSceneThatStandsOrMoves)
{
    EXPECT_EQ(learned([](Samples&, int) {}).bad(), 0) << "edge, wire, warm point and texture";
    EXPECT_EQ(learned([](Samples&, int) {}, 1).bad(), 0);
    const auto moving = [](Samples& frame, int number) {
        frame(18, 20 + number / 10) = 1500;  // ten frames on a pixel
        frame.row(5) += static_cast<short>(number == 2 ? -300 : 0);
    };
    EXPECT_EQ(learned(moving).bad(), 0);
    const auto wire = [](Samples& frame, int) { frame(cv::Rect(4, 12, 6, 1)) = 1000; };
    EXPECT_EQ(learned(wire).bad(), 0) << "not even the ends of one without optics";
}

TEST_F(BadPixels, AreMendedFromGoodNeighbours)
{
    const BadPixelMender mender(learned(addDefects));
    Samples frame = scene(50);
    const Samples clean = frame.clone();
    addDefects(frame, 50);
    mender.mend(frame);
    EXPECT_LE(cv::norm(frame, clean, cv::NORM_INF), 40.0) << "texture of 20 counts and noise";
    EXPECT_EQ(cv::countNonZero(frame != clean), 4);
    BadPixelMap block;
    block.marks = cv::Mat_<std::uint8_t>::zeros(frameSize);
    block.marks(cv::Rect(0, 0, 4, 4)) = 1;
    block.marks(frameSize.height - 1, 0) = 1;
    frame(cv::Rect(0, 0, 4, 4)) = -9999;
    BadPixelMender(block).mend(frame);
    EXPECT_GT(*std::min_element(frame.begin(), frame.end()), -100);
}

TEST_F(BadPixels, MapSurvivesItsFile)
{
    const BadPixelMap map = learned(addDefects);
    writeBadPixels(at("map.png"), map, false);
    const BadPixelMap read = readBadPixels(at("map.png"), frameSize);
    EXPECT_EQ(cv::norm(read.marks, map.marks, cv::NORM_INF), 0.0);
    EXPECT_EQ(read.count(BadPixelMap::hot), 3);
    // A paint program's: low counts of 16 bits, or a dark colour.
    cv::Mat deep;
    cv::Mat colours;
    map.marks.convertTo(deep, CV_16U, 1.0 / 85.0);
    const cv::Mat none = map.marks * 0;
    cv::merge(std::vector<cv::Mat>{map.marks / 255, none, none}, colours);
    cv::imwrite(at("deep.png"), deep);
    cv::imwrite(at("colours.png"), colours);
    EXPECT_EQ(readBadPixels(at("deep.png"), frameSize).bad(), map.bad());
    EXPECT_EQ(readBadPixels(at("colours.png"), frameSize).bad(), 3);
}
