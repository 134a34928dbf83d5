// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

#include "apps/vxkit/formats/SampleType.h"

namespace vxapp {

/// Size of a frame, its OpenCV type, and the type of samples that the file holds.
struct FrameShape
{
    cv::Size size;
    int type;
    SampleType sample = sampleTypeOf(type);
};

/// A file that holds one frame or several. It is opened for each reading, so that any number may be listed.
///
/// Every failure is a UsageError that names the file, and the frame if it holds several.
class FrameFile
{
public:
    virtual ~FrameFile() = default;

    virtual int frameCount() const = 0;
    /// The shape of all frames, where the file tells it without decoding them.
    virtual std::optional<FrameShape> shapeOfAll() const = 0;
    /// What the samples of a decoded frame were in the file.
    virtual SampleType sampleOf(const cv::Mat& frame) const { return sampleTypeOf(frame.type()); }
    /// Reads a frame in the storage of its samples (see SampleFacts), every value as it stands in the file.
    virtual cv::Mat read(int index) = 0;
};

/// What has to be told of files that don't tell it themselves.
struct FileHints
{
    std::optional<std::endian> order{};   ///< of raw samples, and of images inside a JPEG file
    std::optional<SampleType> samples{};  ///< of raw recordings (else u16) and CSV (else f32 or f64)
    std::string dataset{};                ///< path within an HDF5 file; empty if it holds one alone
};

/// Layout of a headerless recording: row by row, frame after frame.
struct RawLayout
{
    cv::Size size;
    SampleType samples = SampleType::u16;
    std::endian order = std::endian::little;
    std::uint64_t header = 0;       ///< bytes before the first frame
    std::uint64_t frameHeader = 0;  ///< bytes before each frame
};

/// Opens a file of any format of the table (see fileFormats()), told apart by its first bytes, or else by its
/// ending. "-" is the standard input; that, and pipes, are read to their end first.
std::unique_ptr<FrameFile> openImageFile(const std::string& path, const FileHints& hints = {});

/// Raises a UsageError for frames of 8-bit counts, which are pictures for looking at more often than data.
void requireMoreThanBytes(const std::string& name, SampleType samples);

/// Opens a headerless recording.
std::unique_ptr<FrameFile> openRawFile(const std::string& path, const RawLayout& layout);

}  // namespace vxapp
