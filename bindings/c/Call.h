// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "bindings/c/Failure.h"
#include "bindings/c/Log.h"
#include "bindings/c/Registry.h"
#include "bindings/c/vxkit.h"
#include "support/drivers/SettingError.h"

// What every call of the interface goes through: no exception leaves it, its failure is told, its threads are the
// calling thread's choice, and what classes print goes to the log.
namespace vxc {

/// With how many threads the calls of this thread compute; 0: by OpenMP's own choice.
void chooseThreads(int threads);

/// OpenMP's threads for one call.
class CallThreads
{
public:
    CallThreads();
    ~CallThreads();
    CallThreads(const CallThreads&) = delete;
    CallThreads& operator=(const CallThreads&) = delete;

private:
    int before_ = 0;  // 0: nothing was changed
};

/// The text of the calling thread's last failure.
ErrorText& threadError();

/// Turns the exception at hand into a status; the text goes to the thread, the log and, if there is one, the handle.
vxkit_status tellException(CallLog& log, ErrorText* handleError) noexcept;

/// Runs a call without a handle.
template <typename Work>
vxkit_status guarded(Work&& work) noexcept
{
    CallLog log;
    try {
        std::forward<Work>(work)();
        return VXKIT_OK;
    } catch (...) {
        return tellException(log, nullptr);
    }
}

template <typename Pointer>
void requirePointer(const Pointer* pointer, const char* name)
{
    if (pointer == nullptr)
        throw Failure(VXKIT_NULL_ARGUMENT, std::string(name) + ": found null");
}

/// The entry of a handle.
/// @throws Failure  for a handle that is not alive
std::shared_ptr<Entry> requireEntry(const vxkit_object* handle);

/// Runs a call on an object, as work(Object&).
template <typename Work>
vxkit_status withObject(const vxkit_object* handle, Work&& work) noexcept
{
    CallLog log;
    try {
        const std::shared_ptr<Entry> entry = requireEntry(handle);
        const EntryInUse use(*entry);
        if (!use.isMine())
            throw Failure(VXKIT_BUSY, "the handle is in use by another call");
        try {
            const CallThreads threads;
            std::forward<Work>(work)(*entry->object);
            return VXKIT_OK;
        } catch (...) {
            return tellException(log, &entry->error);
        }
    } catch (...) {
        return tellException(log, nullptr);
    }
}

/// Runs a call that takes a frame: one that ends in the middle of it leaves the object as after a reset.
template <typename Work>
vxkit_status withWork(const vxkit_object* handle, Work&& work) noexcept
{
    return withObject(handle, [&](Object& found) {
        try {
            work(found);
        } catch (const Failure&) {  // told ahead of the work, or by an engine that goes on
            throw;
        } catch (const vxsupport::SettingError&) {
            throw;
        } catch (...) {
            found.forget();
            throw;
        }
    });
}

}  // namespace vxc
