// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/Registry.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "core/base/NeverDestroyed.h"

namespace vxc {

namespace {

struct Registry
{
    std::mutex mutex;
    std::unordered_map<std::uintptr_t, std::shared_ptr<Entry>> entries;
    std::uintptr_t last = 1;
};

// Never destroyed: a host may release its handles when its own statics are destroyed.
Registry& registry()
{
    static auto& instance = halvor::vx::neverDestroyed<Registry>();
    return instance;
}

// A number, which nobody follows: one that is gone or made up is found missing.
std::uintptr_t numberOf(const vxkit_object* handle)
{
    return reinterpret_cast<std::uintptr_t>(handle);
}

}  // namespace

vxkit_object* addEntry(std::unique_ptr<Object> object)
{
    auto entry = std::make_shared<Entry>();
    entry->object = std::move(object);
    Registry& all = registry();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.last += 2;  // odd, as no object's address is
    all.entries.emplace(all.last, std::move(entry));
    return reinterpret_cast<vxkit_object*>(all.last);  // NOLINT(performance-no-int-to-ptr)
}

std::shared_ptr<Entry> entryOf(const vxkit_object* handle)
{
    Registry& all = registry();
    const std::lock_guard<std::mutex> lock(all.mutex);
    const auto found = all.entries.find(numberOf(handle));
    return found == all.entries.end() ? nullptr : found->second;
}

void dropEntry(const vxkit_object* handle)
{
    Registry& all = registry();
    std::shared_ptr<Entry> last;  // destroyed behind the lock
    const std::lock_guard<std::mutex> lock(all.mutex);
    const auto found = all.entries.find(numberOf(handle));
    if (found == all.entries.end())
        return;
    last = std::move(found->second);
    all.entries.erase(found);
}

}  // namespace vxc
