// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <mutex>

namespace vxfiles {

/// A folder for files that are not complete yet, removed with whatever is in it at the end of its life, and when a
/// signal ends a program that has a SignalWatch.
///
/// Its name is random and nobody else may enter it: no two processes meet in it, and nobody can plant a link there.
/// It stands beside the results, so that these are put in place by a rename.
class StagingFolder
{
public:
    /// @param parent  folder of the results
    /// @param output  a result, for messages
    /// @throws WriteError if no folder can be made there
    StagingFolder(std::filesystem::path parent, const std::filesystem::path& output);
    ~StagingFolder();
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    const std::filesystem::path& parent() const { return parent_; }

private:
    std::filesystem::path parent_;
    std::filesystem::path path_;
};

/// While it lives, no signal clears anything away: for renames that belong together.
class PlacingScope
{
public:
    PlacingScope();
    /// Counts a file that stands in its place now.
    static void count();

private:
    std::lock_guard<std::mutex> hold_;
};

/// Removes all staging folders of the process, for its end by a signal; whoever makes one or puts a file in place
/// waits from then on for ever.
/// @return how many files were put in place before
std::size_t abandonAll();

}  // namespace vxfiles
