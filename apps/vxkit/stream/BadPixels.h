// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

namespace vxapp {

/// Which pixels of a sensor tell nothing of the scene.
struct BadPixelMap
{
    static constexpr std::uint8_t good = 0;
    static constexpr std::uint8_t cold = 85;
    static constexpr std::uint8_t hot = 255;

    cv::Mat_<std::uint8_t> marks;

    int count(std::uint8_t mark) const;
    int bad() const;
};

/// Learns bad pixels over the frames of a recording.
///
/// A hot pixel lies far above what surrounds it, and its neighbours don't: optics spread every point of a scene
/// over several pixels, so that a warm point has warm neighbours, and an edge or a thin line goes on. Two bad
/// pixels may touch. It must be so in nearly all frames: what moves is scene. Cold pixels likewise, below.
class BadPixelLearner
{
public:
    /// @param frames  how many will be added; below five a pixel must deviate twice as far
    explicit BadPixelLearner(int frames) : factor_(frames < fewFrames ? 20.0 : 10.0) {}

    void add(const cv::Mat_<short>& frame);
    /// Empty (of good pixels only) before the first frame.
    BadPixelMap map() const;

private:
    static constexpr int fewFrames = 5;

    void findPeaks(const cv::Mat_<int>& padded, double threshold);
    void countPeaks(cv::Mat_<std::uint16_t>& hits) const;

    double factor_;
    int frames_ = 0;
    cv::Mat_<std::uint16_t> hot_, cold_;  // frames in which a pixel was one
    cv::Mat_<int> image_, padded_;
    cv::Mat_<std::uint8_t> peaks_;
};

/// Replaces bad pixels by the median of the good ones around them.
class BadPixelMender
{
public:
    BadPixelMender() = default;
    explicit BadPixelMender(const BadPixelMap& map);

    bool mendsNothing() const { return repairs_.empty(); }
    void mend(cv::Mat_<short>& frame) const;

private:
    struct Repair
    {
        cv::Point pixel;
        std::vector<cv::Point> from;
    };

    std::vector<Repair> repairs_;
};

/// Reads a map as writeBadPixels() writes it; any PNG or PGM image will do, pixels above 0 are bad.
/// @throws UsageError if it can't be read or has another size
BadPixelMap readBadPixels(const std::string& path, cv::Size size);
/// Writes a PNG: good pixels 0, cold ones 85, hot ones 255.
/// @throws as vxfiles::OutputFile does, and UsageError if the name ends in anything but .png
void writeBadPixels(const std::string& path, const BadPixelMap& map, bool force);

}  // namespace vxapp
