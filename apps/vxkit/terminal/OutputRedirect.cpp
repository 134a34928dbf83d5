// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/OutputRedirect.h"

#include <iostream>
#include <utility>

namespace vxapp {

OutputRedirect::OutputRedirect(std::shared_ptr<halvor::vx::DebugDeviceBase> device)
    : device_(std::move(device)), console_(std::cout.rdbuf(this))
{}

OutputRedirect::~OutputRedirect()
{
    std::cout.rdbuf(console_);
}

// There is no buffer, so every character comes here.
OutputRedirect::int_type OutputRedirect::overflow(int_type character)
{
    if (traits_type::eq_int_type(character, traits_type::eof()) || !device_)
        return traits_type::not_eof(character);
    if (character != '\n') {
        line_.push_back(traits_type::to_char_type(character));
        return character;
    }
    device_->write("output", line_, 1);
    line_.clear();
    return character;
}

}  // namespace vxapp
