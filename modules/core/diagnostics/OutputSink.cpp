// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/OutputSink.h"

#include <iostream>
#include <streambuf>
#include <string>

namespace halvor::vx {

namespace {

/// Hands on whole lines to the sink in force.
class SinkBuffer : public std::streambuf
{
private:
    // There is no buffer, so every character comes here.
    int_type overflow(int_type character) override
    {
        if (traits_type::eq_int_type(character, traits_type::eof()))
            return traits_type::not_eof(character);
        if (character != '\n') {
            line_.push_back(traits_type::to_char_type(character));
            return character;
        }
        if (OutputSink* sink = OutputSink::current())
            sink->write(OutputSink::Kind::output, "output", line_);
        line_.clear();
        return character;
    }

    std::string line_;
};

/// Silent where no sink is in force: the process's streams are no place for what one asked for.
class SinkDevice : public DebugDeviceBase
{
public:
    void write(std::string_view channel, std::string_view text, int /*level*/) override
    {
        if (OutputSink* sink = OutputSink::current())
            sink->write(OutputSink::Kind::trace, channel, text);
    }
};

}  // namespace

std::shared_ptr<DebugDeviceBase> traceDevice()
{
    const OutputSink* sink = OutputSink::current();
    if (sink == nullptr || !sink->wants(OutputSink::Kind::trace))
        return nullptr;
    return std::make_shared<SinkDevice>();
}

std::ostream& standardOutput()
{
    if (OutputSink::current() == nullptr)
        return std::cout;
    thread_local SinkBuffer buffer;
    thread_local std::ostream stream(&buffer);
    stream.clear();  // a line that found no memory must not silence all that come
    return stream;
}

}  // namespace halvor::vx
