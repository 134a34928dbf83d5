// SPDX-License-Identifier: Apache-2.0
#include "core/base/Exception.h"

#include <iostream>

#include "core/diagnostics/OutputSink.h"

namespace halvor::vx {

std::string whereText(const CodeLocation& location, const std::string& function)
{
    return std::string(location.file) + ":" + std::to_string(location.line) + " : " + function + "(..)";
}

Exception::Exception(const std::string& message, const std::string& where) : message_(message), where_(where)
{
    if (OutputSink* sink = OutputSink::current()) {
        if (sink->wants(OutputSink::Kind::exception))
            sink->write(OutputSink::Kind::exception, "exception", message_ + " at " + where_);
        return;
    }
    std::cerr << "exception raised: \"" << message_ << "\"\n   at: " << where_ << std::endl;
}

Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return message_.c_str();
}

const std::string& Exception::where() const noexcept
{
    return where_;
}

}  // namespace halvor::vx
