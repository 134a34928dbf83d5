// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace vxfiles {

/// The folder of a file; "." where the name has none.
std::filesystem::path folderOf(const std::filesystem::path& path);

/// The system's folder for temporary files.
std::filesystem::path temporaryFolder();

/// Whether a name is that of the standard output ("-"), of a pipe or of a character device, also by a symbolic
/// link: these are written to, never replaced.
bool isWrittenThrough(const std::filesystem::path& path);

/// Where a file really stands: a symbolic link is followed also if its target isn't there yet.
/// @throws UsageError if links lead in a circle
std::filesystem::path placeOf(const std::filesystem::path& path);

/// Checks without writing anything that a result may be written to `path`.
///
/// @param force  an existing regular file may be replaced
/// @throws UsageError if the path is taken, names a folder or anything else that is no file, or its folder doesn't
///         exist or can't be written
void requireWritable(const std::filesystem::path& path, bool force);

}  // namespace vxfiles
