// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/Output.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/formats/PngChunks.h"
#include "apps/vxkit/output/TiffWriter.h"
#include "apps/vxkit/terminal/Failure.h"
#include "core/io/ImageIO.h"

namespace vxapp {

namespace {

constexpr double largestCount = 65535.0;
constexpr double absoluteZero = -273.15;
constexpr std::size_t leastDigits = 4;

std::vector<float> finiteValues(const cv::Mat_<float>& image)
{
    std::vector<float> values;
    values.reserve(image.total());
    for (const float value : image)
        if (std::isfinite(value))
            values.push_back(value);
    return values;
}

std::string bigEndian(std::uint32_t number)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<char>(static_cast<unsigned char>(number >> shift)));
    return bytes;
}

// The image library can't write texts into a PNG file; a chunk of type tEXt stands behind the header chunk.
void insertText(std::vector<unsigned char>& png, const std::string& keyword, const std::string& text)
{
    constexpr std::ptrdiff_t headerEnd = 8 + 25;  // signature and IHDR chunk
    std::string body = "tEXt" + keyword;
    body.push_back('\0');
    body += text;
    const auto length = static_cast<std::uint32_t>(body.size() - 4);
    const std::string chunk = bigEndian(length) + body + bigEndian(crcOfChunk(body));
    png.insert(png.begin() + headerEnd, chunk.begin(), chunk.end());
}

void saveBytes(const std::filesystem::path& path, const std::vector<unsigned char>& bytes, bool force)
{
    vxfiles::writeFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()}, force);
}

}  // namespace

std::vector<unsigned char> encodePng(const std::filesystem::path& path, const cv::Mat& image,
                                     const std::vector<int>& settings)
{
    std::vector<unsigned char> bytes;
    try {
        if (cv::imencode(".png", image, bytes, settings))
            return bytes;
    } catch (const cv::Exception&) {  // told below
    }
    throw WriteError(path.string() + " can't be written: the image could not be encoded");
}

std::string scaleText(const CountScale& scale)
{
    std::ostringstream text;
    text.precision(9);
    text << "value = count * " << scale.scale;
    if (scale.offset != 0.0)
        text << (scale.offset < 0.0 ? " - " : " + ") << std::abs(scale.offset);
    return text.str();
}

CountScale scaleFor(const cv::Mat_<float>& image, Unit unit)
{
    const std::vector<float> values = finiteValues(image);
    if (values.empty())
        return {1.0, 0.0};
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    const double low = *lowest;
    const double high = *highest;

    const double offset = unit == Unit::degrees ? absoluteZero : 0.0;
    for (const double scale : unit == Unit::degrees ? std::array{0.01, 0.1} : std::array{0.25, 1.0})
        if (low >= offset && high <= offset + scale * largestCount)
            return {scale, offset};
    return {high > low ? (high - low) / largestCount : 1.0, low};
}

std::string lowerEnding(const std::filesystem::path& path)
{
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ending;
}

std::string withNumber(const std::filesystem::path& path, int number, int largest)
{
    const std::size_t digits = std::max(leastDigits, std::to_string(largest).size());
    std::string text = std::to_string(number);
    text.insert(0, digits - text.size(), '0');
    const std::string name = path.stem().string() + "-" + text + path.extension().string();
    return (path.parent_path() / name).string();
}

void saveFloats(const std::filesystem::path& path, const cv::Mat_<float>& image, bool force)
{
    formatOf(path)->saveFloats(path, image, force);
}

void saveTiff(const std::filesystem::path& path, const cv::Mat_<float>& image, bool force)
{
    vxfiles::OutputFile file(path, force);
    TiffWriter tiff(file, {image.size(), 1, SampleType::f32});
    tiff.add(image);
    tiff.finish();
    file.commit();
}

void savePfm(const std::filesystem::path& path, const cv::Mat_<float>& image, bool force)
{
    using halvor::vx::ImageIO;
    vxfiles::OutputFile file(path, force);
    if (!ImageIO::save(file.temporaryPath().string(), image, ImageIO::pfm))
        throw vxfiles::writeFailure(path, errno);
    file.commit();
}

void saveCounts(const std::filesystem::path& path, const cv::Mat_<float>& image, const CountScale& scale,
                bool force)
{
    formatOf(path)->saveCounts(path, image, scale, force);
}

void savePng(const std::filesystem::path& path, const cv::Mat_<float>& image, const CountScale& scale,
             bool force)
{
    std::vector<unsigned char> png = encodePng(path, vxsupport::toCounts(image, scale));
    insertText(png, "Comment", scaleText(scale));
    saveBytes(path, png, force);
}

void savePicture(const std::filesystem::path& path, const cv::Mat& picture, bool force,
                 const std::vector<int>& settings)
{
    saveBytes(path, encodePng(path, picture, settings), force);
}

void savePreview(const std::filesystem::path& path, const cv::Mat_<float>& image, const ValueRange& range,
                 const std::string& colourMap, bool force)
{
    cv::Mat picture = vxsupport::greyLevels(image, range);
    try {
        if (colourMap != "gray")
            picture = vxsupport::falseColours(picture, colourMap);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
    savePicture(path, picture, force);
}

}  // namespace vxapp
