// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

namespace halvor::vx {

/// Part of an object that is copied by value, of a type that the object's header does not show: a copy owns a
/// copy of the part. The object's constructors, copies and destructor are defined where the type is known.
template <typename Part>
class OwnedPart
{
public:
    /// @param part  not null
    explicit OwnedPart(std::unique_ptr<Part> part) : part_(std::move(part)) {}
    /// Copies the part itself, into one of its own or onto the one that is there.
    OwnedPart(const OwnedPart& other) : part_(std::make_unique<Part>(*other.part_)) {}
    OwnedPart& operator=(const OwnedPart& other)
    {
        *part_ = *other.part_;
        return *this;
    }
    ~OwnedPart() = default;

    /// The part; it lives as long as this object.
    Part* operator->() const { return part_.get(); }

private:
    std::unique_ptr<Part> part_;
};

}  // namespace halvor::vx
