// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>

namespace vxapp {

/// A file that appears under its name only when it is complete.
///
/// The writer fills temporaryPath(), which carries the same extension and lies in the same folder (in that for
/// temporary files if the path is written through, see isWrittenThrough()), and calls
/// commit(). Without commit() the temporary file is removed and nothing else has been touched.
class SafeFile
{
public:
    /// @param path   where the result will stand
    /// @param force  an existing regular file may be replaced
    /// @throws UsageError if the path is taken, names a folder, or its folder doesn't exist or can't be
    ///         written
    SafeFile(std::filesystem::path path, bool force);
    ~SafeFile();
    SafeFile(const SafeFile&) = delete;
    SafeFile& operator=(const SafeFile&) = delete;

    const std::filesystem::path& path() const { return path_; }
    const std::filesystem::path& temporaryPath() const { return temporaryPath_; }

    /// Moves the temporary file to its place, or what it holds to what is written through.
    /// @throws UsageError if the path has been taken meanwhile and `force` is off, or the move fails
    void commit();

private:
    std::filesystem::path path_;
    std::filesystem::path temporaryPath_;
    bool force_;
    bool committed_ = false;
};

/// Whether a name is that of the standard output ("-"), of a pipe or of a device: these are written to, not replaced,
/// and get the whole result at once.
bool isWrittenThrough(const std::filesystem::path& path);

/// Checks without writing anything that a result may be written to `path`; throws as SafeFile does.
void requireWritable(const std::filesystem::path& path, bool force);

/// Writes one file through SafeFile.
///
/// @param write  fills the file of the given name; returns false if that fails, which raises UsageError
void writeSafely(const std::filesystem::path& path, bool force,
                 const std::function<bool(const std::filesystem::path&)>& write);

}  // namespace vxapp
