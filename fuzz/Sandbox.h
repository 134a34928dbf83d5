// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vxfuzz {

/// The process's working folder and place of temporary files: a folder of its own, which goes with the process.
class Sandbox
{
public:
    /// The one of this process; made at the first call.
    static Sandbox& instance();

    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;
    ~Sandbox();

    void clear() const;
    void write(const std::string& name, std::string_view bytes) const;

private:
    Sandbox();

    std::filesystem::path folder_;
};

/// Whether a text names no path outside of the working folder.
bool staysInside(std::string_view text);

/// Whether a text holds no number of more than `digits` digits, which might ask for much time or memory.
bool asksForLittle(std::string_view text, int digits);

}  // namespace vxfuzz
