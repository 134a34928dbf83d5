// SPDX-License-Identifier: Apache-2.0
#include "enhancement/ClusterPatternRemover.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "core/base/Exception.h"
#include "enhancement/PixelStatistics.h"

namespace halvor::vx {

namespace {

// Differences to the background below this share of the mean are rounding of the blur.
constexpr float blurRounding = 1e-6F;

// A window of twice the cluster and more, cut to the image: a cluster fills at most a quarter of it.
int windowSize(unsigned int cluster, int imageSize)
{
    const unsigned int half = std::clamp(cluster, 1U, static_cast<unsigned int>(imageSize));
    return 2 * static_cast<int>(half) + 1;
}

}  // namespace

ClusterPatternRemover::ClusterPatternRemover(unsigned int width, unsigned int height, float a, float /*b*/,
                                             float c)
    : clusterWidth_(width),
      clusterHeight_(height),
      stdDevLimit_(a),
      alphaDamping_(a),  // hosts rely on one value for both
      meanLimit_(c)
{}

ClusterPatternRemover::ClusterPatternRemover(const ClusterPatternRemover& other)
    : damping_(other.damping_.clone()),
      clusterWidth_(other.clusterWidth_),
      clusterHeight_(other.clusterHeight_),
      stdDevLimit_(other.stdDevLimit_),
      alphaDamping_(other.alphaDamping_),
      meanLimit_(other.meanLimit_)
{}

ClusterPatternRemover& ClusterPatternRemover::operator=(const ClusterPatternRemover& other)
{
    if (this != &other)
        *this = ClusterPatternRemover(other);
    return *this;
}

void ClusterPatternRemover::learn(const cv::Mat_<float>& mean, const cv::Mat_<float>& stdDev, FILTERMODE mode)
{
    if (mean.empty() || mean.size() != stdDev.size())
        throw Exception("mean and standard deviation must be images of one size",
                        VX_WHERE("halvor::vx::ClusterPatternRemover::learn"));
    cv::Mat_<float> bounded = stdDev.clone();
    excludeLargeGroups(mean, bounded);
    calculateDamping(mean, bounded, mode);
}

void ClusterPatternRemover::learn(const std::vector<cv::Mat>& frames, FILTERMODE mode)
{
    if (frames.size() < 2)
        throw Exception("a standard deviation needs at least two frames",
                        VX_WHERE("halvor::vx::ClusterPatternRemover::learn"));
    PixelStatistics statistics;
    for (const cv::Mat& frame : frames)
        statistics.add(frame);
    learn(statistics.mean(), statistics.stdDev(), mode);
}

void ClusterPatternRemover::setClusterSize(unsigned int width, unsigned int height)
{
    if (width != clusterWidth_ || height != clusterHeight_)
        damping_.release();
    clusterWidth_ = width;
    clusterHeight_ = height;
}

bool ClusterPatternRemover::setAlphaDamping(float alpha)
{
    if (!(alpha >= 0.0F && alpha <= 1.0F))
        return false;
    alphaDamping_ = alpha;
    return true;
}

void ClusterPatternRemover::getDamping(cv::Mat& out, bool deepCopy) const
{
    out = deepCopy ? damping_.clone() : damping_;
}

void ClusterPatternRemover::calculateDamping(const cv::Mat_<float>& mean, const cv::Mat_<float>& stdDev,
                                             FILTERMODE mode)
{
    cv::Mat_<float> filtered;
    switch (mode) {
        case MEDIAN:
            cv::medianBlur(mean, filtered, 3);
            break;
        case GAUSSIAN:
            cv::GaussianBlur(mean, filtered, cv::Size(3, 3), 0, 0, cv::BORDER_REFLECT_101);
            break;
        default:
            throw Exception("unsupported mode", "halvor::vx::ClusterPatternRemover::calculateDamping");
    }
    if (mean.size() != damping_.size())
        damping_ = cv::Mat(mean.size(), CV_32F, cv::Scalar(1.0));
    for (int y = 0; y < stdDev.rows; ++y) {
        float* learned = damping_.ptr<float>(y);
        for (int x = 0; x < stdDev.cols; ++x) {
            const float own = mean(y, x);
            if (!(std::abs(stdDev(y, x)) < stdDevLimit_) || !checkMeanLimit(mean, y, x) || own == 0.0F)
                continue;
            learned[x] = (1.0F - alphaDamping_) * learned[x] + (filtered(y, x) / own) * alphaDamping_;
        }
    }
}

bool ClusterPatternRemover::checkMeanLimit(const cv::Mat_<float>& mean, int y, int x) const
{
    for (int ny = std::max(y - 1, 0); ny <= std::min(y + 1, mean.rows - 1); ++ny)
        for (int nx = std::max(x - 1, 0); nx <= std::min(x + 1, mean.cols - 1); ++nx)
            if (std::abs(mean(y, x) - mean(ny, nx)) > meanLimit_)
                return false;
    return true;
}

// A group that exceeds the cluster size gets a standard deviation that no limit accepts.
void ClusterPatternRemover::excludeLargeGroups(const cv::Mat_<float>& mean, cv::Mat_<float>& stdDev) const
{
    cv::Mat_<float> background;
    cv::blur(mean, background,
             cv::Size(windowSize(clusterWidth_, mean.cols), windowSize(clusterHeight_, mean.rows)),
             cv::Point(-1, -1), cv::BORDER_REFLECT_101);
    const cv::Mat deviation = mean - background;
    cv::Mat_<float> unseen(mean.size());
    std::transform(mean.begin(), mean.end(), stdDev.begin(), unseen.begin(),
                   [](float level, float noise) { return std::abs(noise) + std::abs(level) * blurRounding; });
    const cv::Mat sides[] = {deviation > unseen, -deviation > unseen};
    for (const cv::Mat& side : sides) {
        cv::Mat_<int> labels;
        cv::Mat_<int> groups;
        cv::Mat centroids;
        const int count = cv::connectedComponentsWithStats(side, labels, groups, centroids);
        std::vector<bool> tooLarge(static_cast<std::size_t>(count));
        for (int group = 1; group < count; ++group)
            tooLarge[static_cast<std::size_t>(group)] =
                static_cast<unsigned int>(groups(group, cv::CC_STAT_WIDTH)) > clusterWidth_ ||
                static_cast<unsigned int>(groups(group, cv::CC_STAT_HEIGHT)) > clusterHeight_;
        std::transform(
            labels.begin(), labels.end(), stdDev.begin(), stdDev.begin(), [&](int label, float own) {
                return tooLarge[static_cast<std::size_t>(label)] ? std::numeric_limits<float>::infinity()
                                                                 : own;
            });
    }
}

}  // namespace halvor::vx
