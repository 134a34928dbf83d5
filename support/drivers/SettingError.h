// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace vxsupport {

/// A setting or a frame size that a driver can't take. The text begins with the setting's name and says what was
/// expected.
class SettingError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vxsupport
