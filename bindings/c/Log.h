// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bindings/c/vxkit.h"
#include "core/diagnostics/OutputSink.h"

namespace vxc {

/// Where the log goes.
struct LogTarget
{
    vxkit_log log = nullptr;
    void* user = nullptr;
    vxkit_level most = VXKIT_ERROR;

    bool wants(vxkit_level level) const { return log != nullptr && level <= most; }
};

void setLogTarget(const LogTarget& target);

/// What classes print during one call: to the callback, on the thread of the call.
class CallLog : public halvor::vx::OutputSink
{
public:
    CallLog();
    ~CallLog() override;
    CallLog(const CallLog&) = delete;
    CallLog& operator=(const CallLog&) = delete;

    bool wants(Kind kind) const override;
    void write(Kind kind, std::string_view source, std::string_view text) override;

    void tellFailure(const char* text) noexcept;

private:
    struct Line
    {
        vxkit_level level;
        std::string source;
        std::string text;
    };

    void keepOrTell(vxkit_level level, std::string_view source, std::string_view text);
    void tell(vxkit_level level, std::string_view source, std::string_view text) const;
    void tellOthers();

    LogTarget target_;
    std::thread::id caller_;
    std::mutex mutex_;
    std::vector<Line> others_;  // of other threads, which may not call the callback
    halvor::vx::SinkInForce inForce_{this};
};

}  // namespace vxc
