// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/output/FrameSpool.h"
#include "apps/vxkit/output/Output.h"

namespace vxapp {

class Recording;

/// The results of one run in a single file: a video, or a file of several images. They are set aside until all
/// are there, since their number and the scale of counts are not known before.
class ResultStack
{
public:
    /// Whether a kind of file holds several images.
    static bool isKind(const FileFormat& format);

    /// @param unit  of the values, which chooses the scale where the file holds counts
    ResultStack(std::string path, std::string colourMap, bool force, Unit unit);

    /// Takes the next result; all are of one size.
    void add(const cv::Mat_<float>& image);

    /// Writes the file, if there is a result.
    /// @param wanted  number of results of the run
    /// @return what was written, for people: also the scale of counts, and how many results are missing
    std::string finish(int wanted, const Recording& input);

private:
    std::string path_;
    std::string colourMap_;
    bool force_;
    Unit unit_;
    std::optional<FrameSpool> results_;
    std::optional<ValueRange> range_;  // of all finite values
};

}  // namespace vxapp
