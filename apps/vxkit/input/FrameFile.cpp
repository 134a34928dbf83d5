// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/FrameFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <utility>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

// Pages that are decoded together, since the image library walks the directories from the start at each call.
constexpr int pagesPerBlock = 32;

class OpenCvFile : public FrameFile
{
public:
    OpenCvFile(std::string path, int pages) : path_(std::move(path)), pages_(pages) {}

    int frameCount() const override { return pages_; }
    std::optional<FrameShape> shapeOfAll() const override { return std::nullopt; }
    cv::Mat read(int index) override;

private:
    void load(int first);

    std::string path_;
    int pages_;
    int blockStart_ = 0;
    std::vector<cv::Mat> block_;
};

void OpenCvFile::load(int first)
{
    const int count = std::min(pagesPerBlock, pages_ - first);
    block_.clear();
    blockStart_ = first;
    const QuietStandardError quiet;
    try {
        if (pages_ == 1)
            block_.push_back(cv::imread(path_, cv::IMREAD_UNCHANGED));
        else
            cv::imreadmulti(path_, block_, first, count, cv::IMREAD_UNCHANGED);
    } catch (const cv::Exception&) {
        block_.clear();
    }
}

cv::Mat OpenCvFile::read(int index)
{
    const auto inBlock = [&] {
        return index >= blockStart_ && index < blockStart_ + static_cast<int>(block_.size());
    };
    if (!inBlock())
        load(index);
    const std::string name = pages_ == 1 ? path_ : path_ + ", frame " + std::to_string(index);
    if (!inBlock() || block_[static_cast<std::size_t>(index - blockStart_)].empty())
        throw UsageError(name + ": can't be decoded; expected an undamaged, complete image");
    cv::Mat frame = block_[static_cast<std::size_t>(index - blockStart_)];
    requireFrameType(name, frame.type());
    return frame;
}

std::string depthText(int depth)
{
    switch (depth) {
        case CV_8U:
        case CV_8S:
            return "8-bit";
        case CV_16S:
            return "signed 16-bit";
        case CV_32S:
            return "32-bit integer";
        case CV_64F:
            return "64-bit";
        case CV_32F:
            return "32-bit float";
        default:
            return "16-bit";
    }
}

}  // namespace

std::ifstream openForReading(const std::string& path, std::uint64_t& size)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status))
        throw UsageError(path + ": no such file");
    if (!fs::is_regular_file(status))
        throw UsageError(path + ": not a file; expected the name of an image or recording");
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        throw UsageError(path + ": can't be read (" + std::strerror(errno) + ")");
    size = fs::file_size(path, error);
    if (error || size == 0)
        throw UsageError(path + ": empty; expected an image or recording");
    return file;
}

bool readBytes(std::ifstream& file, std::uint64_t place, char* bytes, std::size_t count)
{
    file.clear();
    file.seekg(static_cast<std::streamoff>(place));
    file.read(bytes, static_cast<std::streamsize>(count));
    return file.good();
}

void requireFrameType(const std::string& name, int type)
{
    if (type == CV_16UC1 || type == CV_32FC1)
        return;
    const int channels = CV_MAT_CN(type);
    throw UsageError(name + ": " + depthText(CV_MAT_DEPTH(type)) + " image with " + std::to_string(channels) +
                     (channels == 1 ? " channel" : " channels") +
                     "; expected one channel of unsigned 16-bit counts or 32-bit floats");
}

std::unique_ptr<FrameFile> openTiffFile(const std::string& path)
{
    return std::make_unique<OpenCvFile>(path, tiffPageCount(path));
}

std::unique_ptr<FrameFile> openPictureFile(const std::string& path)
{
    return std::make_unique<OpenCvFile>(path, 1);
}

std::unique_ptr<FrameFile> openImageFile(const std::string& path)
{
    std::uint64_t bytes = 0;
    std::ifstream file = openForReading(path, bytes);
    std::array<char, 8> start{};
    const std::size_t length = std::min<std::uint64_t>(start.size(), bytes);
    if (!readBytes(file, 0, start.data(), length))
        throw UsageError(path + ": can't be read");
    if (const FileFormat* format = formatStartingWith({start.data(), length}))
        return format->open(path);
    throw UsageError(path +
                     ": not a PNG, TIFF, PGM or PFM image; a headerless recording needs --size WIDTHxHEIGHT");
}

}  // namespace vxapp
