// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/optics/SlantedEdge.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <sstream>
#include <vector>

#include "apps/vxkit/optics/EdgeModel.h"

namespace vxapp {

namespace {

constexpr double largePixel = 0.5;  // of the frame
constexpr int leastRows = 10;
constexpr double leastContrast = 12.0;  // times the noise
constexpr double mostMisfit = 0.003;
constexpr double mostSigma = 4.0;   // in pixels of the large image
constexpr double mostError = 0.15;  // of sigma
constexpr double pi = 3.14159265358979323846;

/// x = place + slope * (y - middle row)
struct Line
{
    double place;
    double slope;
};

/// One pixel beside the edge.
struct Sample
{
    double x;
    double y;  // from the middle row
    double value;
};

/// What is fitted. Lengths are in pixels of the frame, but sigma in those of the large image.
struct Fit
{
    Line line;
    double sigma;
    std::array<double, 4> levels;  // dark side, step, gradient across and along the columns
};

constexpr int parameters = 7;
using Vector = cv::Vec<double, parameters>;
using Normal = cv::Matx<double, parameters, parameters>;

// A ridge of the gradient, by weighted least squares in a band that narrows. Noise has the smallest weights.
std::optional<Line> findLine(const cv::Mat_<float>& values)
{
    cv::Mat_<float> smooth;
    cv::Mat_<float> gradient;
    cv::GaussianBlur(values, smooth, {5, 5}, 1.0);
    cv::Sobel(smooth, gradient, CV_32F, 1, 0);
    const double sign = cv::sum(gradient.mul(cv::abs(gradient)))[0] < 0.0 ? -1.0 : 1.0;
    double highest = 0.0;
    cv::minMaxLoc(sign * gradient, nullptr, &highest);
    const double middle = 0.5 * (values.rows - 1);
    Line line{0.5 * (values.cols - 1), 0.0};
    for (double band = values.cols; band > 1.5; band *= 0.7) {
        double w = 0.0, wy = 0.0, wyy = 0.0, wx = 0.0, wxy = 0.0;
        for (int r = 0; r < values.rows; ++r)
            for (int c = 0; c < values.cols; ++c) {
                const double steep = sign * static_cast<double>(gradient(r, c)) - 0.2 * highest;
                const double y = r - middle;
                const double distance = (c - line.place - line.slope * y) / band;
                if (steep <= 0.0 || std::abs(distance) > 3.0)
                    continue;
                const double weight = steep * steep * std::exp(-0.5 * distance * distance);
                w += weight;
                wy += weight * y;
                wyy += weight * y * y;
                wx += weight * c;
                wxy += weight * c * y;
            }
        const double determinant = w * wyy - wy * wy;
        if (determinant <= 1e-9 * w * w)
            return std::nullopt;
        line.slope = (w * wxy - wy * wx) / determinant;
        line.place = (wx - line.slope * wy) / w;
    }
    return line;
}

// Pixels within a distance of the line, of the rows in which the region has the distance on both sides.
std::vector<Sample> samplesBeside(const cv::Mat_<float>& values, const Line& line, double distance, int& rows)
{
    std::vector<Sample> samples;
    const double across = distance * std::sqrt(1.0 + line.slope * line.slope);
    rows = 0;
    for (int r = 0; r < values.rows; ++r) {
        const double y = r - 0.5 * (values.rows - 1);
        const double x = line.place + line.slope * y;
        if (x - across < 0.0 || x + across > values.cols - 1)
            continue;
        ++rows;
        for (int c = static_cast<int>(std::ceil(x - across)); c <= static_cast<int>(x + across); ++c)
            samples.push_back({1.0 * c, y, static_cast<double>(values(r, c))});
    }
    return samples;
}

/// The model at a fit, with its derivatives.
class FittedEdge
{
public:
    static constexpr double sigmaStep = 1e-3;

    explicit FittedEdge(const Fit& fit)
        : fit_(fit),
          cosine_(1.0 / std::sqrt(1.0 + fit.line.slope * fit.line.slope)),
          model_(fit.sigma, fit.line.slope)
    {}

    double distance(const Sample& s) const
    {
        return (s.x - fit_.line.place - fit_.line.slope * s.y) * cosine_;
    }

    double residue(const Sample& s) const
    {
        const double d = distance(s);
        return s.value - fit_.levels[0] - fit_.levels[1] * model_.at(d) - fit_.levels[2] * d -
               fit_.levels[3] * s.y;
    }

