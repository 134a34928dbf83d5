// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/files/OutputFile.h"
#include "apps/files/SequenceList.h"
#include "apps/vxkit/output/FrameSinkParts.h"

namespace vxapp {

/// A sink of frames that are written one behind the other: into one file, or each into its own.
class StreamSink : public FrameSink
{
public:
    explicit StreamSink(const SinkRequest& request);

    void add(const cv::Mat& frame) final;
    std::string finish() final;

protected:
    const SequenceShape& shape() const { return shape_; }
    /// The bytes of a frame.
    /// @param index  of the frame
    virtual std::string encode(const cv::Mat& frame, int index) const = 0;
    /// What the bytes are, for people: "16-bit little-endian".
    virtual std::string kindText() const { return std::string(factsOf(shape_.samples).text); }

private:
    SequenceShape shape_;
    std::vector<std::unique_ptr<vxfiles::OutputFile>> files_;
    std::optional<vxfiles::SequenceList> list_;  // of several files
    int added_ = 0;
};

}  // namespace vxapp
