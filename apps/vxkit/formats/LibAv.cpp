// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/LibAv.h"

#include <array>
#include <atomic>
#include <cstdarg>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace vxapp {

namespace {

// Decoders call from threads of their own.
std::atomic<bool> errorWasTold = false;

void keepMessage(void* /*source*/, int level, const char* /*format*/, std::va_list /*values*/)
{
    if (level <= AV_LOG_ERROR)
        errorWasTold = true;
}

}  // namespace

std::string avName(const std::filesystem::path& path)
{
    return "file:" + path.string();
}

std::string avErrorText(int code)
{
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

AvMessages::AvMessages()
{
    errorWasTold = false;
    av_log_set_callback(keepMessage);
}

AvMessages::~AvMessages()
{
    av_log_set_callback(av_log_default_callback);
}

bool AvMessages::tellOfError()
{
    return errorWasTold;
}

}  // namespace vxapp
