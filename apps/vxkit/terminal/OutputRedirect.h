// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <streambuf>
#include <string>

#include "core/diagnostics/DebugDeviceBase.h"

namespace vxapp {

/// Sends what is written to the standard output through std::cout to a debug device while it lives, line by
/// line as channel "output".
class OutputRedirect : private std::streambuf
{
public:
    /// @param device  may be empty: then the lines are dropped
    explicit OutputRedirect(std::shared_ptr<halvor::vx::DebugDeviceBase> device);
    ~OutputRedirect() override;
    OutputRedirect(const OutputRedirect&) = delete;
    OutputRedirect& operator=(const OutputRedirect&) = delete;

private:
    int_type overflow(int_type character) override;

    std::shared_ptr<halvor::vx::DebugDeviceBase> device_;
    std::string line_;
    std::streambuf* console_;
};

}  // namespace vxapp
