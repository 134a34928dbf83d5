// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/Results.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

ResultRecord::Entry& ResultRecord::entry(const std::string& name)
{
    const auto known =
        std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e.first == name; });
    return known != entries_.end() ? known->second : entries_.emplace_back(name, Entry()).second;
}

ResultRecord& ResultRecord::set(const std::string& name, ResultValue value)
{
    entry(name) = std::move(value);
    return *this;
}

void ResultRecord::list(const std::string& name)
{
    Entry& known = entry(name);
    if (!std::holds_alternative<List>(known))
        known = List();
}

ResultRecord& ResultRecord::add(const std::string& name)
{
    list(name);
    return *std::get<List>(entry(name)).emplace_back(std::make_unique<ResultRecord>());
}

std::ostream& Results::lines() const
{
    static std::ostream nowhere(nullptr);
    return isJson_ ? nowhere : resultStream();
}

void Results::print() const
{
    using Json = nlohmann::ordered_json;
    struct Converter
    {
        Json operator()(const ResultRecord& record) const
        {
            Json object = Json::object();
            for (const auto& [name, entry] : record.entries_)
                object[name] = std::visit(*this, entry);
            return object;
        }
        Json operator()(const List& list) const
        {
            Json array = Json::array();
            for (const auto& record : list)
                array.push_back((*this)(*record));
            return array;
        }
        Json operator()(const ResultValue& value) const
        {
            return std::visit([](const auto& single) { return Json(single); }, value);
        }
    };
    if (isJson_)
        resultStream() << Converter{}(*this).dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

}  // namespace vxapp
