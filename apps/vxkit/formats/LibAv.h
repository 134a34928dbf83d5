// SPDX-License-Identifier: Apache-2.0
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <filesystem>
#include <memory>
#include <string>

// What the reader and the writer of videos share; not for other files.
namespace vxapp {

struct FreeAv
{
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

template <typename T>
using AvPointer = std::unique_ptr<T, FreeAv>;

/// The name under which FFmpeg's libraries take a path as it stands, colons and percent signs included.
std::string avName(const std::filesystem::path& path);

/// What an error code of FFmpeg's libraries means.
std::string avErrorText(int code);

/// Keeps what FFmpeg's libraries would print for its lifetime: they tell of damaged data in their messages
/// alone. One at a time.
class AvMessages
{
public:
    AvMessages();
    ~AvMessages();
    AvMessages(const AvMessages&) = delete;
    AvMessages& operator=(const AvMessages&) = delete;

    /// Whether there was an error among them.
    static bool tellOfError();
};

}  // namespace vxapp
