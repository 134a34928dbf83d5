// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/SampleScale.h"
#include "support/drivers/ClusterFilter.h"

namespace vxapp {

struct ClusterSettings : vxsupport::ClusterLimits
{
    // Where the statistics come from; none of these: from the recording itself.
    std::vector<std::string> uniform;
    std::string mean;
    std::string stdDev;

    std::string damping{};  ///< file for the learned image, .tif, .tiff or .pfm; empty for none
};

/// Learns a damping image from a uniform scene; the filter multiplies frames by it.
///
/// @param recording  that will be filtered
/// @param size       "WIDTHxHEIGHT" of headerless frames of a uniform scene; empty for image files
/// @param force      an existing file of the learned image may be replaced
/// @throws UsageError for statistics that are missing, of another size or not finite, and for a file that
///         can't be written
std::unique_ptr<vxsupport::FrameFilter> makeClusterFilter(const ClusterSettings& settings,
                                                          Recording& recording, const std::string& size,
                                                          const SampleScale& scale, bool force);

}  // namespace vxapp
