// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/ShowRun.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/arguments/PlaceArguments.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/AreaStatistics.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/PictureMarks.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

using vxsupport::ValueRange;

constexpr int wantedHeight = 480;
constexpr int largestSide = 32000;  // of a picture
constexpr std::size_t mostPictures = 64;
constexpr std::size_t picturesPerRow = 4;

struct Shown
{
    std::string path;
    int frame;
    bool isOneOfSeveral;
    std::string unit;
    cv::Mat_<float> image;
};

/// Places in pixels of the first image; on images of another size they are moved in proportion.
class Places
{
public:
    Places(const ShowOptions& options, cv::Size size) : size_(size)
    {
        const std::string& image = options.recording.inputs.front();
        for (const std::string& spot : options.spots)
            spots_.push_back(parseSpot("--spot", spot, size, image));
        for (const std::string& area : options.areas)
            areas_.push_back(parseArea("--roi", area, size, image));
        part_ = options.region.empty() ? cv::Rect({0, 0}, size)
                                       : parseArea("--region", options.region, size, image);
    }

    PictureMarks on(cv::Size size) const
    {
        PictureMarks marks;
        marks.part = moved(part_, size);
        for (const cv::Rect& area : areas_)
            marks.regions.push_back(moved(area, size));
        for (const cv::Point& spot : spots_)
            marks.spots.push_back(centreOf(moved({spot, cv::Size(1, 1)}, size)));
        return marks;
    }

private:
    static cv::Point centreOf(const cv::Rect& area)
    {
        return area.tl() + cv::Point((area.width - 1) / 2, (area.height - 1) / 2);
    }

    cv::Rect moved(const cv::Rect& area, cv::Size size) const
    {
        const auto ratio = [](int place, int to, int from) {
            return static_cast<int>(static_cast<std::int64_t>(place) * to / from);
        };
        const cv::Point corner(ratio(area.x, size.width, size_.width),
                               ratio(area.y, size.height, size_.height));
        const cv::Point end(ratio(area.br().x, size.width, size_.width),
                            ratio(area.br().y, size.height, size_.height));
        return {corner, cv::Size(std::max(1, end.x - corner.x), std::max(1, end.y - corner.y))};
    }

    cv::Size size_;
    std::vector<cv::Point> spots_;
    std::vector<cv::Rect> areas_;
    cv::Rect part_;
};

/// One run of the command.
class ShowRun
{
public:
    ShowRun(const ShowOptions& options, Results& results) : options_(options), results_(results)
    {
        if (!options_.recording.files)
            options_.recording.files = std::make_shared<vxfiles::RunFiles>();
    }
    void run();

private:
    void readInput(const std::string& path);
    std::vector<int> wantedFrames(const Recording& recording, const std::string& path) const;
    cv::Mat_<float> valuesOf(Recording& recording, int frame) const;
    std::string unitOf(const Recording& recording) const;
    void measure(const Shown& shown);
    void addRecord(const Shown& shown, const std::string& name, const cv::Rect& area);
    void requireOneUnit() const;
    ValueRange ownRange(const Shown& shown) const;
    ValueRange rangeOf(const Shown& shown) const;
    cv::Mat_<cv::Vec3b> panelOf(const Shown& shown) const;
    int zoomFor(const Shown& shown) const;
    void writePicture();
    void writeTable();
    void tell(const AreaRecord& record);

    ShowOptions options_;
    Results& results_;
    std::optional<Places> places_;
    std::vector<Shown> shown_;
    std::optional<ValueRange> range_;  // of all pictures
    std::vector<AreaRecord> records_;
};

void checkOptions(const ShowOptions& options)
{
    if (options.picture.empty() && options.table.empty())
        throw UsageError("nowhere to write to; expected -o FILE.png or --csv FILE.csv");
    if (!options.picture.empty() && !isPngName(options.picture))
        throw UsageError(options.picture + ": expected a picture name that ends in .png");
    for (const std::string& path : {options.picture, options.table})
        options.recording.files->writes(path, options.force);
}

