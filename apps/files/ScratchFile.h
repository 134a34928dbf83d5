// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>

#include "apps/files/Descriptor.h"

namespace vxfiles {

/// A file without a name beside an output, for what is set aside: nothing is left of it whatever happens.
class ScratchFile
{
public:
    /// @param output  beside which it is made, and for messages; beside what is written through there is no room, so
    ///                that it stands in the folder for temporary files
    /// @throws WriteError if it can't be made
    explicit ScratchFile(const std::filesystem::path& output);

    /// @throws WriteError if there is no room
    void append(std::string_view bytes);
    /// Fills `bytes` from a place that has been written.
    void read(std::uint64_t place, std::span<char> bytes) const;

private:
    std::filesystem::path output_;
    Descriptor file_;
};

}  // namespace vxfiles
