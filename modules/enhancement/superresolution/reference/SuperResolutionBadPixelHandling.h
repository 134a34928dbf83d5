// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/base/PointI.h"

namespace halvor::vx {

/// Keeps defect sensor pixels out of super-resolution: repairs them in each incoming frame and remembers
/// where they were, then refills the places in the large image that they left their trace on.
///
/// A pixel of a frame is defect if it holds one of the 32-bit patterns 0x81 (over-range marker), 0x82
/// (under-range marker), 0x84 or 0x85 (invalid markers), an infinity or a not-a-number, or a value outside
/// the limits: -274 to 5000 degrees Celsius, or -32768 to 32767 counts after setDataIsNUC(true). The markers
/// are denormal numbers: they are told by their bits, and code that handles frames must not flush them to
/// zero.
class VXKIT_API SuperResolutionBadPixelHandling
{
public:
    /// @param frameCount  number of frames whose defects are remembered
    explicit SuperResolutionBadPixelHandling(unsigned int frameCount);
    // A copy would share the defect maps, which are reused from frame to frame.
    SuperResolutionBadPixelHandling(const SuperResolutionBadPixelHandling&) = delete;
    SuperResolutionBadPixelHandling(SuperResolutionBadPixelHandling&&) = default;
    SuperResolutionBadPixelHandling& operator=(const SuperResolutionBadPixelHandling&) = delete;
    SuperResolutionBadPixelHandling& operator=(SuperResolutionBadPixelHandling&&) = default;
    ~SuperResolutionBadPixelHandling() = default;

    /// Which limits are in force: those of raw counts, or (the default) those of temperatures.
    void setDataIsNUC(bool isNUC);

    /// Repairs the defect pixels of a frame in place and remembers them, in place of the oldest frame's when
    /// the window is full.
    ///
    /// A pixel takes the mean of its four neighbours, or at the frame's edge of its three, if all of them are
    /// good. Otherwise one that is over (under) the range takes the largest (smallest) good value of the
    /// frame, and an invalid one 0.
    ///
    /// @return 0, or -2 if a pixel without a range marker had to take such a fallback value
    /// @throws Exception  "Too many defect pixels. No processing possible." if more than 10 invalid pixels
    ///                    became 0; the frame is repaired and remembered all the same
    int detectAndReplaceBadPixel(cv::Mat_<float>& frame);

    /// Stamps a marker on the 7 x 7 pixels of the large image around the place of each remembered defect.
    ///
    /// @param result  large image, twice the frames' size
    /// @param shifts  displacement of each remembered frame in frame pixels, oldest first
    /// @throws Exception  if there are not as many shifts as remembered frames
    void maskBadPixel(cv::Mat_<float>& result, const std::vector<PointF>& shifts) const;

    /// Gives each marked pixel of the large image the mean of the good frame pixels that cover it. One that
    /// no good pixel covers keeps its marker.
    ///
    /// @param result  large image, twice the frames' size
    /// @param shifts, frames  displacement in frame pixels, and values, of the remembered frames, oldest
    ///                        first; where one list is shorter, the frames behind its end are not used
    /// @throws Exception  if no frame was seen yet
    void replaceMaskedPixel(cv::Mat_<float>& result, const std::vector<PointF>& shifts,
                            const std::vector<cv::Mat_<float>>& frames) const;

    /// Paints over-range markers (0, 0, 255) and under-range markers (255, 0, 0); leaves all other pixels.
    ///
    /// @param colours  same size as the image
    /// @throws Exception  if the sizes differ
    static void colorBadPixel(const cv::Mat_<float>& image, cv::Mat_<cv::Vec<unsigned char, 3>>& colours);

    /// Smallest and largest good value of an image and, unless null, their first places in row order.
    ///
    /// Without a value strictly inside the limits, minimum is the upper limit, maximum the lower one, and the
    /// places are left alone.
    void getMinMaxVal(const cv::Mat_<float>& image, float& minimum, float& maximum,
                      cv::Point_<int>* minimumPlace, cv::Point_<int>* maximumPlace) const;

private:
    struct Repair
    {
        int unrepairable = 0;
        bool usedFallback = false;
    };

    bool isValid(float value) const;
    unsigned char defectCode(float value) const;
    bool getReplacementValue_(const cv::Mat_<float>& image, int x, int y, float& value) const;
    bool hasDefects(const cv::Mat_<float>& frame) const;
    Repair repair(cv::Mat_<float>& frame, cv::Mat_<unsigned char>& map) const;
    static float fallbackFor(unsigned char code, float smallest, float largest, Repair& outcome);
    cv::Mat_<unsigned char> nextMap(const cv::Size& size);
    void refill(float& pixel, int x, int y, const std::vector<PointF>& shifts,
                const std::vector<cv::Mat_<float>>& frames) const;

    std::uint32_t maxFrames_;
    float minValue_ = 0.0F;
    float maxValue_ = 0.0F;
    bool dataIsNuc_ = false;
    std::array<PointI, 4> neighbours_;
    std::vector<cv::Mat_<unsigned char>> defectMaps_;
};

}  // namespace halvor::vx