    /// @param wider  the model with a sigma that is larger by sigmaStep
    Vector derivatives(const Sample& s, const EdgeModel& wider) const
    {
        const double d = distance(s);
        const double step = fit_.levels[1];
        const double perPixel = (step * model_.slopeAt(d) + fit_.levels[2]) * cosine_;
        return {-perPixel, -perPixel * s.y, step * (wider.at(d) - model_.at(d)) / sigmaStep,
                1.0,       model_.at(d),    d,
                s.y};
    }

private:
    Fit fit_;
    double cosine_;
    EdgeModel model_;
};

double squares(const std::vector<Sample>& samples, const Fit& fit)
{
    const FittedEdge edge(fit);
    double sum = 0.0;
    for (const Sample& s : samples)
        sum += edge.residue(s) * edge.residue(s);
    return sum;
}

Normal normalEquations(const std::vector<Sample>& samples, const Fit& fit, Vector& right)
{
    const FittedEdge edge(fit);
    const EdgeModel wider(fit.sigma + FittedEdge::sigmaStep, fit.line.slope);
    Normal normal = Normal::zeros();
    right = Vector::all(0.0);
    for (const Sample& s : samples) {
        const Vector j = edge.derivatives(s, wider);
        normal += j * j.t();
        right += j * edge.residue(s);
    }
    return normal;
}

Fit moved(const Fit& from, const Vector& by)
{
    Fit to = from;
    to.line.place += by[0];
    to.line.slope = std::clamp(to.line.slope + by[1], -1.5, 1.5);
    to.sigma = std::clamp(to.sigma + std::clamp(by[2], -0.5 * from.sigma, from.sigma), 0.05, 1.1 * mostSigma);
    for (std::size_t i = 0; i < to.levels.size(); ++i)
        to.levels[i] += by[static_cast<int>(i) + 3];
    return to;
}

Fit fitted(const std::vector<Sample>& samples, Fit fit)
{
    constexpr int mostSteps = 40;
    double damping = 1e-3;
    double best = squares(samples, fit);
    for (int step = 0; step < mostSteps && damping < 1e8; ++step) {
        Vector right;
        Normal normal = normalEquations(samples, fit, right);
        for (int i = 0; i < parameters; ++i)
            normal(i, i) *= 1.0 + damping;
        Vector by;
        cv::solve(normal, right, by, cv::DECOMP_SVD);
        const Fit next = moved(fit, by);
        const double sum = squares(samples, next);
        if (sum > best) {
            damping *= 10.0;
            continue;
        }
        const bool isDone = best - sum <= 1e-9 * best;
        fit = next;
        best = sum;
        damping *= 0.1;
        if (isDone)
            break;
    }
    return fit;
}

/// What the edge spread function in quarters of a pixel tells of a fit.
struct SpreadFunction
{
    double misfit;   ///< distance from the model beyond what the noise explains, share of the step
    double chance;   ///< as much of it as noise alone may feign
    bool isCovered;  ///< whether there are samples in each quarter
};

SpreadFunction spreadFunction(const std::vector<Sample>& samples, const Fit& fit)
{
    constexpr int bins = 16;  // over two pixels on each side
    constexpr double perPixel = 4.0;
    std::array<double, bins> sums{};
    std::array<int, bins> counts{};
    double squared = 0.0;
    const FittedEdge edge(fit);
    for (const Sample& s : samples) {
        const int bin = static_cast<int>(std::floor(edge.distance(s) * perPixel)) + bins / 2;
        if (bin < 0 || bin >= bins)
            continue;
        sums.at(static_cast<std::size_t>(bin)) += edge.residue(s);
        squared += edge.residue(s) * edge.residue(s);
        ++counts.at(static_cast<std::size_t>(bin));
    }
    // The noise of a mean follows from the scatter within the bins, which a misfit leaves alone.
    double means = 0.0;
    double shares = 0.0;
    double total = 0.0;
    for (std::size_t bin = 0; bin < bins; ++bin)
        if (counts.at(bin) > 0) {
            const double mean = sums.at(bin) / counts.at(bin);
            means += mean * mean;
            shares += 1.0 / counts.at(bin);
            squared -= mean * sums.at(bin);
            total += counts.at(bin);
        }
    const double noise = shares * std::max(0.0, squared) / std::max(1.0, total - bins);
    const double step = std::abs(fit.levels[1]);
    const bool isCovered =
        std::count_if(counts.begin(), counts.end(), [](int n) { return n >= 2; }) >= bins - 2;
    return {std::sqrt(std::max(0.0, means - noise) / bins) / step,
            std::sqrt(5.0 * std::sqrt(2.0 / bins) * noise / bins) / step, isCovered};
}

std::string shareText(double share)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << share * 100.0 << " %";
    return text.str();
}

std::string problemOf(const EdgeMeasurement& found, const SpreadFunction& spread, double slope)
{
    if (!(found.contrast >= leastContrast * found.noise) || found.contrast == 0.0)
        return "the step between its sides is not " + std::to_string(static_cast<int>(leastContrast)) +
               " times as large as the noise";
    if (std::abs(slope) > 1.0 || !spread.isCovered)
        return "it runs along the pixels or their diagonal; expected a slant of a few degrees";
    if (found.sigma > largePixel * mostSigma)
        return "it is too soft to come of a point spread";
    if (found.misfit > std::hypot(mostMisfit, spread.chance))
        return "its shape is not that of one straight edge without sharpening (" + shareText(found.misfit) +
               " of the step beside it)";
    if (found.deviation > mostError * std::max(found.sigma, leastSigma))
        return "the point spread is uncertain by more than " + shareText(mostError);
    return "";
}

// The columns' direction; the other comes by turning the picture.
EdgeMeasurement measureUpright(const cv::Mat_<float>& values)
{
    EdgeMeasurement found;
    const std::optional<Line> line = findLine(values);
    if (!line || std::abs(line->slope) > 1.2) {
        found.problem = "there is no straight edge";
        return found;
    }
    Fit fit{*line, 1.0, {0.0, 0.0, 0.0, 0.0}};
    std::vector<Sample> samples;
    double beside = 4.0;
    for (int pass = 0; pass < 2; ++pass) {
        samples = samplesBeside(values, fit.line, beside, found.length);
        if (found.length < leastRows) {
            found.problem = "fewer than " + std::to_string(leastRows) + " rows or columns show it with " +
                            std::to_string(static_cast<int>(std::ceil(beside))) + " pixels on each side";
            return found;
        }
        fit = fitted(samples, fit);
        beside = std::clamp(2.0 * fit.sigma + 2.5, 3.0, 9.0);
    }
    Fit told = fit;
    told.sigma = std::max(fit.sigma, leastSigma / largePixel);
    Vector unused;
    const Normal normal = normalEquations(samples, told, unused);
    found.noise = std::sqrt(squares(samples, fit) / static_cast<double>(samples.size() - parameters));
    found.sigma = largePixel * fit.sigma;
    found.deviation = largePixel * found.noise * std::sqrt(std::max(0.0, normal.inv(cv::DECOMP_SVD)(2, 2)));
    found.angle = std::atan(std::abs(fit.line.slope)) * 180.0 / pi;
    found.middle = {fit.line.place, 0.5 * (values.rows - 1)};
    found.contrast = std::abs(fit.levels[1]);
    const SpreadFunction spread = spreadFunction(samples, fit);
    found.misfit = spread.misfit;
    found.problem = problemOf(found, spread, fit.line.slope);
    return found;
}

// Windows in which one direction stands out, those with the most of it first.
std::vector<cv::Rect> promisingWindows(const cv::Mat_<float>& frame)
{
    constexpr int side = 32;
    constexpr std::size_t most = 32;
    const int step = std::max(side / 4, std::min(frame.cols, frame.rows) / 32);
    cv::Mat_<float> across;
    cv::Mat_<float> down;
    cv::Sobel(frame, across, CV_32F, 1, 0);
    cv::Sobel(frame, down, CV_32F, 0, 1);
    std::vector<std::pair<double, cv::Rect>> windows;
    for (int y = 0; y == 0 || y + side <= frame.rows; y += step)
        for (int x = 0; x == 0 || x + side <= frame.cols; x += step) {
            const cv::Rect window(x, y, std::min(side, frame.cols), std::min(side, frame.rows));
            const double xx = across(window).dot(across(window));
            const double yy = down(window).dot(down(window));
            const double xy = across(window).dot(down(window));
            const double energy = xx + yy;
            const double oriented = std::hypot(xx - yy, 2.0 * xy);
            windows.emplace_back(energy > 0.0 ? oriented * oriented / energy : 0.0, window);
        }
    std::sort(windows.begin(), windows.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<cv::Rect> best;
    for (std::size_t i = 0; i < std::min(most, windows.size()); ++i)
        best.push_back(windows[i].second);
    return best;
}

}  // namespace

EdgeMeasurement measureEdge(const cv::Mat_<float>& frame, const cv::Rect& region)
{
    cv::Mat_<float> values = frame(region).clone();
    values -= cv::mean(values)[0];
    cv::Mat_<float> across;
    cv::Mat_<float> down;
    cv::Sobel(values, across, CV_32F, 1, 0);
    cv::Sobel(values, down, CV_32F, 0, 1);
    const bool isUpright = cv::norm(across) >= cv::norm(down);
    EdgeMeasurement found = measureUpright(isUpright ? values : cv::Mat_<float>(values.t()));
    found.isUpright = isUpright;
    if (!isUpright)
        std::swap(found.middle.x, found.middle.y);
    found.middle += cv::Point2d(region.tl());
    return found;
}

EdgeMeasurement findEdge(const cv::Mat_<float>& frame, cv::Rect& region)
{
    EdgeMeasurement best;
    best.problem = "there is no straight, slanted edge with a flat surface on both sides";
    for (const cv::Rect& window : promisingWindows(frame)) {
        const EdgeMeasurement found = measureEdge(frame, window);
        if (!found.isUsable() || (best.isUsable() && found.deviation >= best.deviation))
            continue;
        best = found;
        region = window;
    }
    return best;
}

}  // namespace vxapp
