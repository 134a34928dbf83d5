// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

#include "core/base/CodeLocation.h"
#include "core/base/Export.h"

namespace halvor::vx {

/// Failure inside an algorithm: a message, and a text that tells where it arose.
///
/// Construction from texts reports on the standard error stream; copies are silent, so that an exception
/// which is caught and stored is told once.
class VXKIT_API Exception : public std::exception
{
public:
    /// @param message  what happened
    /// @param where    see whereText()
    Exception(const std::string& message, const std::string& where);
    Exception(const Exception&) = default;
    Exception(Exception&&) noexcept = default;
    Exception& operator=(const Exception&) = default;
    Exception& operator=(Exception&&) noexcept = default;
    ~Exception() override;

    /// The message, as long as the exception lives.
    const char* what() const noexcept override;
    /// The where-text of the construction, as long as the exception lives.
    virtual const std::string& where() const noexcept;

private:
    std::string message_;
    std::string where_;
};

}  // namespace halvor::vx
