// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

namespace vxapp {

/// Whether the process's streams may be silenced, as in a program they may. A host's threads write to them too, so that
/// one with a log of its own forbids it.
void allowQuietStreams(bool isAllowed);

/// Keeps one of the program's output streams silent for its lifetime, for C and C++ alike.
class QuietStream
{
public:
    /// @param descriptor  STDOUT_FILENO or STDERR_FILENO
    explicit QuietStream(int descriptor);
    ~QuietStream();
    QuietStream(const QuietStream&) = delete;
    QuietStream& operator=(const QuietStream&) = delete;

private:
    int descriptor_;
    int saved_;
};

/// Image libraries print their own remarks on damaged files; the program tells one line of its own.
class QuietStandardError : public QuietStream
{
public:
    QuietStandardError() : QuietStream(STDERR_FILENO) {}
};

/// The enhancer chain prints a line per frame.
class QuietStandardOutput : public QuietStream
{
public:
    QuietStandardOutput() : QuietStream(STDOUT_FILENO) {}
};

}  // namespace vxapp
