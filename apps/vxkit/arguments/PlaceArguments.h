// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vxapp {

/// Adds an option that takes one area; a settings file may give it without quotes, too.
CLI::Option* addAreaOption(CLI::App& command, const std::string& name, std::string& area,
                           const std::string& purpose);

/// The value "X,Y" of an option, a pixel of an image.
/// @param image  what it is called
/// @throws UsageError that names the option, if it is something else or lies outside
cv::Point parseSpot(const std::string& option, const std::string& text, cv::Size size,
                    const std::string& image);

/// The value "X,Y,WxH" (or "X,Y,W,H") of an option, an area inside an image.
cv::Rect parseArea(const std::string& option, const std::string& text, cv::Size size,
                   const std::string& image);

}  // namespace vxapp
