// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <ostream>
#include <string_view>

#include "core/diagnostics/DebugDeviceBase.h"

namespace halvor::vx {

/// Takes in place of the process's streams what classes print on the threads where it is in force. Without one, which
/// is the rule, they print as ever.
class OutputSink
{
public:
    enum class Kind
    {
        output,     ///< of the standard output
        exception,  ///< that an exception arose
        trace,      ///< of a debug channel or the log
    };

    virtual ~OutputSink() = default;

    /// Whether lines of this kind are read; composing others may be saved.
    virtual bool wants(Kind kind) const = 0;
    /// @param source  what speaks
    /// @param text    one line without its end. Several threads may call at once
    virtual void write(Kind kind, std::string_view source, std::string_view text) = 0;

    /// The one in force on this thread, or null.
    static OutputSink* current() { return inForce; }

protected:
    OutputSink() = default;
    OutputSink(const OutputSink&) = default;
    OutputSink& operator=(const OutputSink&) = default;

private:
    friend class SinkInForce;

    static inline constinit thread_local OutputSink* inForce = nullptr;
};

/// Puts a sink in force on this thread while it lives.
class SinkInForce
{
public:
    /// @param sink  null: the process's streams
    explicit SinkInForce(OutputSink* sink) : before_(OutputSink::inForce) { OutputSink::inForce = sink; }
    ~SinkInForce() { OutputSink::inForce = before_; }
    SinkInForce(const SinkInForce&) = delete;
    SinkInForce& operator=(const SinkInForce&) = delete;

private:
    OutputSink* before_;
};

/// The standard output, or a stream to the sink in force.
std::ostream& standardOutput();

/// A device that hands the lines of channels to the sink that is in force where they arise, or null unless the one in
/// force here wants them.
std::shared_ptr<DebugDeviceBase> traceDevice();

}  // namespace halvor::vx