// "LOW:HIGH"; nothing for the words.
std::optional<ValueRange> fixedRange(const std::string& text)
{
    if (text == "own" || text == "shared")
        return std::nullopt;
    const std::size_t middle = text.find(':');
    ValueRange range{0.0F, 0.0F};
    using CLI::detail::lexical_cast;
    const bool isRange = middle != std::string::npos && lexical_cast(text.substr(0, middle), range.low) &&
                         lexical_cast(text.substr(middle + 1), range.high) && std::isfinite(range.low) &&
                         std::isfinite(range.high) && range.low < range.high;
    if (!isRange)
        throw UsageError("--range " + text +
                         ": expected own, shared or LOW:HIGH, two values of which LOW is below HIGH");
    return range;
}

void ShowRun::run()
{
    checkOptions(options_);
    range_ = fixedRange(options_.range);
    for (const std::string& path : options_.recording.inputs)
        readInput(path);
    if (!options_.picture.empty())
        writePicture();
    if (!options_.table.empty())
        writeTable();
    results_.list("areas");
    for (const AreaRecord& record : records_)
        tell(record);
    results_.print();
}

void ShowRun::tell(const AreaRecord& record)
{
    const AreaStatistics& found = record.statistics;
    results_.add("areas")
        .set("file", record.file)
        .set("frame", record.frame)
        .set("area", record.name)
        .set("pixels", found.pixels)
        .set("minimum", found.minimum)
        .set("maximum", found.maximum)
        .set("mean", found.mean)
        .set("deviation", found.deviation)
        .set("median", found.median)
        .set("unit", record.unit);
    if (!options_.table.empty())
        return;
    std::ostream& out = results_.lines();
    out << record.file << ", frame " << record.frame << ", " << record.name << ": ";
    if (found.pixels == 0)
        out << "no values\n";
    else if (record.area.area() == 1)
        out << found.mean << ' ' << record.unit << '\n';
    else
        out << found.minimum << " to " << found.maximum << ' ' << record.unit << ", mean " << found.mean
            << ", deviation " << found.deviation << ", median " << found.median << '\n';
}

void ShowRun::readInput(const std::string& path)
{
    Recording recording(forFile(options_.recording, path));
    if (!places_)
        places_.emplace(options_, recording.frameSize());
    const std::vector<int> wanted = wantedFrames(recording, path);
    const bool measuresAll = !options_.table.empty() && options_.frames.empty();
    for (int frame = 0; frame < recording.frameCount(); ++frame) {
        const bool isShown = std::find(wanted.begin(), wanted.end(), frame) != wanted.end();
        if (!isShown && !measuresAll)
            continue;
        const Shown shown{path, frame, recording.frameCount() > 1, unitOf(recording),
                          valuesOf(recording, frame)};
        measure(shown);
        if (isShown && !options_.picture.empty())
            shown_.push_back(shown);
        if (shown_.size() > mostPictures)
            throw UsageError("expected at most " + std::to_string(mostPictures) + " frames in a picture");
    }
}

std::vector<int> ShowRun::wantedFrames(const Recording& recording, const std::string& path) const
{
    if (options_.frames.empty() || recording.frameCount() == 1)
        return {0};
    for (const int frame : options_.frames)
        if (frame < 0 || frame >= recording.frameCount())
            throw UsageError("--frame " + std::to_string(frame) + ": " + path + " has frames 0 to " +
                             std::to_string(recording.frameCount() - 1));
    return options_.frames;
}

cv::Mat_<float> ShowRun::valuesOf(Recording& recording, int frame) const
{
    cv::Mat_<float> values = recording.values(frame);
    if (recording.holdsFloats())
        return values;
    cv::Mat_<float> scaled;
    values.convertTo(scaled, CV_32F, options_.scale.value_or(1.0), options_.offset.value_or(0.0));
    return scaled;
}

std::string ShowRun::unitOf(const Recording& recording) const
{
    if (!options_.unit.empty())
        return options_.unit;
    if (options_.scale || options_.offset)
        return "deg C";
    return recording.holdsFloats() ? "values" : "counts";
}

void ShowRun::measure(const Shown& shown)
{
    const PictureMarks marks = places_->on(shown.image.size());
    addRecord(shown, "whole", {{0, 0}, shown.image.size()});
    for (std::size_t i = 0; i < marks.regions.size(); ++i)
        addRecord(shown, markName('R', i), marks.regions[i]);
    for (std::size_t i = 0; i < marks.spots.size(); ++i)
        addRecord(shown, markName('S', i), {marks.spots[i], cv::Size(1, 1)});
}

