// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace halvor::vx {

/// The latest entries of a sequence, oldest first: once the window is full, a new entry takes the place of the
/// oldest. Slots are moved and keep what they hold, so that what a slot owns is allocated once.
template <typename Slot>
class SlidingWindow
{
public:
    /// @param slots  one for each entry that the window can hold, all of them unused at first
    explicit SlidingWindow(std::vector<Slot> slots) : slots_(std::move(slots)) {}
    /// @param slot  what each of the slots is a copy of
    explicit SlidingWindow(int capacity, const Slot& slot = Slot())
        : slots_(static_cast<std::size_t>(capacity), slot)
    {}

    /// The slot of a new entry, as its last user left it; capacity() is above 0.
    Slot& push()
    {
        if (count_ < capacity())
            ++count_;
        else
            std::rotate(slots_.begin(), slots_.begin() + 1, slots_.end());
        return newest();
    }
    /// The slot of the last push(), after which there was no clear().
    Slot& newest() { return slots_[static_cast<std::size_t>(count_ - 1)]; }
    /// Forgets the entries; the slots stay where they are.
    void clear() { count_ = 0; }

    /// Entries in the window.
    int count() const { return count_; }
    /// Entries that the window can hold.
    int capacity() const { return static_cast<int>(slots_.size()); }

    /// All slots: those of the entries, then the unused ones.
    std::vector<Slot>& slots() { return slots_; }
    const std::vector<Slot>& slots() const { return slots_; }
    /// @param index  0 for the oldest entry, to count() - 1; not checked
    Slot& operator[](int index) { return slots_[static_cast<std::size_t>(index)]; }
    const Slot& operator[](int index) const { return slots_[static_cast<std::size_t>(index)]; }

private:
    std::vector<Slot> slots_;
    int count_ = 0;
};

}  // namespace halvor::vx
