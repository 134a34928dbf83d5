// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

#include "apps/vxkit/formats/SampleType.h"
#include "apps/vxkit/stream/FrameRun.h"

namespace vxapp {

struct SequenceOptions;

/// What a command line tells about the samples of a recording.
struct ScaleOptions
{
    SampleForm form = SampleForm::unsignedCounts;
    std::optional<double> scale;  ///< value = count * scale + offset
    std::optional<double> offset;
};

/// How the values of a recording become the 16-bit samples of the chain and its filters, and how these become values
/// again.
///
/// - Unsigned counts of 16 bits are the samples; with a scale or an offset, what comes back is count * scale + offset.
/// - Signed counts of 16 bits are the samples, bit by bit.
/// - Everything else is value = count * scale + offset with a scale that is given, or chosen: 1 for whole numbers
///   in a range of 16 bits, else a round number of at most a quarter of the noise, so that nothing is lost; more
///   only where the range needs it.
///
/// Values that are no numbers are replaced by their neighbours' median.
class SampleScale
{
public:
    /// Looks through recordings whose scale is to be chosen.
    /// @throws UsageError if a scale is 0 or not finite, or the form doesn't fit the recording
    SampleScale(Recording& recording, const ScaleOptions& options);

    SampleForm form() const { return form_; }
    bool isChosen() const { return isChosen_; }
    /// value = count * scale() + offset()
    double scale() const { return scale_; }
    double offset() const { return offset_; }
    /// Type of the values that come back.
    SampleType valueType() const { return valueType_; }

    /// @throws UsageError if a value is beyond the 16 bits, or most are no numbers; it names the frame
    void toSamples(Recording& recording, int index, cv::Mat_<short>& samples);
    /// @return in the storage of the value type
    cv::Mat toValues(const cv::Mat_<short>& samples) const;

    /// What a file of results is to hold: values, or counts where such a file doesn't hold these.
    SampleType typeFor(const SequenceOptions& options) const;
    /// @param type  as typeFor() gives it
    cv::Mat toFile(const cv::Mat_<short>& samples, SampleType type) const;

    /// How counts are meant, for people.
    std::string description() const;
    /// Values of the frames so far that were no numbers.
    int undefinedValues() const;
    /// What a count is, if it is more than the recording's noise, so that detail is lost.
    std::optional<double> lostDetail() const;
    /// What was strange about the values of the frames so far, for people; empty for nothing.
    std::string remarks() const;

private:
    void choose(Recording& recording);
    /// @return how many values were no numbers
    int convert(const cv::Mat& values, const std::string& name, cv::Mat_<short>& samples) const;
    bool isPlain() const { return scale_ == 1.0 && offset_ == 0.0; }

    SampleForm form_;
    SampleType fileType_;
    SampleType valueType_;
    double scale_ = 1.0;
    double offset_ = 0.0;
    bool isChosen_ = false;
    double noise_ = 0.0;  // in values, where the scale was chosen by it
    double largestCount_ = 0.0;
    std::map<int, int> undefined_;  // by frame: values that were no numbers
};

}  // namespace vxapp
