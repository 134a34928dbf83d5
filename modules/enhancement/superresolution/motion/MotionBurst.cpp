// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/MotionBurst.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "core/base/Kernel.h"
#include "core/base/RowSums.h"
#include "enhancement/superresolution/motion/DefectMap.h"
#include "enhancement/superresolution/motion/MotionSettings.h"

namespace halvor::vx {

namespace {

constexpr int border = MotionSettings::border;
// Noise is taken for at least this share of the frame's deviation: without any, each rounding error would count.
constexpr double leastNoise = 4e-3;
// Below these a burst adds nothing: how much the other frames count, and how many positions there are.
constexpr double leastShare = 0.02;
constexpr double leastPositions = 1.05;

struct Moments
{
    double sum;
    double squares;
};

VX_KERNEL void sumMoments(const float* row, float centre, int n, Moments& moments)
{
    moments.sum += laneSum(n, [=](int i) { return row[i] - centre; });
    moments.squares += laneSum(n, [=](int i) { return (row[i] - centre) * (row[i] - centre); });
}

VX_KERNEL void normaliseRow(const float* VX_RESTRICT in, float centre, float factor, int n,
                            float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = (in[i] - centre) * factor;
}

VX_KERNEL void denormaliseRow(const float* VX_RESTRICT in, float factor, float centre, int n,
                              float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = in[i] * factor + centre;
}

// Threads for work of which each needs memory of its own.
int teamSize(std::size_t workers)
{
    return std::min(omp_get_max_threads(), static_cast<int>(workers));
}

int samplesOf(const cv::Size& size)
{
    const auto along = [](int length) { return (length + 7) / 8; };
    return along(size.width) * along(size.height);
}

// How alike two positions sample the detail beyond the frame's own grid: 1 if they are the same, 0 half a pixel
// apart in one direction.
double likeness(const PointF& a, const PointF& b)
{
    const double x = std::cos(std::numbers::pi * static_cast<double>(a.x - b.x));
    const double y = std::cos(std::numbers::pi * static_cast<double>(a.y - b.y));
    return x * x * (y * y);
}

}  // namespace

MotionBurst::MotionBurst(const cv::Size& size, int capacity)
    : size_(size),
      still_(1, size.width, 0.0F),
      reference_(size),
      solver_(size, capacity),
      compared_(static_cast<std::size_t>(capacity)),
      noises_(static_cast<std::size_t>(capacity)),
      single_(solver_.estimate().size()),
      weight_(1, size.width),
      coverage_(size, 1.0F)
{
    for (int i = 0; i < capacity; ++i)
        normalised_.emplace_back(size);
    for (ComparedFrame& frame : compared_)
        frame.samples.resize(static_cast<std::size_t>(samplesOf(size)));
    const int workers = std::clamp(std::max(omp_get_num_procs(), omp_get_max_threads()), 1, capacity);
    for (int i = 0; i < workers; ++i)
        sorted_.emplace_back(static_cast<std::size_t>(size.area()));
    for (int i = 0; i < std::min(workers, capacity - 1); ++i)
        comparisons_.emplace_back(size);
}

void MotionBurst::normalise(const std::vector<MotionFrame>& frames, int count, int reference)
{
#pragma omp parallel for schedule(static, 1) num_threads(teamSize(sorted_.size()))
    for (int k = 0; k < count; ++k)
        noises_[static_cast<std::size_t>(k)] =
            frameNoise(frames[static_cast<std::size_t>(k)].values,
                       sorted_[static_cast<std::size_t>(omp_get_thread_num())]);
    std::vector<float> noises(noises_.begin(), noises_.begin() + count);

    const cv::Mat_<float>& base = frames[static_cast<std::size_t>(reference)].values;
    Moments moments{};
    for (int y = 0; y < size_.height; ++y)
        sumMoments(base[y], base(0, 0), size_.width, moments);
    const double mean = moments.sum / size_.area();
    const double deviation = std::sqrt(std::max(0.0, moments.squares / size_.area() - mean * mean));
    centre_ = static_cast<float>(mean) + base(0, 0);
    noise_ = std::max(medianOf(noises), static_cast<float>(leastNoise * deviation));
    if (!(noise_ > 0.0F))
        noise_ = 1.0F;
    for (int k = 0; k < count; ++k) {
        const cv::Mat_<float>& values = frames[static_cast<std::size_t>(k)].values;
        for (int y = 0; y < size_.height; ++y)
            normaliseRow(values[y], centre_, 1.0F / noise_, size_.width,
                         normalised_[static_cast<std::size_t>(k)][y]);
    }
}

void MotionBurst::placeReference(const MotionFrame& reference)
{
    for (int y = 0; y < size_.height; ++y) {
        for (int x = 0; x < size_.width; ++x)
            weight_(0, x) = reference.defects(y, x) == noDefect ? 1.0F : 0.0F;
        solver_.frame(0).setRow(y, still_[0], still_[0], weight_[0], reference.values[y]);
    }
}

void MotionBurst::run(const std::vector<MotionFrame>& frames, int count, int reference, cv::Mat_<float>& out)
{
    const MotionFrame& base = frames[static_cast<std::size_t>(reference)];
    const cv::Mat_<float>& values = normalised_[static_cast<std::size_t>(reference)];
    normalise(frames, count, reference);
    placeReference({values, base.defects});
    solver_.start(values);
    solver_.solve(1, MotionSettings::priorSingle);
    if (count > 1)
        compareOthers(frames, count, reference);
    fillReport(count, reference);
    const bool usesAll = report_.outcome == BurstOutcome::severalFrames;
    solver_.coverage(usesAll ? count : 1, coverage_);
    if (usesAll) {
        double others = 0.0;
        for (const LocalMotionReport::Frame& frame : report_.frames)
            others += frame.isReference ? 0.0 : static_cast<double>(frame.weight) / (count - 1);
        solver_.solve(count, MotionSettings::priorMany +
                                 MotionSettings::priorFewer * (1.0F - static_cast<float>(others)));
    }
    write(out);
    markUnseen(base.defects, coverage_, out);
}

// The solver's frame 0 is the reference, the others follow in their order.
void MotionBurst::compareOthers(const std::vector<MotionFrame>& frames, int count, int reference)
{
    reference_.set(normalised_[static_cast<std::size_t>(reference)]);
#pragma omp parallel for schedule(static, 1) num_threads(teamSize(comparisons_.size()))
    for (int other = 0; other < count - 1; ++other) {
        const auto k = static_cast<std::size_t>(other < reference ? other : other + 1);
        comparisons_[static_cast<std::size_t>(omp_get_thread_num())].run(
            reference_, normalised_[k], frames[k].defects, solver_, solver_.frame(other + 1), compared_[k]);
    }
}

double MotionBurst::samplingPositions() const
{
    double total = 0.0;
    double shared = 0.0;
    const auto count = report_.frames.size();
    for (std::size_t sample = 0; sample < compared_.front().samples.size(); ++sample) {
        double weights = 0.0;
        double alike = 0.0;
        const auto at = [&](std::size_t k) {
            return report_.frames[k].isReference ? MotionSample{{0.0F, 0.0F}, 1.0F}
                   : report_.frames[k].fits      ? compared_[k].samples[sample]
                                                 : MotionSample{{0.0F, 0.0F}, 0.0F};
        };
        for (std::size_t i = 0; i < count; ++i) {
            const MotionSample a = at(i);
            weights += static_cast<double>(a.weight);
            for (std::size_t j = 0; j < count; ++j) {
                const MotionSample b = at(j);
                alike += static_cast<double>(a.weight) * static_cast<double>(b.weight) *
                         likeness(a.motion, b.motion);
            }
        }
        total += weights * weights;
        shared += alike;
    }
    return total / shared;
}

void MotionBurst::fillReport(int count, int reference)
{
    report_ = {};
    report_.noise = noise_;
    const double pixels = size_.area();
    double weight = 0.0;
    double missed = 0.0;
    for (int k = 0; k < count; ++k) {
        if (k == reference) {
            report_.frames.push_back({true, true, {0.0F, 0.0F}, 0.0F, 1.0F});
            continue;
        }
        const ComparedFrame& frame = compared_[static_cast<std::size_t>(k)];
        if (!frame.fits) {
            report_.frames.push_back({false, false, {0.0F, 0.0F}, 0.0F, 0.0F});
            continue;
        }
        weight += frame.weight;
        missed += frame.missed;
        report_.frames.push_back(
            {false, true, frame.shift, frame.largestLocal, static_cast<float>(frame.weight / pixels)});
    }
    if (count > 1)
        judge(weight, weight > 0.0 ? missed / weight : 1.0);
}

// Whether the other frames add something, and about how much. With a burst at hand for which that can be measured,
// the gain follows the detail that the reference alone misses, the share of the frames that count and the spread
// of their positions.
void MotionBurst::judge(double weight, double missed)
{
    const double pixels = size_.area();
    const double share = weight / pixels / static_cast<double>(report_.frames.size() - 1);
    if (share < leastShare) {
        report_.outcome = BurstOutcome::noFrameFits;
        return;
    }
    const double positions = samplingPositions();
    report_.positions = static_cast<float>(positions);
    if (positions < leastPositions) {
        report_.outcome = BurstOutcome::onePosition;
        return;
    }
    report_.outcome = BurstOutcome::severalFrames;
    report_.effectiveFrames = static_cast<float>(1.0 + weight / pixels);
    const double detail = 10.0 * std::log10(std::max(missed, 1.0));
    report_.predictedGain = static_cast<float>(detail * share * std::sqrt(1.0 - 1.0 / positions));
}

void MotionBurst::write(cv::Mat_<float>& out) const
{
    const cv::Mat_<float>& picture = solver_.estimate();
    for (int y = 0; y < out.rows; ++y)
        denormaliseRow(picture[y + border] + border, noise_, centre_, out.cols, out[y]);
}

}  // namespace halvor::vx
