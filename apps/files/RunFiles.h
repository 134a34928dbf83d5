// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <unordered_set>

namespace vxfiles {

/// The files that one run reads and those that it will write: keeps an output from replacing an input or another
/// output, by the files themselves, however their names are spelled. Each call takes the same time, whatever
/// the number of files.
class RunFiles
{
public:
    /// What is not there, the standard input and devices don't count.
    /// @throws UsageError if it is an output
    void reads(const std::filesystem::path& path);

    /// Takes a name for an output that no other output may have, and checks that it may be written, see
    /// requireWritable(). Nothing happens for an empty name.
    /// @throws UsageError if it is an input or another output, or can't be written
    void writes(const std::filesystem::path& path, bool force);

    /// Forgets the outputs, for a host that reads once and writes more than once.
    void beginOutputs() { outputs_.clear(); }

private:
    /// A file that is there, or a name in a folder.
    struct Identity
    {
        std::uint64_t device = 0;
        std::uint64_t node = 0;
        std::string name{};

        bool operator==(const Identity& other) const = default;
    };
    struct Hash
    {
        std::size_t operator()(const Identity& identity) const;
    };
    using Identities = std::unordered_set<Identity, Hash>;

    static bool identify(const std::filesystem::path& path, Identity& identity);

    Identities inputs_;
    Identities outputs_;
};

}  // namespace vxfiles
