// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "apps/files/RunFiles.h"
#include "apps/vxkit/input/FrameFile.h"

namespace vxapp {

/// Two whole numbers with a separator between them, and nothing else.
std::optional<std::pair<int, int>> parsePair(std::string_view text, char separator);

/// Reads the value of --size, "WIDTHxHEIGHT"; anything else is a UsageError.
cv::Size parseSize(const std::string& text);

/// Which frames to read.
struct RecordingOptions
{
    std::vector<std::string> inputs;
    std::string size;    ///< "WIDTHxHEIGHT" of headerless recordings; empty for image files
    std::string frames;  ///< "FIRST:COUNT" of all the frames; empty for all
    FileHints hints{};
    std::uint64_t header = 0;       ///< bytes before the first frame of a headerless recording
    std::uint64_t frameHeader = 0;  ///< bytes before each of its frames
    bool takesBytes = false;        ///< frames may hold 8-bit counts, as pictures for looking at do
    std::shared_ptr<vxfiles::RunFiles> files{};  ///< of the run; null: the recording's alone
};

/// The options for one file alone. What is said of headerless recordings does not count if it is none by its name.
RecordingOptions forFile(RecordingOptions options, const std::string& name);

/// Frames of one size and kind, from any number of files in the order given.
///
/// Opening a recording checks all of its frames, so that nothing fails half-way: image files are decoded
/// once, headerless recordings and PFM files are checked by their sizes. What was decoded is kept up to
/// 256 MiB; everything else is read when it is asked for. Beyond that a recording holds a few hundred bytes for
/// each file and 8 for each frame of files that don't keep them at equal distances (FrameTable). All failures
/// are UsageErrors that name the input. What is read but looks wrong is told on the standard error stream.
class Recording
{
public:
    explicit Recording(const RecordingOptions& options);
    /// Frames that are no file's, for programs that hold them in memory.
    /// @param name  what messages call them
    Recording(std::unique_ptr<FrameFile> frames, const std::string& name);

    cv::Size frameSize() const { return shape_.size; }
    int frameCount() const { return frameCount_; }
    /// Number of frame 0 among all frames of the inputs: FIRST of "FIRST:COUNT".
    int firstNumber() const { return firstNumber_; }
    /// What a sample is in the files.
    SampleType sampleType() const { return shape_.sample; }
    /// Whether the frames hold floats; else they hold counts.
    bool holdsFloats() const { return isFloatType(shape_.sample); }

    /// "FILE", or "FILE, frame N" if the file holds several, for messages.
    std::string nameOf(int index) const;
    /// The files of the run, among them those of this recording.
    const std::shared_ptr<vxfiles::RunFiles>& files() const { return runFiles_; }

    // Frames may share their memory with the recording: copy one before changing it.

    /// A frame as it stands in the file, in the storage of its samples (see SampleFacts).
    cv::Mat frame(int index);
    /// A frame as floats; a recording of 32-bit floats gives them bit by bit, samples of more digits are
    /// rounded to single precision.
    cv::Mat_<float> values(int index);
    /// A frame as counts. Floats are rounded; one outside 0 to 65535, or not a number, is a UsageError.
    cv::Mat_<std::uint16_t> counts(int index);

private:
    struct Place
    {
        std::size_t file;
        int frame;  // within the file
    };

    void addFile(const std::string& name, const RecordingOptions& options);
    Place placeOf(int index) const;
    void select(const std::string& frames);
    void checkFrames();
    void checkDecoded(int first, int behind);
    void warnOfLayout(bool isHeaderless);
    void requireShape(const FrameShape& shape, const std::string& name);

    std::shared_ptr<vxfiles::RunFiles> runFiles_;
    std::vector<std::string> names_;
    std::vector<std::unique_ptr<FrameFile>> files_;
    std::vector<int> ends_;  // of each file: frames up to its end, from the first file on
    std::unordered_map<int, cv::Mat> kept_;
    std::size_t keptBytes_ = 0;
    FrameShape shape_{{}, -1, SampleType::u16};
    int firstNumber_ = 0;
    int frameCount_ = 0;
};

}  // namespace vxapp
