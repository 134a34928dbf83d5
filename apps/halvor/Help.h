// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace halvorapp {

inline constexpr char usageLine[] = "halvor [-h] [-s setting] [stream]\n";

/// What the program does, for --help and the manual page: paragraphs, and headings that end in a colon.
std::string helpText();

}  // namespace halvorapp
