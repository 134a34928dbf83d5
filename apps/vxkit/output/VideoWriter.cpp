// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/VideoWriter.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "apps/vxkit/formats/LibAv.h"
#include "apps/vxkit/terminal/Failure.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/opt.h>
}

namespace vxapp {

namespace {

constexpr int bestQuality = 2;  // of the quantiser scale 1 to 31
constexpr int largestRate = 60000;

struct VideoForm
{
    const char* container;
    std::vector<const char*> encoders;  // the first that is there
    AVPixelFormat pixels;
    std::vector<std::pair<const char*, const char*>> settings;  // of the encoder, where it knows them
};

VideoForm formOf(VideoKind kind)
{
    switch (kind) {
        case VideoKind::lossless:
            return {"matroska", {"ffv1"}, AV_PIX_FMT_GRAY16, {{"level", "3"}, {"slicecrc", "1"}}};
        case VideoKind::h264:
            return {"mp4", {"libx264", "mpeg4"}, AV_PIX_FMT_YUV420P, {{"crf", "16"}, {"preset", "veryfast"}}};
        default:
            return {"avi", {"mjpeg"}, AV_PIX_FMT_YUVJ420P, {}};
    }
}

struct CloseOutput
{
    void operator()(AVFormatContext* context) const
    {
        if (context->pb != nullptr)
            avio_closep(&context->pb);
        avformat_free_context(context);
    }
};

// The fewest that FFV1 allows.
int sliceCount(cv::Size size)
{
    return size.width <= 352 && size.height <= 288 ? 1 : 4;
}

cv::Size codedSize(VideoKind kind, cv::Size size)
{
    return kind == VideoKind::lossless ? size : (size + cv::Size(1, 1)) / 2 * 2;
}

}  // namespace

class VideoWriter::Encoder
{
public:
    Encoder(const vxfiles::OutputFile& file, VideoKind kind, cv::Size size, double framesPerSecond);
    ~Encoder();
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    void add(const cv::Mat& picture);
    void finish();

private:
    void openCodec(const VideoForm& form, double framesPerSecond);
    void openFile(const std::string& name);
    void openFrame();
    void openColours();
    void fill(const cv::Mat& picture);
    void send(const AVFrame* frame);
    int require(int code) const;

