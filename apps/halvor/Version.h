// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvorapp {

/// Stands in the greeting and in the name of every output.
inline constexpr char versionText[] = "t1.19";

}  // namespace halvorapp
