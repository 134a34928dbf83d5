// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

/// What a program does with the signals and streams of its process; for mains alone, never for a host's process.
namespace vxfiles {

/// Takes the descriptors 0 to 2 where they are closed, so that no file gets one of them; using them fails as if they
/// were closed. To be called first.
void takeStandardDescriptors();

/// Flushes the standard output at a program's end.
/// @return the status; 1 in place of 0, told on the standard error stream, if it did not take everything
int statusOfReport(int status, const std::string& program);

/// Ends the program in an orderly way when it is interrupted or terminated, or loses its terminal: what is not
/// complete is removed, one line tells so, and the program dies by that signal. A signal that was ignored at the
/// start stays ignored. A closed pipe and a file's size limit raise no signals but fail the writing.
class SignalWatch
{
public:
    /// To be made before other threads are.
    explicit SignalWatch(std::string program);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    class Watcher;
    std::unique_ptr<Watcher> watcher_;
};

}  // namespace vxfiles
