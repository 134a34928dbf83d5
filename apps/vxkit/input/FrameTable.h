// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace vxapp {

/// Most frames of a file that doesn't keep them at equal distances: 77 hours at 60 frames a second.
constexpr std::size_t mostTableFrames = std::size_t{1} << 24;

/// Where the frames of such a file begin: 8 bytes a frame, 128 MiB at most.
class FrameTable
{
public:
    /// @param name  of the file, for messages
    /// @param most  frames that it takes
    explicit FrameTable(std::string name, std::size_t most = mostTableFrames);

    /// Takes the place of the next frame.
    /// @throws UsageError if there are more than it takes
    void add(std::uint64_t place);

    std::size_t size() const { return places_.size(); }
    bool empty() const { return places_.empty(); }
    std::uint64_t operator[](int frame) const { return places_.at(static_cast<std::size_t>(frame)); }

private:
    std::string name_;
    std::size_t most_;
    std::deque<std::uint64_t> places_;  // grows without a copy of itself
};

}  // namespace vxapp
