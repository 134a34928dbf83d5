// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

#include "apps/files/RunFiles.h"
#include "support/drivers/BurstEngine.h"

namespace vxapp {

using vxsupport::RadianceCalibration;

/// What a calibration file looks like, for people.
extern const char* const radianceFileHelp;

/// Reads a calibration file and the images that it names.
///
/// @param frameSize  size of the recording's frames, which the images must have
/// @param rawSize    the recording's --size, for headerless images of counts; may be empty
/// @param files      of the run, which come to know what is read; may be null
/// @throws UsageError  if something is missing, unknown or of no use; it names the file
RadianceCalibration readRadianceCalibration(const std::string& path, cv::Size frameSize,
                                            const std::string& rawSize,
                                            const std::shared_ptr<vxfiles::RunFiles>& files = nullptr);

/// Raises a UsageError unless all values are whole counts of signed 16 bits.
/// @param name  of the frame
void requireSignedCounts(const cv::Mat_<float>& frame, const std::string& name);

}  // namespace vxapp
