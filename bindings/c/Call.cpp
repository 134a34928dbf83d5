// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/Call.h"

#include <omp.h>
#include <pthread.h>

#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace vxc {

namespace {

struct ThreadState
{
    int chosen = 0;         // 0: OpenMP's own choice
    bool hasTeam = false;   // OpenMP may keep threads for this one
    bool lostTeam = false;  // they stayed behind in the process that this one was forked from
};

ThreadState& threadState()
{
    thread_local ThreadState state;
    return state;
}

// In the child of a fork this thread is the only one, and OpenMP goes on to count on the others. Alone it never waits.
void beginChild()
{
    threadState().lostTeam = threadState().hasTeam;
}

}  // namespace

void chooseThreads(int threads)
{
    threadState().chosen = threads;
}

CallThreads::CallThreads()
{
    [[maybe_unused]] static const int watched = ::pthread_atfork(nullptr, nullptr, beginChild);
    ThreadState& state = threadState();
    state.hasTeam = true;
    const int threads = state.lostTeam ? 1 : state.chosen;
    if (threads == 0)
        return;
    before_ = omp_get_max_threads();
    omp_set_num_threads(threads);
}

CallThreads::~CallThreads()
{
    if (before_ != 0)
        omp_set_num_threads(before_);
}

ErrorText& threadError()
{
    thread_local ErrorText text;
    return text;
}

vxkit_status tellException(CallLog& log, ErrorText* handleError) noexcept
{
    const auto tell = [&](vxkit_status status, const char* text) {
        threadError().set(text);
        if (handleError != nullptr)
            handleError->set(text);
        log.tellFailure(text);
        return status;
    };
    try {
        throw;
    } catch (const Failure& failure) {
        return tell(failure.status(), failure.what());
    } catch (const vxsupport::SettingError& error) {
        return tell(VXKIT_OUT_OF_RANGE, error.what());
    } catch (const std::invalid_argument& error) {  // of the simulator
        return tell(VXKIT_OUT_OF_RANGE, error.what());
    } catch (const std::bad_alloc&) {
        return tell(VXKIT_OUT_OF_MEMORY, "out of memory");
    } catch (const std::length_error&) {
        return tell(VXKIT_OUT_OF_MEMORY, "out of memory: more than a container holds");
    } catch (const cv::Exception& error) {
        return tell(error.code == cv::Error::StsNoMem ? VXKIT_OUT_OF_MEMORY : VXKIT_FAILED, error.what());
    } catch (const std::exception& error) {
        return tell(VXKIT_FAILED, error.what());
    } catch (const char* text) {  // a setter's refusal
        return tell(VXKIT_OUT_OF_RANGE, text);
    } catch (...) {
        return tell(VXKIT_FAILED, "unknown exception");
    }
}

std::shared_ptr<Entry> requireEntry(const vxkit_object* handle)
{
    std::shared_ptr<Entry> entry = entryOf(handle);
    if (!entry)
        throw Failure(VXKIT_BAD_HANDLE,
                      handle == nullptr
                          ? "the handle is null; expected one from vxkit_create"
                          : "the handle was released or is foreign; expected one from vxkit_create");
    return entry;
}

}  // namespace vxc
