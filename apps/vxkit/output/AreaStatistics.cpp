// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/AreaStatistics.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "enhancement/superresolution/engine/PixelValues.h"

namespace vxapp {

namespace {

double medianOf(std::vector<double>& values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1)
        return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2.0;
}

std::string quoted(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string field = "\"";
    for (const char c : text)
        field.append(c == '"' ? 2 : 1, c);
    return field + "\"";
}

}  // namespace

AreaStatistics statisticsOf(const cv::Mat_<float>& image, const cv::Rect& area)
{
    AreaStatistics result;
    std::vector<double> values;
    double sum = 0.0;
    for (int y = area.y; y < area.br().y; ++y)
        for (int x = area.x; x < area.br().x; ++x) {
            const float value = image(y, x);
            if (!std::isfinite(value) || halvor::vx::isPixelMarker(value))
                continue;
            if (values.empty() || value < result.minimum) {
                result.minimum = value;
                result.minimumAt = {x, y};
            }
            if (values.empty() || value > result.maximum) {
                result.maximum = value;
                result.maximumAt = {x, y};
            }
            values.push_back(value);
            sum += value;
        }
    result.pixels = static_cast<int>(values.size());
    if (values.empty())
        return result;
    result.mean = sum / result.pixels;
    double squares = 0.0;
    for (const double value : values)
        squares += (value - result.mean) * (value - result.mean);
    result.deviation = std::sqrt(squares / result.pixels);
    result.median = medianOf(values);
    return result;
}

std::string areaTable(const std::vector<AreaRecord>& records)
{
    std::ostringstream table;
    table.precision(9);
    table << "file,frame,area,x,y,width,height,pixels,minimum,maximum,mean,deviation,median,minimum_x,"
             "minimum_y,"
             "maximum_x,maximum_y,unit\r\n";
    for (const AreaRecord& record : records) {
        const AreaStatistics& found = record.statistics;
        table << quoted(record.file) << ',' << record.frame << ',' << quoted(record.name) << ','
              << record.area.x << ',' << record.area.y << ',' << record.area.width << ','
              << record.area.height << ',' << found.pixels << ',';
        if (found.pixels == 0)
            table << ",,,,,,,,";
        else
            table << found.minimum << ',' << found.maximum << ',' << found.mean << ',' << found.deviation
                  << ',' << found.median << ',' << found.minimumAt.x << ',' << found.minimumAt.y << ','
                  << found.maximumAt.x << ',' << found.maximumAt.y;
        table << ',' << quoted(record.unit) << "\r\n";
    }
    return table.str();
}

}  // namespace vxapp
