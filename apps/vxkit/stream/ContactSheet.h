// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/FrameRun.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "support/Pictures.h"

namespace vxapp {

/// What the chain makes of a frame when its equaliser is on.
inline constexpr vxsupport::ValueRange equalisedRange{0.0F, 32766.0F};

struct ContactSheetOptions
{
    std::string path;
    std::vector<int> frames;  ///< numbers in the recording; empty for its first, middle and last frame
    std::string colourMap = vxsupport::colourMapNames().front();
    bool force = false;
};

/// A picture of chosen frames on their way through the enhancer chain: the input and each stage side by side,
/// the equaliser's curve over the histogram, and what the three noise blocks have taken away.
class ContactSheet
{
public:
    /// @throws UsageError if the name isn't that of a .png file, is an input or can't be written to, or a
    ///         frame isn't in the recording
    ContactSheet(ContactSheetOptions options, const Recording& input, SampleForm form);

    /// Takes the images of the chain's last frame if that is one of the chosen.
    /// @param index  in the recording
    void add(int index, const halvor::vx::MARLOImageEnhancer& chain);

    /// @return what was written, for people
    std::string write() const;

private:
    vxsupport::Panel panel(const std::string& caption, const cv::Mat_<float>& values,
                           const vxsupport::ValueRange& range) const;
    vxsupport::Panel panel(const std::string& caption, const cv::Mat_<float>& values,
                           const vxsupport::ValueRange& range, const std::string& colourMap) const;
    cv::Size panelSize(cv::Size frame) const;
    vxsupport::Panel display(const std::string& caption, const halvor::vx::MARLOImageEnhancer& chain,
                             const halvor::vx::ChainMatrix& image, const vxsupport::ValueRange& range) const;
    vxsupport::Panel takenAway(const cv::Mat_<float>& input, const cv::Mat_<float>& clean) const;
    vxsupport::Panel curve(const halvor::vx::MARLOImageEnhancer& chain) const;
    cv::Mat_<float> counts(const halvor::vx::ChainMatrix& samples) const;

    ContactSheetOptions options_;
    int firstNumber_;
    int times_;          // enlargement of the frames
    int reduction_;      // pixels of a large frame, in both directions, that one pixel shows
    float countOfZero_;  // of sample 0
    std::vector<cv::Mat_<cv::Vec3b>> rows_;
};

}  // namespace vxapp
