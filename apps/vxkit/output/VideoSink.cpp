// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <opencv2/videoio.hpp>
#include <sstream>
#include <utility>

#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

constexpr int wantedHeight = 480;

class VideoSink : public FrameSink
{
public:
    explicit VideoSink(const SinkRequest& request)
        : options_(request.options),
          shape_(request.shape),
          times_(std::max(1, wantedHeight / shape_.size.height)),
          range_(request.range),
          file_(options_.path, options_.force)
    {
        const QuietStandardError quiet;
        const int motionJpeg = cv::VideoWriter::fourcc('M', 'J', 'P', 'G');
        const std::string name = file_.temporaryPath().string();
        for (const int writer : {cv::CAP_OPENCV_MJPEG, cv::CAP_ANY})
            if (!video_.isOpened())
                video_.open(name, writer, motionJpeg, options_.framesPerSecond, shape_.size * times_);
        if (!video_.isOpened())
            throw UsageError(options_.path + " can't be written: no Motion JPEG writer for this size");
        video_.set(cv::VIDEOWRITER_PROP_QUALITY, 95.0);
    }

    void add(const cv::Mat_<std::uint16_t>& frame) override
    {
        cv::Mat_<float> values;
        frame.convertTo(values, CV_32F);
        if (!range_)
            range_ = vxsupport::visibleRange(values);
        const cv::Mat_<std::uint8_t> levels = vxsupport::greyLevels(values, *range_);
        const QuietStandardError quiet;
        video_.write(vxsupport::magnified(vxsupport::falseColours(levels, options_.colourMap), times_));
    }

    std::string finish() override
    {
        const QuietStandardError quiet;
        video_.release();
        requireWhole();
        file_.commit();
        std::ostringstream text;
        text << options_.path << " (" << framesText(shape_);
        if (times_ > 1)
            text << ", shown " << times_ << " times as large";
        text << "; 8 bits, " << options_.colourMap << " from " << range_->low << " to " << range_->high
             << " counts, " << options_.framesPerSecond << " frames per second)";
        return text.str();
    }

private:
    // The writer reports no failure, not even that of a full disk.
    void requireWhole() const
    {
        const cv::VideoCapture written(file_.temporaryPath().string(), cv::CAP_ANY);
        if (!written.isOpened() || std::lround(written.get(cv::CAP_PROP_FRAME_COUNT)) != shape_.frames)
            throw UsageError(options_.path + " can't be written as a complete video");
    }

    SequenceOptions options_;
    SequenceShape shape_;
    int times_;
    std::optional<vxsupport::ValueRange> range_;
    SafeFile file_;
    cv::VideoWriter video_;
};

}  // namespace

std::unique_ptr<FrameSink> openVideoSink(const SinkRequest& request)
{
    return std::make_unique<VideoSink>(request);
}

}  // namespace vxapp
