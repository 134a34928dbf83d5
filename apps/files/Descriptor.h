// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <utility>

namespace vxfiles {

/// Owns a descriptor of the system.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return number_ >= 0; }
    int get() const { return number_; }

    /// @return whether all was written; errno tells why not
    bool write(std::string_view bytes) const;
    /// @return whether all bytes have reached the disk; errno tells why not
    bool sync() const;
    /// @return whether nothing was lost, which some file systems tell only now; errno tells why
    bool close();

private:
    int number_ = -1;
};

/// @return whether a descriptor took all bytes; errno tells why not
bool writeAll(int descriptor, std::string_view bytes);

}  // namespace vxfiles
