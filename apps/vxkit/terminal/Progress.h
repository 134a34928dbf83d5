// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vxapp {

/// One line on the standard error stream that tells how far a command is; silent unless that is a terminal.
class Progress
{
public:
    explicit Progress(int total);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(int done);
    /// Wipes the line, so that other text can be printed.
    void clear();

private:
    int total_;
    bool onTerminal_;
    bool shown_ = false;
};

}  // namespace vxapp
