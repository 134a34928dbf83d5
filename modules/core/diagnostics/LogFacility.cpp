// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/LogFacility.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "core/base/NeverDestroyed.h"
#include "core/diagnostics/OutputSink.h"

namespace halvor::vx {

namespace {

// Opening a pipe waits for somebody who reads it.
bool wouldWait(const std::string& path)
{
    std::error_code error;
    if (!std::filesystem::is_fifo(path, error))
        return false;
    const int reached = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (reached >= 0)
        ::close(reached);
    return reached < 0;
}

}  // namespace

LogFacility& LogFacility::getInstance()
{
    struct Instance
    {
        LogFacility log;
    };
    // Never destroyed: a host may release contexts, which is logged, when its own statics are destroyed.
    static auto& instance = neverDestroyed<Instance>();
    return instance.log;
}

void LogFacility::setLogLevel(int level)
{
    level_ = level;
}

void LogFacility::openLogFile(const std::string& path, bool startAnew)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    file_.close();
    file_.clear();
    if (startAnew && !wouldWait(path))
        std::ofstream(path, std::ios::trunc).close();
    if (!wouldWait(path))
        file_.open(path, std::ios::app);
    // Told once: hosts open the same file again with every context.
    if (file_.is_open())
        unwritablePath_.clear();
    else if (unwritablePath_ != path) {
        unwritablePath_ = path;
        std::cerr << "can't open the log file \"" << path << "\"; logging to the standard error stream"
                  << std::endl;
    }
}

void LogFacility::resetStream()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    file_.close();
    file_.clear();
}

void LogFacility::logMessage(int level, std::string_view text)
{
    if (!isActive(level))
        return;
    if (OutputSink* sink = OutputSink::current()) {
        sink->write(OutputSink::Kind::trace, "log", text);
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    std::ostream& out = file_.is_open() ? static_cast<std::ostream&>(file_) : std::cerr;
    out << text << std::endl;
}

std::string logPrefix(const CodeLocation& location)
{
    if (!LogFacility::getInstance().getShowCodeInfo())
        return {};
    return std::string(location.file) + ", " + std::to_string(location.line) + " : ";
}

}  // namespace halvor::vx
