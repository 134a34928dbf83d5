// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/Log.h"

#include <new>
#include <type_traits>

namespace vxc {

namespace {

struct SharedTarget
{
    std::mutex mutex;
    LogTarget target;
};

// Ready before the first call and without memory: a call that has none tells so here.
constinit SharedTarget shared;
static_assert(std::is_trivially_destructible_v<SharedTarget>);  // a host's last calls come late

LogTarget currentTarget()
{
    const std::lock_guard<std::mutex> lock(shared.mutex);
    return shared.target;
}

vxkit_level levelOf(halvor::vx::OutputSink::Kind kind)
{
    switch (kind) {
        case halvor::vx::OutputSink::Kind::exception:
            return VXKIT_WARNING;
        case halvor::vx::OutputSink::Kind::output:
            return VXKIT_INFO;
        default:
            return VXKIT_DEBUG;
    }
}

}  // namespace

void setLogTarget(const LogTarget& target)
{
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.target = target;
}

CallLog::CallLog() : target_(currentTarget()), caller_(std::this_thread::get_id()) {}

CallLog::~CallLog()
{
    tellOthers();
}

bool CallLog::wants(Kind kind) const
{
    return target_.wants(levelOf(kind));
}

void CallLog::write(Kind kind, std::string_view source, std::string_view text)
{
    if (!wants(kind))
        return;
    try {
        keepOrTell(levelOf(kind), source, text);
    } catch (const std::bad_alloc&) {  // a line less; the work itself may need no more memory
    }
}

void CallLog::keepOrTell(vxkit_level level, std::string_view source, std::string_view text)
{
    if (std::this_thread::get_id() == caller_) {
        tellOthers();
        tell(level, source, text);
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    others_.push_back({level, std::string(source), std::string(text)});
}

void CallLog::tellFailure(const char* text) noexcept
{
    tellOthers();
    if (target_.wants(VXKIT_ERROR))
        target_.log(target_.user, VXKIT_ERROR, "vxkit", text);
}

void CallLog::tell(vxkit_level level, std::string_view source, std::string_view text) const
{
    target_.log(target_.user, level, std::string(source).c_str(), std::string(text).c_str());
}

void CallLog::tellOthers()
{
    std::vector<Line> lines;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines.swap(others_);
    }
    for (const Line& line : lines)
        target_.log(target_.user, line.level, line.source.c_str(), line.text.c_str());
}

}  // namespace vxc