void ShowRun::addRecord(const Shown& shown, const std::string& name, const cv::Rect& area)
{
    records_.push_back({shown.path, shown.frame, name, area, statisticsOf(shown.image, area), shown.unit});
}

// One range and one isotherm mean the same in all pictures.
void ShowRun::requireOneUnit() const
{
    if (options_.range == "own" && options_.isotherms.empty())
        return;
    for (const Shown& shown : shown_)
        if (shown.unit != shown_.front().unit)
            throw UsageError(
                shown.path + ": holds " + shown.unit + ", while " + shown_.front().path + " holds " +
                shown_.front().unit +
                "; expected one unit for a range of all pictures and for isotherms (--unit names "
                "it)");
}

ValueRange ShowRun::ownRange(const Shown& shown) const
{
    return colourRange(vxsupport::visibleRange(shown.image(places_->on(shown.image.size()).part)));
}

ValueRange ShowRun::rangeOf(const Shown& shown) const
{
    return range_ ? *range_ : ownRange(shown);
}

// Images of several sizes are shown equally large, as far as whole squares of pixels allow it.
int ShowRun::zoomFor(const Shown& shown) const
{
    const cv::Size first = shown_.front().image.size();
    const cv::Rect firstPart = places_->on(first).part;
    int largest = first.width;
    for (const Shown& other : shown_)
        largest = std::max(largest, other.image.cols);
    const int ratio = largest / first.width;
    const int fitting =
        std::min(wantedHeight / firstPart.height, std::max(1, 2 * wantedHeight / firstPart.width));
    const int zoom = options_.zoom.value_or(std::clamp(fitting / ratio, 1, largestZoom) * ratio) *
                     first.width / shown.image.cols;
    const cv::Rect part = places_->on(shown.image.size()).part;
    if (std::max(part.width, part.height) > largestSide / std::max(1, zoom))
        throw UsageError("--zoom: makes a picture of more than " + std::to_string(largestSide) + " pixels");
    return std::max(1, zoom);
}

cv::Mat_<cv::Vec3b> ShowRun::panelOf(const Shown& shown) const
{
    PictureMarks marks = places_->on(shown.image.size());
    marks.isotherms = options_.isotherms;
    const AreaStatistics found = statisticsOf(shown.image, marks.part);
    if (options_.extremes && found.pixels > 0)
        marks.extremes = {found.minimumAt, found.maximumAt};
    return markedPicture(shown.image, {rangeOf(shown), options_.colourMap, shown.unit, zoomFor(shown)},
                         marks);
}

void ShowRun::writePicture()
{
    requireOneUnit();
    std::vector<std::string> paths;
    for (const Shown& shown : shown_) {
        paths.push_back(shown.path);
        const ValueRange own = ownRange(shown);
        if (options_.range == "shared")
            range_ =
                range_ ? ValueRange{std::min(range_->low, own.low), std::max(range_->high, own.high)} : own;
    }
    const std::vector<std::string> names = captionNames(paths);
    std::vector<cv::Mat_<cv::Vec3b>> rows;
    std::vector<vxsupport::Panel> row;
    for (std::size_t i = 0; i < shown_.size(); ++i) {
        const std::string frame =
            shown_[i].isOneOfSeveral ? ", frame " + std::to_string(shown_[i].frame) : "";
        row.push_back({panelOf(shown_[i]), names[i] + frame});
        if (row.size() == picturesPerRow || i + 1 == shown_.size())
            rows.push_back(vxsupport::sideBySide(std::exchange(row, {})));
    }
    const cv::Mat sheet = vxsupport::stacked(rows);
    savePicture(options_.picture, sheet, options_.force);
    for (std::size_t i = 0; i < shown_.size(); ++i) {
        const ValueRange range = rangeOf(shown_[i]);
        std::cout << shown_[i].path << ", frame " << shown_[i].frame << ": " << options_.colourMap << " from "
                  << range.low << " to " << range.high << ' ' << shown_[i].unit << '\n';
    }
    std::cout << options_.picture << " (" << sheet.cols << 'x' << sheet.rows << ')' << std::endl;
}

void ShowRun::writeTable()
{
    vxfiles::writeFile(options_.table, areaTable(records_), options_.force);
    std::cout << options_.table << " (" << records_.size() << " lines)" << std::endl;
}

}  // namespace

void runShow(const ShowOptions& options, Results& results)
{
    ShowRun(options, results).run();
}

}  // namespace vxapp
