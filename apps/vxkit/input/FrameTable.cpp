// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/FrameTable.h"

#include <utility>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

FrameTable::FrameTable(std::string name, std::size_t most) : name_(std::move(name)), most_(most) {}

void FrameTable::add(std::uint64_t place)
{
    if (places_.size() == most_)
        throw UsageError(name_ + ": more than " + std::to_string(most_) +
                         " frames; expected fewer, or a format that keeps them at equal distances (.npy)");
    places_.push_back(place);
}

}  // namespace vxapp
