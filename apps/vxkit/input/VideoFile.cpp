// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <bit>
#include <new>
#include <optional>
#include <utility>

#include "apps/vxkit/formats/LibAv.h"
#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

// Matroska, MP4 and AVI files of 16-bit grey, as lossless codecs keep it. Frames are decoded in their order.
namespace vxapp {

namespace {

struct CloseInput
{
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

// Other formats of the library name further files and addresses, which it would open.
constexpr const char* containers = "matroska,webm,mov,mp4,avi";

UsageError damaged(const std::string& path)
{
    return UsageError(path + ": cut off or damaged; expected a complete video");
}

std::uint64_t pixelsOf(const AVStream& stream)
{
    return static_cast<std::uint64_t>(stream.codecpar->width) *
           static_cast<std::uint64_t>(stream.codecpar->height);
}

/// One pass over a video's frames.
class VideoPass
{
public:
    explicit VideoPass(const std::string& path);

    /// Number of frames; nothing can be decoded behind it.
    int countFrames();
    /// The next frame; nothing at the end.
    std::optional<cv::Mat> next();

private:
    void openDecoder(std::uint64_t fileBytes);
    bool readPacket();
    cv::Mat counts() const;
    const AVStream& stream() const { return *container_->streams[stream_]; }

    std::string path_;
    std::unique_ptr<AVFormatContext, CloseInput> container_;
    unsigned stream_ = 0;
    AvPointer<AVCodecContext> decoder_;
    AvPointer<AVFrame> frame_{av_frame_alloc()};
    AvPointer<AVPacket> packet_{av_packet_alloc()};
};

VideoPass::VideoPass(const std::string& path) : path_(path)
{
    std::uint64_t fileBytes = 0;
    openForReading(path, fileBytes);
    const AvMessages messages;
    AVFormatContext* container = nullptr;
    AVDictionary* limits = nullptr;
    av_dict_set(&limits, "format_whitelist", containers, 0);
    av_dict_set(&limits, "protocol_whitelist", "file", 0);
    const int opened = avformat_open_input(&container, avName(path).c_str(), nullptr, &limits);
    av_dict_free(&limits);
    container_.reset(container);
    if (opened < 0)
        throw UsageError(path + ": can't be read as a video (" + avErrorText(opened) + ")");
    if (avformat_find_stream_info(container, nullptr) < 0)
        throw damaged(path);
    const int stream = av_find_best_stream(container, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream < 0)
        throw UsageError(path + ": holds no video");
    stream_ = static_cast<unsigned>(stream);
    openDecoder(fileBytes);
}

void VideoPass::openDecoder(std::uint64_t fileBytes)
{
    requireFrameSize(path_, stream().codecpar->width, stream().codecpar->height);
    requirePlausibleSize(path_, pixelsOf(stream()) * sizeof(std::uint16_t), fileBytes);
    const AVCodec* codec = avcodec_find_decoder(stream().codecpar->codec_id);
    if (codec == nullptr)
        throw UsageError(path_ + ": video in " + avcodec_get_name(stream().codecpar->codec_id) +
                         ", which the installed FFmpeg can't decode");
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_ || !frame_ || !packet_)
        throw std::bad_alloc();
    decoder_->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    decoder_->thread_count = 1;
    // Packets may tell another size than the container. The library counts the edges that it adds, too.
    constexpr std::int64_t edge = 256;
    decoder_->max_pixels = (stream().codecpar->width + edge) * (stream().codecpar->height + edge);
    if (avcodec_parameters_to_context(decoder_.get(), stream().codecpar) < 0 ||
        avcodec_open2(decoder_.get(), codec, nullptr) < 0)
        throw damaged(path_);
}

// False at the end.
bool VideoPass::readPacket()
{
    for (;;) {
        av_packet_unref(packet_.get());
        const int code = av_read_frame(container_.get(), packet_.get());
        if (code == AVERROR_EOF && !AvMessages::tellOfError() && container_->pb->error == 0)
            return false;
        if (code < 0)
            throw damaged(path_);
        if (packet_->stream_index == stream().index)
            return true;
    }
}

int VideoPass::countFrames()
{
    const AvMessages messages;
    int frames = 0;
    std::int64_t end = 0;
    while (readPacket()) {
        ++frames;
        if (packet_->pts != AV_NOPTS_VALUE)
            end = std::max(end, packet_->pts + std::max<std::int64_t>(0, packet_->duration));
    }
    // What the header promises shows what is missing behind the last whole frame.
    const AVRational microseconds{1, AV_TIME_BASE};
    const std::int64_t promised = container_->duration;
    const std::int64_t told = av_rescale_q(end, stream().time_base, microseconds);
    const bool isTimed = container_->nb_streams == 1 && promised != AV_NOPTS_VALUE &&
                         container_->duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
    if (frames == 0 || stream().nb_frames > frames ||
        (isTimed && promised - told > promised / frames / 2 + 1000))
        throw damaged(path_);
    return frames;
}

std::optional<cv::Mat> VideoPass::next()
{
    const AvMessages messages;
    for (;;) {
        const int code = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (code == AVERROR_EOF)
            return std::nullopt;
        if (code >= 0) {
            const bool isWhole = frame_->decode_error_flags == 0 && !AvMessages::tellOfError() &&
                                 (frame_->flags & AV_FRAME_FLAG_CORRUPT) == 0;
            return isWhole ? counts() : cv::Mat();
        }
        if (code != AVERROR(EAGAIN))
            return cv::Mat();
        if (avcodec_send_packet(decoder_.get(), readPacket() ? packet_.get() : nullptr) < 0)
            return cv::Mat();
    }
}

cv::Mat VideoPass::counts() const
{
    const auto format = static_cast<AVPixelFormat>(frame_->format);
    const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
    constexpr std::uint64_t otherWords =
        AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL;
    if (pixels == nullptr || pixels->nb_components != 1 || pixels->comp[0].depth <= 8 ||
        pixels->comp[0].step != 2 || (pixels->flags & otherWords) != 0)
        throw UsageError(path_ + ": video of " + (pixels != nullptr ? pixels->name : "unknown") +
                         " pixels (" + avcodec_get_name(decoder_->codec_id) +
                         "); expected one channel of 9 to 16 bits, as the codec FFV1 keeps it");
    cv::Mat_<std::uint16_t> counts;
    cv::Mat(frame_->height, frame_->width, CV_16UC1, frame_->data[0],
            static_cast<std::size_t>(frame_->linesize[0]))
        .copyTo(counts);
    const bool isBigEndian = (pixels->flags & AV_PIX_FMT_FLAG_BE) != 0;
    if (isBigEndian != (std::endian::native == std::endian::big))
        std::transform(counts.begin(), counts.end(), counts.begin(), [](std::uint16_t count) {
            return static_cast<std::uint16_t>(count >> 8U | count << 8U);
        });
    return counts;
}

class VideoFile : public FrameFile
{
public:
    explicit VideoFile(std::string path) : path_(std::move(path)), frames_(VideoPass(path_).countFrames()) {}

    int frameCount() const override { return frames_; }
    std::optional<FrameShape> shapeOfAll() const override { return std::nullopt; }

    cv::Mat read(int index) override
    {
        if (!pass_ || index < next_) {
            pass_.emplace(path_);
            next_ = 0;
        }
        std::optional<cv::Mat> frame;
        for (; next_ <= index; ++next_) {
            frame = pass_->next();
            if (!frame || frame->empty()) {
                pass_.reset();
                throw UsageError(path_ + ", frame " + std::to_string(next_) +
                                 ": can't be decoded; expected an undamaged, complete video");
            }
        }
        // Any number of videos may be listed: one that has been read to its end holds no decoder and no descriptor.
        if (next_ == frames_)
            pass_.reset();
        return *frame;
    }

private:
    std::string path_;
    int frames_;
    std::optional<VideoPass> pass_;
    int next_ = 0;  // what the pass decodes next
};

}  // namespace

std::unique_ptr<FrameFile> openVideoFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<VideoFile>(path);
}

}  // namespace vxapp
