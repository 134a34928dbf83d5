// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vxapp {

/// A single value among the results. Numbers that are infinite or undefined become null in JSON.
using ResultValue = std::variant<bool, std::int64_t, double, std::string>;

/// Named values and lists of records, in the order in which they were named first.
class ResultRecord
{
public:
    ResultRecord& set(const std::string& name, ResultValue value);
    /// Appends a record to a list; the list may be named first to be there if it stays empty.
    ResultRecord& add(const std::string& list);
    void list(const std::string& name);

private:
    friend class Results;
    using List = std::vector<std::unique_ptr<ResultRecord>>;
    using Entry = std::variant<ResultValue, List>;

    Entry& entry(const std::string& name);

    std::vector<std::pair<std::string, Entry>> entries_;
};

/// What a command prints as its results: lines for people, or with --json one object for programs.
///
///     results.lines() << "PSNR " << psnr << " dB\n";
///     results.set("psnr", psnr);
///     results.print();
class Results : public ResultRecord
{
public:
    /// @param command  the command's name, the object's first value
    explicit Results(const std::string& command) { set("command", command); }

    void setJson(bool isJson) { isJson_ = isJson; }
    bool isJson() const { return isJson_; }

    /// Takes what people read, also with --quiet; silent with --json.
    std::ostream& lines() const;

    /// Prints the object if it is asked for, with the standard output to itself. To be called once, ahead of an
    /// exception that ends the command with results.
    void print() const;

private:
    bool isJson_ = false;
};

}  // namespace vxapp
