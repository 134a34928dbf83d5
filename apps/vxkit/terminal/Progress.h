// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace vxapp {

/// One line on the standard error stream that tells how far a command is, once it has taken a while; silent
/// unless that is a terminal, and with --quiet.
class Progress
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param patience  time before the line appears
    explicit Progress(int total, Clock::duration patience = std::chrono::seconds(1));
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// @param begun  number of the frame that is being worked on, from 1
    void show(int begun);
    /// Wipes the line, so that other text can be printed.
    void clear();

private:
    int total_;
    bool isWanted_;
    bool shown_ = false;
    Clock::time_point start_;
    Clock::time_point next_;  // when the line may appear or change
};

}  // namespace vxapp
