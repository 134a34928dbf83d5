// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "bindings/c/ErrorText.h"
#include "bindings/c/Object.h"
#include "bindings/c/vxkit.h"

namespace vxc {

/// What a handle stands for.
struct Entry
{
    std::unique_ptr<Object> object;
    std::atomic_flag busy;
    ErrorText error;
};

/// @return a new handle, never given out before
vxkit_object* addEntry(std::unique_ptr<Object> object);
/// @return null unless the handle is alive
std::shared_ptr<Entry> entryOf(const vxkit_object* handle);
void dropEntry(const vxkit_object* handle);

/// Holds an entry for one call, unless another thread does.
class EntryInUse
{
public:
    explicit EntryInUse(Entry& entry)
        : entry_(entry), isMine_(!entry.busy.test_and_set(std::memory_order_acquire))
    {}
    ~EntryInUse()
    {
        if (isMine_)
            entry_.busy.clear(std::memory_order_release);
    }
    EntryInUse(const EntryInUse&) = delete;
    EntryInUse& operator=(const EntryInUse&) = delete;

    bool isMine() const { return isMine_; }

private:
    Entry& entry_;
    bool isMine_;
};

}  // namespace vxc
