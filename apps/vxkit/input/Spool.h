// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace vxapp {

/// A temporary file without a name that can be read again and again by its path, while this lives.
class Spool
{
public:
    /// @throws UsageError if the system gives no temporary file
    Spool();
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    /// "/proc/self/fd/5"
    const std::string& path() const { return path_; }

    /// @throws UsageError if it can't be held, for example because the disk is full
    void append(std::string_view bytes);
    /// Appends what a descriptor delivers until it ends.
    /// @param name  for messages
    void appendAll(int descriptor, const std::string& name);

private:
    int descriptor_;
    std::string path_;
};

/// Whether a name is that of the standard input ("-"), of a pipe or of a device: what can be read but once.
bool isReadOnce(const std::string& path);

}  // namespace vxapp