    std::string path_;
    bool lossless_;
    cv::Size size_;  // as it is coded
    int slices_;
    std::unique_ptr<AVFormatContext, CloseOutput> container_;
    AvPointer<AVCodecContext> codec_;
    AVStream* stream_ = nullptr;
    AvPointer<AVFrame> frame_{av_frame_alloc()};
    AvPointer<AVPacket> packet_{av_packet_alloc()};
    AvPointer<SwsContext> colours_;
};

VideoWriter::Encoder::Encoder(const vxfiles::OutputFile& file, VideoKind kind, cv::Size size,
                              double framesPerSecond)
    : path_(file.path().string()),
      lossless_(kind == VideoKind::lossless),
      size_(codedSize(kind, size)),
      slices_(sliceCount(size))
{
    // The library's encoder loses values in slices of a single column or row.
    if (const int least = slices_ == 1 ? 2 : 4; lossless_ && std::min(size.width, size.height) < least)
        throw UsageError(path_ + " can't be written: a lossless video of " + std::to_string(size.width) +
                         "x" + std::to_string(size.height) + " needs at least " + std::to_string(least) +
                         " columns and rows");
    const AvMessages messages;
    const VideoForm form = formOf(kind);
    AVFormatContext* container = nullptr;
    const std::string name = avName(file.temporaryPath());
    require(avformat_alloc_output_context2(&container, nullptr, form.container, name.c_str()));
    container_.reset(container);
    openCodec(form, framesPerSecond);
    openFrame();
    if (!lossless_)
        openColours();
    openFile(name);
}

void VideoWriter::Encoder::openCodec(const VideoForm& form, double framesPerSecond)
{
    const AVCodec* encoder = nullptr;
    for (const char* name : form.encoders)
        if (encoder == nullptr)
            encoder = avcodec_find_encoder_by_name(name);
    if (encoder == nullptr)
        throw UsageError(path_ + " can't be written: the installed FFmpeg lacks the encoder " +
                         form.encoders.back());
    codec_.reset(avcodec_alloc_context3(encoder));
    codec_->width = size_.width;
    codec_->height = size_.height;
    codec_->pix_fmt = form.pixels;
    codec_->framerate = av_d2q(framesPerSecond, largestRate);
    codec_->time_base = av_inv_q(codec_->framerate);
    codec_->sample_aspect_ratio = {1, 1};
    codec_->flags |= AV_CODEC_FLAG_BITEXACT;
    if (lossless_) {
        codec_->gop_size = 1;
        codec_->slices = slices_;
    } else {
        codec_->flags |= AV_CODEC_FLAG_QSCALE;
        codec_->global_quality = FF_QP2LAMBDA * bestQuality;
        codec_->color_range = form.pixels == AV_PIX_FMT_YUV420P ? AVCOL_RANGE_MPEG : AVCOL_RANGE_JPEG;
        codec_->colorspace = form.pixels == AV_PIX_FMT_YUV420P ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
        codec_->color_primaries = AVCOL_PRI_BT709;
        codec_->color_trc = AVCOL_TRC_BT709;
    }
    if ((container_->oformat->flags & AVFMT_GLOBALHEADER) != 0)
        codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    for (const auto& [key, value] : form.settings)
        av_opt_set(codec_.get(), key, value, AV_OPT_SEARCH_CHILDREN);
    require(avcodec_open2(codec_.get(), encoder, nullptr));
}

void VideoWriter::Encoder::openFrame()
{
    frame_->format = codec_->pix_fmt;
    frame_->width = size_.width;
    frame_->height = size_.height;
    frame_->color_range = codec_->color_range;
    require(av_frame_get_buffer(frame_.get(), 0));
    frame_->pts = 0;
}

void VideoWriter::Encoder::openColours()
{
    colours_.reset(sws_getContext(size_.width, size_.height, AV_PIX_FMT_BGR24, size_.width, size_.height,
                                  codec_->pix_fmt, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr,
                                  nullptr, nullptr));
    if (!colours_)
        require(AVERROR(EINVAL));
    constexpr int one = 1 << 16;
    const int* matrix = sws_getCoefficients(codec_->colorspace);
    sws_setColorspaceDetails(colours_.get(), sws_getCoefficients(SWS_CS_DEFAULT), 1, matrix,
                             codec_->color_range == AVCOL_RANGE_JPEG ? 1 : 0, 0, one, one);
}

void VideoWriter::Encoder::openFile(const std::string& name)
{
    container_->flags |= AVFMT_FLAG_BITEXACT;  // no time, no random numbers: the same video is the same file
    stream_ = avformat_new_stream(container_.get(), nullptr);
    if (stream_ == nullptr)
        require(AVERROR(ENOMEM));
    stream_->time_base = codec_->time_base;
    stream_->avg_frame_rate = codec_->framerate;
    require(avcodec_parameters_from_context(stream_->codecpar, codec_.get()));
    require(avio_open(&container_->pb, name.c_str(), AVIO_FLAG_WRITE));
    AVDictionary* settings = nullptr;
    if (std::string(container_->oformat->name) == "mp4")
        av_dict_set(&settings, "movflags", "+faststart", 0);
    const int code = avformat_write_header(container_.get(), &settings);
    av_dict_free(&settings);
    require(code);
}

void VideoWriter::Encoder::add(const cv::Mat& picture)
{
    const AvMessages messages;
    require(av_frame_make_writable(frame_.get()));
    fill(picture);
    send(frame_.get());
    ++frame_->pts;
}

void VideoWriter::Encoder::fill(const cv::Mat& picture)
{
    if (lossless_) {
        picture.copyTo(
            cv::Mat(size_, CV_16UC1, frame_->data[0], static_cast<std::size_t>(frame_->linesize[0])));
        return;
    }
    cv::Mat even;
    cv::copyMakeBorder(picture, even, 0, size_.height - picture.rows, 0, size_.width - picture.cols,
                       cv::BORDER_REPLICATE);
    const auto step = static_cast<int>(even.step[0]);
    require(sws_scale(colours_.get(), &even.data, &step, 0, even.rows, frame_->data, frame_->linesize));
}

// Null ends the stream.
void VideoWriter::Encoder::send(const AVFrame* frame)
{
    require(avcodec_send_frame(codec_.get(), frame));
    for (;;) {
        const int code = avcodec_receive_packet(codec_.get(), packet_.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF)
            return;
        require(code);
        if (packet_->duration == 0)
            packet_->duration = 1;
        packet_->stream_index = stream_->index;
        av_packet_rescale_ts(packet_.get(), codec_->time_base, stream_->time_base);
        require(av_interleaved_write_frame(container_.get(), packet_.get()));
    }
}

void VideoWriter::Encoder::finish()
{
    const AvMessages messages;
    send(nullptr);
    require(av_write_trailer(container_.get()));
    avio_flush(container_->pb);
    // Not every container's functions tell of bytes that were lost, but the file remembers.
    const int lost = container_->pb->error;
    require(avio_closep(&container_->pb));
    require(lost);
}

// An encoder prints a summary at its end.
VideoWriter::Encoder::~Encoder()
{
    const AvMessages messages;
    codec_.reset();
}

int VideoWriter::Encoder::require(int code) const
{
    if (code < 0)
        throw WriteError(path_ + " can't be written as a video: " + avErrorText(code));
    return code;
}

VideoWriter::VideoWriter(const vxfiles::OutputFile& file, VideoKind kind, cv::Size size,
                         double framesPerSecond)
    : encoder_(std::make_unique<Encoder>(file, kind, size, framesPerSecond))
{}

VideoWriter::~VideoWriter() = default;

void VideoWriter::add(const cv::Mat& picture)
{
    encoder_->add(picture);
}

void VideoWriter::finish()
{
    encoder_->finish();
}

}  // namespace vxapp
