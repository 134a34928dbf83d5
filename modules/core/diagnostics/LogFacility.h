// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <fstream>
#include <locale>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>

#include "core/base/CodeLocation.h"
#include "core/base/Export.h"

namespace halvor::vx {

/// The process-wide log. Lines go to the standard error stream until a file is opened; each line is flushed.
class VXKIT_API LogFacility
{
public:
    /// Levels in use: a line is written when its level is at most the log's.
    static constexpr int off = 0;
    static constexpr int problems = 2;
    static constexpr int progress = 4;

    /// The log of this process. It is never destroyed, so that statics of a host may log to the end.
    static LogFacility& getInstance();

    LogFacility(const LogFacility&) = delete;
    LogFacility& operator=(const LogFacility&) = delete;

    /// The level is `off` at first. Any thread may set it.
    void setLogLevel(int level);
    int getLogLevel() const { return level_; }

    /// Sends the following lines to a file, behind what it holds: a host opens the same file again with every
    /// context, and several processes may share one.
    ///
    /// @param startAnew  true empties an existing file first
    /// If the file can't be opened, that is told once on the standard error stream, and the log goes on
    /// there.
    void openLogFile(const std::string& path, bool startAnew);

    /// Closes the file, if one is open; the following lines go to the standard error stream.
    void resetStream();

    /// Whether lines begin with the source path and line of their origin; off at first.
    bool getShowCodeInfo() const { return showCodeInfo_; }
    void setShowCodeInfo(bool show) { showCodeInfo_ = show; }

    /// Whether a line of this level is written; one of level `off` never is.
    bool isActive(int level) const { return level <= level_ && level > off; }

    /// Writes one line if the level is active.
    void logMessage(int level, std::string_view text);

private:
    LogFacility() = default;

    std::mutex mutex_;
    std::ofstream file_;
    std::string unwritablePath_;
    // Read by every thread that may log, without the lock.
    std::atomic<int> level_ = off;
    std::atomic<bool> showCodeInfo_ = false;
};

/// What a log line begins with: "path, line : " if the log shows code information, else nothing.
VXKIT_API std::string logPrefix(const CodeLocation& location);

}  // namespace halvor::vx

/// Composes and logs a line from a chain of << operands, whatever the host's locale, but only when the level
/// is active.
#define VX_LOG(level, chain)                                                                               \
    do {                                                                                                   \
        if (halvor::vx::LogFacility::getInstance().isActive(level)) {                                      \
            std::ostringstream vxLogLine;                                                                  \
            vxLogLine.imbue(std::locale::classic());                                                       \
            vxLogLine << halvor::vx::logPrefix(VX_HERE) << chain; /* NOLINT(bugprone-macro-parentheses) */ \
            halvor::vx::LogFacility::getInstance().logMessage(level, vxLogLine.str());                     \
        }                                                                                                  \
    } while (false)
