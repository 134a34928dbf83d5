// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include "core/base/PointF.h"
#include "doubles/SameBits.h"
#include "enhancement/superresolution/reference/SuperResolutionRegistration.h"

namespace vxtest {

/// Warm and cold spots of several widths on a plane, defined everywhere: a displaced frame sees them exactly.
class Scene
{
public:
    /// @param margin             how far the spots reach beyond a frame of this size
    /// @param narrowest, widest  standard deviation of the spots in pixels
    Scene(const cv::Size& size, int margin, int spots, double narrowest, double widest)
    {
        std::mt19937 random(7);
        const auto uniform = [&random](double low, double high) {
            return low + (high - low) * static_cast<double>(random()) / 4294967296.0;
        };
        for (int i = 0; i < spots; ++i)
            spots_.push_back({uniform(-margin, size.width + margin), uniform(-margin, size.height + margin),
                              uniform(narrowest, widest), uniform(-6.0, 6.0)});
    }

    /// A frame in which the scene lies (dx, dy) further right and lower.
    cv::Mat_<float> frame(const cv::Size& size, double dx, double dy) const
    {
        cv::Mat_<double> sum(size, 20.0);
        for (const Spot& spot : spots_) {
            const double x = spot.x + dx;
            const double y = spot.y + dy;
            const int reach = static_cast<int>(std::ceil(5.0 * spot.width));
            const cv::Rect box(cvFloor(x) - reach, cvFloor(y) - reach, 2 * reach + 2, 2 * reach + 2);
            const cv::Rect seen = box & cv::Rect({0, 0}, size);
            for (int r = seen.y; r < seen.y + seen.height; ++r)
                for (int c = seen.x; c < seen.x + seen.width; ++c)
                    sum(r, c) += spot.height * std::exp(-((c - x) * (c - x) + (r - y) * (r - y)) /
                                                        (2.0 * spot.width * spot.width));
        }
        cv::Mat_<float> result;
        sum.convertTo(result, CV_32F);
        return result;
    }

private:
    struct Spot
    {
        double x, y, width, height;
    };
    std::vector<Spot> spots_;
};

inline const cv::Size frameSize(160, 120);

inline Scene fineScene(const cv::Size& size = frameSize)
{
    return {size, 20, (size.width + 40) * (size.height + 40) / 90, 1.5, 5.0};
}

/// Detail of a pixel or two all over the frame, as phase correlation needs it.
inline const Scene& detailedScene()
{
    static const Scene scene(frameSize, 20, 3000, 0.7, 2.0);
    return scene;
}

inline cv::Mat_<float> noise(const cv::Size& size)
{
    cv::Mat_<float> image(size);
    cv::RNG(11).fill(image, cv::RNG::UNIFORM, 20.0F, 30.0F);
    return image;
}

/// The image moved right and down, with what leaves at one side coming in at the other.
inline cv::Mat_<float> rolled(const cv::Mat_<float>& image, int right, int down)
{
    cv::Mat_<float> result(image.size());
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x)
            result((y + down + image.rows) % image.rows, (x + right + image.cols) % image.cols) = image(y, x);
    return result;
}

/// A registration with the buffers that an engine keeps for it.
template <typename Registration>
class RegistrationHarness
{
public:
    RegistrationHarness(const cv::Size& size, int windowSize)
        : registration(size.width, size.height, windowSize), size_(size)
    {
        for (int i = 0; i < windowSize; ++i) {
            masks.emplace_back(size, static_cast<char>(5));
            registered.emplace_back(size, -1.0F);
            maskRows_.push_back(masks.back()[0]);
            registeredRows_.push_back(registered.back()[0]);
        }
        shifts.assign(static_cast<std::size_t>(windowSize), PointF{-1.0F, -1.0F});
        rows_.reserve(shifts.size());
    }

    void add(const cv::Mat_<float>& frame)
    {
        frames.push_back(frame.clone());
        registration.prepareFrame(frames.back()[0]);
    }

    /// A frame that an engine holds, but that never came to the registration.
    void addUnprepared(const cv::Mat_<float>& frame) { frames.push_back(frame.clone()); }

    /// Takes no memory of its own.
    int run(int reference)
    {
        rows_.clear();
        for (cv::Mat_<float>& frame : frames)
            rows_.push_back(frame[0]);
        return registration.doRegistration(static_cast<int>(frames.size()), reference, rows_.data(),
                                           shifts.data(), maskRows_.data(), registeredRows_.data());
    }

    std::vector<PointF> complete()
    {
        std::vector<PointF> result;
        registration.getCompleteShifts(result);
        return result;
    }

    int usablePixels(std::size_t frame) const { return cv::countNonZero(masks[frame] == 1); }
    int area() const { return size_.area(); }

    Registration registration;
    std::vector<cv::Mat_<float>> frames;
    std::vector<cv::Mat_<float>> registered;
    std::vector<cv::Mat_<char>> masks;
    std::vector<PointF> shifts;

private:
    cv::Size size_;
    std::vector<float*> rows_;
    std::vector<char*> maskRows_;
    std::vector<float*> registeredRows_;
};

/// The scene's place in each frame; the second one is the reference.
inline const std::vector<cv::Point2d> burst = {
    {-1.3, 0.8}, {0.0, 0.0}, {0.4, -0.3}, {3.7, 2.2}, {-5.45, -4.6}};
inline constexpr int burstReference = 1;

template <typename Registration>
void addBurst(RegistrationHarness<Registration>& harness, const Scene& scene,
              const cv::Size& size = frameSize)
{
    for (const cv::Point2d& d : burst)
        harness.add(scene.frame(size, d.x, d.y));
}

/// Gives the serial registration, whose caller keeps the spectra, the shape of the fast ones.
class SerialRegistration
{
public:
    SerialRegistration(int width, int height, int window)
        : registration_(width, height, 2.0F, 5), spectrumSize_((width / 2 + 1) * height), window_(window)
    {}

    void prepareFrame(float* frame)
    {
        spectra_.push_back(std::make_unique<float[][2]>(static_cast<std::size_t>(spectrumSize_)));
        if (static_cast<int>(spectra_.size()) > window_)
            spectra_.erase(spectra_.begin());
        registration_.getFft()->forward(frame, spectra_.back().get());
    }

    int doRegistration(int count, int reference, float** frames, PointF* shifts, char** masks,
                       float** registered)
    {
        std::vector<float(*)[2]> spectra;
        for (const auto& spectrum : spectra_)
            spectra.push_back(spectrum.get());
        return registration_.doRegistration(count, reference, frames, spectra.data(), shifts, masks,
                                            registered);
    }

    void getCompleteShifts(std::vector<PointF>& out) { registration_.getCompleteShifts(out); }

private:
    halvor::vx::SuperResolutionRegistration registration_;
    int spectrumSize_;
    int window_;
    std::vector<std::unique_ptr<float[][2]>> spectra_;
};

}  // namespace vxtest
