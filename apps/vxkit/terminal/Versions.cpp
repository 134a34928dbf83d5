// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/Versions.h"

#include <omp.h>
#include <tiffio.h>

#include <opencv2/core/utility.hpp>
#include <sstream>

#ifdef VXKIT_VIDEO
extern "C" {
#include <libavutil/avutil.h>
}
#endif

namespace vxapp {

std::string versionText()
{
    const std::string tiff = TIFFGetVersion();  // several lines; the first one ends in the number
    const std::string tiffLine = tiff.substr(0, tiff.find('\n'));
    std::ostringstream text;
    text << "vxkit " VXKIT_VERSION "\n"
         << "OpenCV " << cv::getVersionString() << '\n'
         << "LibTIFF " << tiffLine.substr(tiffLine.rfind(' ') + 1) << '\n'
#ifdef VXKIT_VIDEO
         << "FFmpeg " << av_version_info() << '\n'
#endif
         << "OpenMP of " << _OPENMP / 100 << ", " << omp_get_max_threads() << " threads at most\n"
         << "compiled by " << VXKIT_COMPILER;
    return text.str();
}

}  // namespace vxapp
