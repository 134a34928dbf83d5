// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "apps/files/OutputFile.h"

namespace vxfiles {

/// Tells which files of a numbered sequence belong together, in the form that `sha256sum -c` checks: their names and
/// checksums, in a file beside them. It is there only while all of them are.
class SequenceList
{
public:
    /// "frames.png.sha256" of "frames.png"
    static std::filesystem::path nameOf(const std::filesystem::path& sequence);

    /// @param sequence  the name that the numbers were put into
    SequenceList(const std::filesystem::path& sequence, bool force);

    /// Takes an earlier list away, ahead of files that are put in place one by one.
    void withdraw();
    /// @param name  of a file of the sequence
    /// @param path  where it can be read now
    void add(const std::filesystem::path& name, const std::filesystem::path& path);
    bool isEmpty() const { return text_.empty(); }
    /// The list, complete, to be committed with or behind the files.
    OutputFile& file();

private:
    std::filesystem::path path_;
    bool force_;
    std::string text_;
    std::optional<OutputFile> file_;
};

}  // namespace vxfiles
