// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <optional>
#include <sstream>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/output/ColourLimits.h"
#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/FrameSpool.h"
#include "apps/vxkit/output/VideoWriter.h"

namespace vxapp {

namespace {

using vxsupport::ValueRange;

constexpr int wantedHeight = 480;
constexpr double secondsAround = 1.0;  // what limits that follow the scene look at

class LosslessSink : public FrameSink
{
public:
    explicit LosslessSink(const SinkRequest& request)
        : shape_(request.shape),
          file_(request.options.path, request.options.force),
          video_(file_, VideoKind::lossless, shape_.size, request.options.framesPerSecond)
    {}

    void add(const cv::Mat& frame) override { video_.add(frame); }

    std::string finish() override
    {
        video_.finish();
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", 16 bits, lossless video)";
    }

private:
    SequenceShape shape_;
    vxfiles::OutputFile file_;
    VideoWriter video_;
};

/// A video in colours. Where their limits depend on all frames, these are set aside first.
class ColourSink : public FrameSink
{
public:
    ColourSink(const SinkRequest& request, VideoKind kind)
        : options_(request.options),
          shape_(request.shape),
          follows_(request.follows),
          times_(std::max(1, wantedHeight / shape_.size.height)),
          range_(request.range),
          file_(options_.path, options_.force),
          video_(file_, kind, shape_.size * times_, options_.framesPerSecond)
    {
        if (!range_)
            spool_.emplace(file_.path(), shape_.size, CV_16UC1);
    }

    void add(const cv::Mat& frame) override
    {
        if (!spool_) {
            show(frame, *range_);
            return;
        }
        spool_->add(frame);
        limits_.add(frame);
    }

    std::string finish() override
    {
        if (spool_)
            showAll();
        video_.finish();
        file_.commit();
        std::ostringstream text;
        text << options_.path << " (" << framesText(shape_);
        if (times_ > 1)
            text << ", shown " << times_ << " times as large";
        text << "; 8 bits, " << options_.colourMap << " from " << range_->low << " to " << range_->high
             << " counts" << (follows_ ? ", following the scene between" : "") << ", "
             << options_.framesPerSecond << " frames per second)";
        return text.str();
    }

private:
    void showAll()
    {
        const int reach = static_cast<int>(std::lround(secondsAround * options_.framesPerSecond));
        range_ = limits_.ofRecording();
        const std::vector<ValueRange> following =
            follows_ ? limits_.following(std::max(1, reach)) : std::vector<ValueRange>{};
        for (int i = 0; i < spool_->count(); ++i)
            show(spool_->read(i), follows_ ? following[static_cast<std::size_t>(i)] : *range_);
    }

    void show(const cv::Mat_<std::uint16_t>& frame, const ValueRange& range)
    {
        cv::Mat_<float> values;
        frame.convertTo(values, CV_32F);
        const cv::Mat_<std::uint8_t> levels = vxsupport::greyLevels(values, range);
        video_.add(vxsupport::magnified(vxsupport::falseColours(levels, options_.colourMap), times_));
    }

    SequenceOptions options_;
    SequenceShape shape_;
    bool follows_;
    int times_;
    std::optional<ValueRange> range_;
    vxfiles::OutputFile file_;
    VideoWriter video_;
    std::optional<FrameSpool> spool_;
    ColourLimits limits_;
};

}  // namespace

std::unique_ptr<FrameSink> openLosslessSink(const SinkRequest& request)
{
    return std::make_unique<LosslessSink>(request);
}

std::unique_ptr<FrameSink> openVideoSink(const SinkRequest& request)
{
    const bool isAvi = formatOf(request.options.path) == formatNamed("avi");
    return std::make_unique<ColourSink>(request, isAvi ? VideoKind::motionJpeg : VideoKind::h264);
}

}  // namespace vxapp
