// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// Stores a value of 0 to highest; refuses any other and returns false.
inline bool setChecked(int& setting, int value, int highest)
{
    if (value < 0 || value > highest)
        return false;
    setting = value;
    return true;
}

}  // namespace halvor::vx
