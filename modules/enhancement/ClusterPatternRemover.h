// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"

namespace halvor::vx {

/// Learns a damping image that flattens clusters of pixels whose gain deviates from that of their neighbours.
///
/// Point the camera at a uniform scene, learn once or repeatedly, then multiply every frame by the damping
/// image. A pixel takes part where it is steady in time and its neighbours lie close; its damping moves by
/// the weight alphaDamping towards the ratio of the smoothed mean to its own mean.
///
/// The cluster size bounds what is corrected: neighbouring pixels that deviate from their surroundings to the
/// same side form a group, and a group whose bounding box is wider than clusterWidth or higher than
/// clusterHeight is taken for part of the scene (a warm object, a reflection) and keeps its damping. A pixel
/// deviates when its mean differs from the mean of the window of 2 * clusterWidth + 1 by 2 * clusterHeight +
/// 1 pixels around it by more than its standard deviation in time: what is less can't be seen in a frame.
///
/// A copy goes on from the same damping, on its own.
class VXKIT_API ClusterPatternRemover
{
public:
    /// How the mean image is smoothed, over 3 by 3 pixels.
    enum FILTERMODE : int
    {
        MEDIAN = 0,
        GAUSSIAN = 1,
    };

    /// @param width, height  largest cluster that is corrected, in pixels
    /// @param a  both the limit of the standard deviation and the weight of a new ratio; a setter separates
    ///           them
    /// @param b  ignored
    /// @param c  the limit of the difference between neighbouring means
    ClusterPatternRemover(unsigned int width, unsigned int height, float a, float b, float c);
    /// The copy's damping has memory of its own.
    ClusterPatternRemover(const ClusterPatternRemover& other);
    ClusterPatternRemover& operator=(const ClusterPatternRemover& other);
    ClusterPatternRemover(ClusterPatternRemover&&) = default;
    ClusterPatternRemover& operator=(ClusterPatternRemover&&) = default;
    ~ClusterPatternRemover() = default;

    /// Learns from the statistics of a uniform scene.
    ///
    /// @param mean, stdDev  mean and standard deviation in time of each pixel, of one size
    /// @throws Exception for empty images, different sizes or an unknown mode; the damping is then untouched
    void learn(const cv::Mat_<float>& mean, const cv::Mat_<float>& stdDev, FILTERMODE mode = MEDIAN);

    /// Learns from frames of a uniform scene, of which it takes the statistics itself; see PixelStatistics
    /// for recordings that don't fit into memory.
    ///
    /// @param frames  at least two images of one channel and one size, of any depth
    /// @throws Exception for fewer frames, several channels or different sizes; the damping is then untouched
    void learn(const std::vector<cv::Mat>& frames, FILTERMODE mode = MEDIAN);

    /// Drops the damping when the size is another.
    void setClusterSize(unsigned int width, unsigned int height);
    /// Keep the damping.
    void setClusterWidth(unsigned int width) { clusterWidth_ = width; }
    void setClusterHeight(unsigned int height) { clusterHeight_ = height; }
    /// @return false for a value outside 0 to 1, which changes nothing
    bool setAlphaDamping(float alpha);
    /// Largest standard deviation in time of a steady pixel, and largest difference between its mean and a
    /// neighbour's, in the unit of the frames; not checked.
    void setStdDevLimit(float limit) { stdDevLimit_ = limit; }
    void setMeanLimit(float limit) { meanLimit_ = limit; }

    /// The settings as they stand: sizes in pixels, limits in the unit of the frames.
    unsigned int getClusterWidth() const { return clusterWidth_; }
    unsigned int getClusterHeight() const { return clusterHeight_; }
    float getAlphaDamping() const { return alphaDamping_; }
    float getStdDevLimit() const { return stdDevLimit_; }
    float getMeanLimit() const { return meanLimit_; }

    /// @param out       single-precision image to multiply frames by; empty before anything was learned
    /// @param deepCopy  false for a second header on the same data, which later learning changes
    void getDamping(cv::Mat& out, bool deepCopy) const;

private:
    void calculateDamping(const cv::Mat_<float>& mean, const cv::Mat_<float>& stdDev, FILTERMODE mode);
    bool checkMeanLimit(const cv::Mat_<float>& mean, int y, int x) const;
    void excludeLargeGroups(const cv::Mat_<float>& mean, cv::Mat_<float>& stdDev) const;

    cv::Mat damping_;
    unsigned int clusterWidth_;
    unsigned int clusterHeight_;
    float stdDevLimit_;
    float alphaDamping_;
    float meanLimit_;
};

}  // namespace halvor::vx
