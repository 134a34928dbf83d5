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
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/SafeWrite.h"
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
    double scale = 1.0;
    double offset = 0.0;
    int margin = 0;
    bool align = false;
    std::string picture;
    std::vector<int> region;  // x, y, width, height; empty for all
    std::string colourMap = vxsupport::colourMapNames().front();
    bool force = false;
};

struct Candidate
{
    std::string name;
    cv::Mat_<float> image;
};

cv::Mat_<float> readValues(const std::string& path, const CompareOptions& options)
{
    const std::unique_ptr<FrameFile> file = openImageFile(path);
    if (file->frameCount() != 1)
        throw UsageError(path + ": holds " + std::to_string(file->frameCount()) + " images; expected one");
    const cv::Mat image = file->read(0);
    requireMoreThanBytes(path, file->sampleOf(image));
    cv::Mat_<float> values;
    if (image.type() == CV_32FC1)
        values = image;
    else
        image.convertTo(values, CV_32F, options.scale, options.offset);
    const auto bad =
        std::count_if(values.begin(), values.end(), [](float value) { return !std::isfinite(value); });
    if (bad > 0)
        throw UsageError(path + ": " + std::to_string(bad) +
                         " pixels are infinite or no numbers; expected a finite value in each");
    return values;
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

// The candidate on the reference's grid, and the margin within which both may be compared.
int alignTo(const cv::Mat_<float>& reference, const CompareOptions& options, Candidate& candidate,
            const Results& results)
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
    results.lines() << candidate.name << ": removed a global shift of (" << std::fixed << std::setprecision(3)
                    << shift.x << ", " << shift.y << ") pixels\n";
    return std::max(options.margin, vxsupport::spoiledMargin(shift));
}

void tell(const Candidate& candidate, const cv::Mat_<float>& reference, int margin, Results& results)
{
    const double psnr = vxsupport::psnr(candidate.image, reference, margin);
    const double ssim = vxsupport::ssim(candidate.image, reference, margin);
    const double largest = vxsupport::largestDifference(candidate.image, reference, margin);
    results.lines() << candidate.name << ": PSNR " << std::fixed << std::setprecision(2) << psnr
                    << " dB, SSIM " << std::setprecision(4) << ssim << ", largest difference "
                    << std::setprecision(3) << largest << std::endl;
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
    if (options.region.empty())
        return whole;
    const cv::Rect region(options.region[0], options.region[1], options.region[2], options.region[3]);
    if (region.empty() || (region & whole) != region)
        throw UsageError("--region: expected X,Y,WIDTH,HEIGHT inside the " + sizeText(reference) +
                         " pixels of " + options.reference);
    return region;
}

void writePicture(const std::vector<Candidate>& candidates, const cv::Rect& region,
                  const CompareOptions& options)
{
    constexpr int wantedHeight = 360;
    const int times = std::max(1, wantedHeight / region.height);
    const ValueRange range = vxsupport::visibleRange(candidates.back().image(region));
    std::vector<vxsupport::Panel> panels;
    for (const Candidate& candidate : candidates) {
        const cv::Mat_<std::uint8_t> levels = vxsupport::greyLevels(candidate.image(region), range);
        panels.push_back({vxsupport::magnified(vxsupport::falseColours(levels, options.colourMap), times),
                          candidate.name});
    }
    const cv::Mat_<cv::Vec3b> picture = vxsupport::sideBySide(panels);
    writeSafely(options.picture, options.force, [&](const std::filesystem::path& temporary) {
        return cv::imwrite(temporary.string(), picture);
    });
    std::cout << "picture: " << options.picture << std::endl;
}

void checkOptions(const CompareOptions& options)
{
    if (!std::isfinite(options.scale) || options.scale == 0.0)
        throw UsageError("--scale: expected a finite number other than 0");
    if (!std::isfinite(options.offset))
        throw UsageError("--offset: expected a finite number");
    if (options.picture.empty())
        return;
    if (!isPngName(options.picture))
        throw UsageError(options.picture + ": expected a picture name that ends in .png");
    requireWritable(options.picture, options.force);
}

void compare(const CompareOptions& options, Results& results)
{
    checkOptions(options);
    const cv::Mat_<float> reference = readValues(options.reference, options);
    results.set("reference", options.reference);
    std::vector<Candidate> candidates;
    if (!options.frame.empty()) {
        cv::Mat_<float> enlarged;
        cv::resize(readValues(options.frame, options), enlarged, reference.size(), 0.0, 0.0, cv::INTER_CUBIC);
        candidates.push_back({"bicubic enlargement of " + options.frame, enlarged});
    }
    candidates.push_back({options.image, readValues(options.image, options)});
    requireSize(candidates.back(), reference, options);
    const cv::Rect region = regionOf(options, reference);
    for (Candidate& candidate : candidates) {
        const int margin = alignTo(reference, options, candidate, results);
        try {
            tell(candidate, reference, margin, results);
        } catch (const std::invalid_argument& error) {
            throw UsageError(candidate.name + ": can't be compared with " + options.reference + ": " +
                             error.what());
        }
    }
    if (!options.picture.empty()) {
        candidates.push_back({options.reference, reference});
        writePicture(candidates, region, options);
    }
    results.print();
}

const char* const footer =
    R"(Images are PNG, PGM or TIFF with 16 bits, or TIFF or PFM with 32-bit floats. PSNR and SSIM take the reference's
range (its largest minus its smallest value) as full scale.

Examples:
  vxkit compare result.tif burst/truth.tiff --margin 8
  vxkit compare result.tif burst/truth.tiff --bicubic burst/frame-0001.tiff --picture comparison.png --region 80,60,120,90)";

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
        ->check(CLI::NonNegativeNumber)
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
    command
        .add_option("--region", options->region,
                    "Part of the reference that the picture shows (default: all)")
        ->delimiter(',')
        ->expected(4)
        ->type_name("X,Y,WIDTH,HEIGHT");
    command.add_option("--colour-map,--color-map", options->colourMap, "Colours of the picture")
        ->check(CLI::IsMember(vxsupport::colourMapNames()))
        ->capture_default_str();
    command.add_flag("--force", options->force, "Replace an existing picture");
    command.footer(footer);
    const auto results = addResultsOption(command);
    command.callback([options, results] { compare(*options, *results); });
}

}  // namespace vxapp
