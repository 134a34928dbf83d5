// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <opencv2/core/mat.hpp>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/output/FrameSink.h"

namespace vxapp {

/// Writes the pages of a TIFF file one by one, without holding them; with long links where the file gets too large
/// for short ones.
class TiffWriter
{
public:
    /// Opens the file's temporary name.
    /// @throws WriteError if that fails, as all other functions do
    TiffWriter(const vxfiles::OutputFile& file, const SequenceShape& shape);
    ~TiffWriter();
    TiffWriter(const TiffWriter&) = delete;
    TiffWriter& operator=(const TiffWriter&) = delete;

    /// Takes the next page, in the storage of its samples (see SampleFacts).
    void add(const cv::Mat& frame);
    /// Completes the file, which the caller commits then.
    void finish();

private:
    struct Handle;
    void require(bool isDone) const;

    std::filesystem::path path_;
    SequenceShape shape_;
    std::unique_ptr<Handle> handle_;
};

}  // namespace vxapp
