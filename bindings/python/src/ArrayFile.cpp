// SPDX-License-Identifier: Apache-2.0
#include "bindings/python/src/ArrayFile.h"

#include <opencv2/core.hpp>
#include <utility>
#include <vector>

namespace vxpy {

namespace {

/// Frames in arrays, in place of a file.
class ArrayFile : public vxapp::FrameFile
{
public:
    explicit ArrayFile(std::vector<FrameView> views) : views_(std::move(views)) {}

    int frameCount() const override { return static_cast<int>(views_.size()); }
    std::optional<vxapp::FrameShape> shapeOfAll() const override
    {
        const FrameView& first = views_.front();
        return vxapp::FrameShape{first.image.size(), vxapp::factsOf(first.samples).storage, first.samples};
    }
    vxapp::SampleType sampleOf(const cv::Mat& /*frame*/) const override { return views_.front().samples; }

    cv::Mat read(int index) override { return storedImage(views_.at(static_cast<std::size_t>(index))); }

private:
    std::vector<FrameView> views_;
};

}  // namespace

cv::Mat storedImage(const FrameView& view)
{
    if (view.samples != vxapp::SampleType::u32)
        return view.image.isContinuous() ? view.image : view.image.clone();
    cv::Mat_<double> values(view.image.size());
    for (int y = 0; y < values.rows; ++y)
        for (int x = 0; x < values.cols; ++x)
            values(y, x) = static_cast<std::uint32_t>(view.image.at<int>(y, x));
    return cv::Mat(values);
}

std::shared_ptr<SharedRecording> recordingOf(const py::object& frames, const std::string& what)
{
    if (py::isinstance<SharedRecording>(frames))
        return frames.cast<std::shared_ptr<SharedRecording>>();
    return std::make_shared<SharedRecording>(std::make_unique<ArrayFile>(frameViews(frames, what)), what);
}

}  // namespace vxpy
