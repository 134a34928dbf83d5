// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "support/Counts.h"

namespace vxapp {

struct FileFormat;

/// Writes the files of a simulation into one folder, which is created if need be. Existing files are replaced
/// only if `force` is set; reserve() checks that before anything is written.
class SimulatedFiles
{
public:
    /// @param format  takes floats, counts or, for all frames in one file, is that of headerless recordings
    SimulatedFiles(std::filesystem::path folder, const FileFormat& format, vxsupport::CountScale scale,
                   bool force);

    /// Checks that the folder can be made or written to and that none of the files is in the way.
    ///
    /// @param series  frames of each name, as writeSeries() will be given them
    void reserve(const std::vector<std::string>& seriesNames, int frames,
                 const std::vector<std::string>& singleFiles) const;

    /// Writes `frames` frames: "NAME-000.png" and so on, or "NAME.raw".
    void writeSeries(const std::string& name, int frames,
                     const std::function<cv::Mat_<float>(int)>& frame) const;

    /// Writes floats as TIFF.
    void writeFloats(const std::string& fileName, const cv::Mat_<float>& image) const;
    void writeText(const std::string& fileName, const std::string& text) const;

private:
    bool isOneFile() const;
    std::filesystem::path pathOf(const std::string& series, int frame) const;
    std::filesystem::path sequenceOf(const std::string& series) const;
    void makeFolder() const;

    std::filesystem::path folder_;
    const FileFormat& format_;
    vxsupport::CountScale scale_;
    bool force_;
};

}  // namespace vxapp
