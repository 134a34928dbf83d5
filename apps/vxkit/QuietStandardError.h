#pragma once

namespace vxapp {

/// Keeps the standard error stream silent for its lifetime.
///
/// Image libraries print their own remarks on damaged files there; the program tells one line of its own.
class QuietStandardError
{
public:
    QuietStandardError();
    ~QuietStandardError();
    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;

private:
    int saved_;
};

}  // namespace vxapp
