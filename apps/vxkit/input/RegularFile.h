// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vxapp {

/// What a name stands for that is no regular file: "a pipe", "a device", "a folder", "a socket". Empty for a regular
/// file, and for what is not there.
std::string irregularKindOf(const std::string& path);

/// To be called before settings, calibration and other files beside the recordings are opened: a pipe would be waited
/// for, a device may have no end.
/// @param meaning  what the file should be, for the message: "a calibration file"
/// @throws UsageError if the name is that of a pipe, device, folder or socket
void requireRegularFile(const std::string& path, const std::string& meaning);

}  // namespace vxapp
