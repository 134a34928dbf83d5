// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include "bindings/c/vxkit.h"

namespace vxc {

/// Ends a call with a status and a text.
class Failure : public std::runtime_error
{
public:
    Failure(vxkit_status status, const std::string& text) : std::runtime_error(text), status_(status) {}

    vxkit_status status() const { return status_; }

private:
    vxkit_status status_;
};

}  // namespace vxc
