// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/files/SequenceList.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/ResultStack.h"

namespace vxapp {

class Recording;

/// Where results go.
struct ResultOptions
{
    std::string path;          ///< a file of floats or counts by its ending; may be empty
    std::string preview{};     ///< 8-bit .png; may be empty, but not both
    std::string qualityMap{};  ///< 3 x 3 shares, such a file too; may be empty
    std::string confidence{};  ///< how many frames count at each pixel, such a file too; may be empty
    std::string colourMap = vxsupport::colourMapNames().front();
    bool force = false;
    bool stack = false;  ///< all results in one file, which videos are without being asked
};

/// The result files of one run: one under its own name, or several with the numbers of their newest frames.
class ResultFiles
{
public:
    /// Checks all names before any work starts.
    ///
    /// @param firstNumber, count  results are numbered firstNumber, firstNumber + 1, ...
    /// @param input  the recording that is read: what its run reads is never overwritten
    /// @throws UsageError if a name has the wrong ending, is an input, or can't be written
    ResultFiles(ResultOptions options, int firstNumber, int count, Unit unit, const Recording& input);

    /// Checks what needs no recording: endings, and that there is something to write.
    static void checkNames(const ResultOptions& options);

    /// Writes one result, or sets it aside for finish().
    /// @return what was written, for people: names, and the scale of counts or the range of a preview
    std::string write(int number, const cv::Mat_<float>& image);
    /// Writes the quality map of one result, if there is one and it is wanted.
    std::string writeQuality(int number, const cv::Mat_<float>& map);

    /// Writes what takes all results, and the lists of numbered files.
    /// @return what was written, for people; empty if nothing was
    std::string finish(const Recording& input);

    /// Writes how many frames count at each pixel of a result, if that is known and wanted.
    std::string writeConfidence(int number, const cv::Mat_<float>& frames);

private:
    std::vector<std::string> names() const;
    std::string nameFor(const std::string& path, int number) const;
    std::vector<std::string> sequences() const;
    void begin();
    void note(const std::string& path, const std::string& name);
    std::string writeValues(int number, const cv::Mat_<float>& image);
    std::string writePreview(int number, const cv::Mat_<float>& image);

    ResultOptions options_;
    int firstNumber_;
    int lastNumber_;
    bool numbered_;
    Unit unit_;
    std::optional<ResultStack> stack_;
    std::map<std::string, vxfiles::SequenceList> lists_;  // of numbered files, by the names without numbers
    std::optional<ValueRange> previewRange_;  // that of the first result, so that all are coloured alike
};

}  // namespace vxapp
