// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include "apps/files/Descriptor.h"
#include "apps/files/StagingFolder.h"

namespace vxfiles {

/// What is written through (see isWrittenThrough()) gets its bytes ...
enum class Delivery
{
    whole,    ///< at once, when the result is whole
    streamed  ///< as they come
};

/// A file that appears under its name only when it is complete.
///
/// The writer appends bytes, or has a library fill temporaryPath(), which has the same file name and stands in a
/// folder of its own; then it calls commit(). Without commit() nothing is left and nothing else has been touched.
/// A file that is replaced keeps its mode, and its owner where the system allows it; a new one has the mode
/// that the umask leaves. A symbolic link stays, and the file behind it is replaced.
class OutputFile
{
public:
    /// @param path    where the result will stand; "-" for the standard output
    /// @param force   an existing regular file may be replaced
    /// @param folder  taken for the temporary file if it stands beside the result; files of a sequence share one
    /// @throws UsageError as requireWritable() does
    /// @throws WriteError if no temporary file can be made
    OutputFile(std::filesystem::path path, bool force, std::shared_ptr<const StagingFolder> folder = nullptr,
               Delivery delivery = Delivery::whole);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// For libraries that open files by their names, and in place of append().
    const std::filesystem::path& temporaryPath() const { return temporaryPath_; }
    const std::shared_ptr<const StagingFolder>& folder() const { return folder_; }

    /// @throws WriteError if they don't find room
    void append(std::string_view bytes);
    /// Ends append(); commit() does it too, but many files of a sequence should not be open together.
    void close();

    /// Moves the temporary file to its place, or what it holds to what is written through.
    /// @throws UsageError if the path has been taken meanwhile and `force` is off
    /// @throws WriteError if anything is lost or the move fails
    void commit();

private:
    friend void putInPlace(const std::vector<OutputFile*>& files, OutputFile* list);

    void open();
    void complete();
    void copyThrough();
    void keepFacts(int descriptor);
    void move();
    void withdraw() const;

    std::filesystem::path path_;
    bool force_;
    bool through_;
    Delivery delivery_;
    std::filesystem::path place_;  // behind links
    std::shared_ptr<const StagingFolder> folder_;
    std::filesystem::path temporaryPath_;
    Descriptor file_;
    bool replaces_ = false;
    bool committed_ = false;
};

/// Commits files that belong together: all of them are complete and on the disk before the first is put in place.
///
/// @param list  tells that they belong together, may be null: an earlier one goes first, the new one comes last
void putInPlace(const std::vector<OutputFile*>& files, OutputFile* list = nullptr);

/// Writes one file through OutputFile.
void writeFile(const std::filesystem::path& path, std::string_view bytes, bool force);

}  // namespace vxfiles
