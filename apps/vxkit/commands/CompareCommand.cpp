// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/CompareCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/PlaceArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/arguments/RunArguments.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/PictureMarks.h"
#include "apps/vxkit/terminal/Failure.h"
#include "support/PictureMeasures.h"
#include "support/Pictures.h"

namespace vxapp {

namespace {

struct CompareOptions
{
    std::string image;
    std::string reference;
    std::string frame;  // small frame to enlarge as a baseline; empty for none
    std::optional<double> scale;
    std::optional<double> offset;
    int margin = 0;
    bool align = false;
    std::string picture;
    std::string region;  // empty for all
    std::string colourMap = vxsupport::colourMapNames().front();
    bool force = false;
};

constexpr int largestMargin = 1 << 15;
constexpr int leastSide = 11;  // of a window of SSIM

struct Candidate
{
    std::string name;
    cv::Mat_<float> image;
    bool wereCounts;
};

Candidate readValues(const std::string& path, const CompareOptions& options)
{
    const std::unique_ptr<FrameFile> file = openImageFile(path);
    if (file->frameCount() != 1)
        throw UsageError(path + ": holds " + std::to_string(file->frameCount()) + " images; expected one");
    const cv::Mat image = file->read(0);
    const SampleType sample = file->sampleOf(image);
    requireMoreThanBytes(path, sample);
    cv::Mat_<float> values;
    if (isFloatType(sample))
        image.convertTo(values, CV_32F);
    else
        image.convertTo(values, CV_32F, options.scale.value_or(1.0), options.offset.value_or(0.0));
    const auto bad =
        std::count_if(values.begin(), values.end(), [](float value) { return !std::isfinite(value); });
    if (bad > 0)
        throw UsageError(path + ": " + std::to_string(bad) +
                         " pixels are infinite or no numbers; expected a finite value in each");
    return {path, values, !isFloatType(sample)};
}

// Without a scale nothing tells what a count is in degrees.
void requireUnit(const Candidate& candidate, const Candidate& reference, const CompareOptions& options)
{
    if (options.scale || options.offset || candidate.wereCounts == reference.wereCounts)
        return;
    const auto unit = [](const Candidate& image) { return image.wereCounts ? " counts" : " floats"; };
    throw UsageError(
        candidate.name + ": holds" + unit(candidate) + ", while " + reference.name + " holds" +
        unit(reference) +
        "; --scale and --offset tell what counts mean (--scale 1 if the floats are counts, too)");
}

std::string sizeText(const cv::Mat& image)
{
    return std::to_string(image.cols) + "x" + std::to_string(image.rows);
}

void requireSize(const Candidate& candidate, const cv::Mat& reference, const CompareOptions& options)
{
    if (candidate.image.size() != reference.size())
        throw UsageError(candidate.name + ": is " + sizeText(candidate.image) + "; expected " +
                         sizeText(reference) + ", the size of " + options.reference);
}

// The candidate on the reference's grid, and the margin within which both may be compared; adds to what is told.
int alignTo(const cv::Mat_<float>& reference, const CompareOptions& options, Candidate& candidate,
            std::ostream& out)
{
    if (!options.align)
        return options.margin;
    const PointF shift = vxsupport::estimateShift(candidate.image, reference, options.margin);
    const bool removable =
        std::abs(shift.x) < vxsupport::maxRemovableShift && std::abs(shift.y) < vxsupport::maxRemovableShift;
    if (!removable)
        throw UsageError(candidate.name + ": no global shift of less than " +
                         std::to_string(static_cast<int>(vxsupport::maxRemovableShift)) +
                         " pixels aligns it with " + options.reference);
    candidate.image = vxsupport::withoutShift(candidate.image, shift);
    out << candidate.name << ": removed a global shift of (" << std::fixed << std::setprecision(3) << shift.x
        << ", " << shift.y << ") pixels\n";
    return std::max(options.margin, vxsupport::spoiledMargin(shift));
}

// Scores the region without the margin at the image's edges.
void tell(const Candidate& candidate, const cv::Mat_<float>& reference, const cv::Rect& region, int margin,
          std::ostream& out, Results& results)
{
    const cv::Rect inner(margin, margin, reference.cols - 2 * margin, reference.rows - 2 * margin);
    const cv::Rect scored =
        margin < std::min(reference.cols, reference.rows) / 2 ? region & inner : cv::Rect();
    if (std::min(scored.width, scored.height) < leastSide)
        throw std::invalid_argument("region and margin leave fewer than " + std::to_string(leastSide) +
                                    " rows or columns");
    const cv::Mat_<float> image = candidate.image(scored);
    const cv::Mat_<float> part = reference(scored);
    const double psnr = vxsupport::psnr(image, part);
    const double ssim = vxsupport::ssim(image, part);
    const double largest = vxsupport::largestDifference(image, part);
    out << candidate.name << ": PSNR " << std::fixed << std::setprecision(2) << psnr << " dB, SSIM "
        << std::setprecision(4) << ssim << ", largest difference " << std::setprecision(3) << largest << '\n';
    results.add("images")
        .set("name", candidate.name)
        .set("psnr", psnr)
        .set("ssim", ssim)
        .set("largestDifference", largest)
        .set("margin", margin);
}

cv::Rect regionOf(const CompareOptions& options, const cv::Mat& reference)
{
    const cv::Rect whole(0, 0, reference.cols, reference.rows);
    return options.region.empty()
               ? whole
               : parseArea("--region", options.region, reference.size(), options.reference);
}

std::string unitOf(const Candidate& image, const CompareOptions& options)
{
    if (options.scale || options.offset)
        return "deg C";
    return image.wereCounts ? "counts" : "values";
}

void writePicture(const std::vector<Candidate>& candidates, const cv::Rect& region,
                  const CompareOptions& options)
{
    constexpr int wantedHeight = 360;
    const int times = std::max(1, wantedHeight / region.height);
    const Candidate& reference = candidates.back();
    const PictureLook look{colourRange(vxsupport::visibleRange(reference.image(region))), options.colourMap,
                           unitOf(reference, options), times};
    const std::vector<std::string> names = captionNames({options.image, options.reference, options.frame});
    std::vector<vxsupport::Panel> panels;
    for (const Candidate& candidate : candidates) {
        PictureMarks marks;
        marks.part = region;
        panels.push_back({markedPicture(candidate.image, look, marks), candidate.name});
    }
    panels.back().caption = names[1];
    panels.end()[-2].caption = names[0];
    if (panels.size() > 2)
        panels.front().caption = "bicubic enlargement of " + names[2];
    const cv::Mat_<cv::Vec3b> picture = vxsupport::sideBySide(panels);
    savePicture(options.picture, picture, options.force);
}

void checkOptions(const CompareOptions& options, vxfiles::RunFiles& files)
{
    if (options.scale && (!std::isfinite(*options.scale) || *options.scale == 0.0))
        throw UsageError("--scale: expected a finite number other than 0");
    if (options.offset && !std::isfinite(*options.offset))
        throw UsageError("--offset: expected a finite number");
    if (options.picture.empty())
        return;
    if (!isPngName(options.picture))
        throw UsageError(options.picture + ": expected a picture name that ends in .png");
    files.writes(options.picture, options.force);
}

void compare(const CompareOptions& options, vxfiles::RunFiles& files, Results& results)
{
    checkOptions(options, files);
    const Candidate reference = readValues(options.reference, options);
    results.set("reference", options.reference);
    std::vector<Candidate> candidates;
    if (!options.frame.empty()) {
        Candidate frame = readValues(options.frame, options);
        requireUnit(frame, reference, options);
        cv::Mat_<float> enlarged;
        cv::resize(frame.image, enlarged, reference.image.size(), 0.0, 0.0, cv::INTER_CUBIC);
        candidates.push_back({"bicubic enlargement of " + options.frame, enlarged, frame.wereCounts});
    }
    candidates.push_back(readValues(options.image, options));
    requireUnit(candidates.back(), reference, options);
    requireSize(candidates.back(), reference.image, options);
    const cv::Rect region = regionOf(options, reference.image);
    std::ostringstream told;  // all or nothing
    for (Candidate& candidate : candidates) {
        try {
            const int margin = alignTo(reference.image, options, candidate, told);
            tell(candidate, reference.image, region, margin, told, results);
        } catch (const std::invalid_argument& error) {
            throw UsageError(candidate.name + ": can't be compared with " + options.reference + ": " +
                             error.what());
        }
    }
    if (!options.picture.empty()) {
        candidates.push_back(reference);
        writePicture(candidates, region, options);
    }
    results.lines() << told.str() << std::flush;
    if (!options.picture.empty())
        std::cout << "picture: " << options.picture << std::endl;
    results.print();
}

const char* const footer =
    R"(Images are PNG, PGM or TIFF with 16 bits, or TIFF or PFM with 32-bit floats. PSNR and SSIM take the reference's
range (its largest minus its smallest value) as full scale. With --region they score the region alone, by its own
range. Counts and floats are compared only if --scale or --offset tells what a count is.

Examples:
  vxkit compare result.tif burst/truth.tiff --margin 8
  vxkit compare result.tif burst/truth.tiff --bicubic burst/frame-0001.tiff --picture comparison.png --region 80,60,120x90)";

}  // namespace

void addCompareCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "compare", "Tells how far an image is from a reference: PSNR, SSIM and the largest difference");
    auto options = std::make_shared<CompareOptions>();
    command.add_option("IMAGE", options->image, "Image to judge")->required();
    command.add_option("REFERENCE", options->reference, "Image of the same size that counts as true")
        ->required();
    command.add_flag("--align", options->align, "Remove a global sub-pixel shift first");
    command.add_option("--margin", options->margin, "Pixels left out at each edge")
        ->check(CLI::Range(0, largestMargin).description(""))
        ->type_name("N");
    command
        .add_option(
            "--bicubic", options->frame,
            "Also judge this smaller image, enlarged to the reference's size by bicubic\ninterpolation")
        ->type_name("FRAME");
    command.add_option("--scale", options->scale, "Images with counts: value = count * SCALE + OFFSET")
        ->type_name("SCALE");
    command.add_option("--offset", options->offset, "Value of count 0")->type_name("OFFSET");
    command
        .add_option("--picture", options->picture,
                    "Write all images side by side, coloured over one range of values")
        ->type_name("FILE.png");
    addAreaOption(command, "--region", options->region,
                  "Part of the reference that is scored and shown (default: all)");
    command.add_option("--colour-map,--color-map", options->colourMap, "Colours of the picture")
        ->check(CLI::IsMember(vxsupport::colourMapNames()))
        ->capture_default_str();
    command.add_flag("--force", options->force, "Replace an existing picture");
    command.footer(footer);
    const auto results = addResultsOption(command);
    command.callback([options, results, &command] { compare(*options, *filesReadBy(command), *results); });
}

}  // namespace vxapp
