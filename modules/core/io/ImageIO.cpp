// SPDX-License-Identifier: Apache-2.0
#include "core/io/ImageIO.h"

#include <bit>
#include <cstdint>
#include <vector>

#include "core/base/Exception.h"

namespace halvor::vx {

namespace {

void requireKnownFormat(int format)
{
    if (format != ImageIO::pfm)
        throw Exception("unknown image format " + std::to_string(format), VX_WHERE("halvor::vx::ImageIO"));
}

void appendLittleEndian(std::vector<char>& bytes, float value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>(static_cast<unsigned char>(bits >> shift)));
}

void writePfm(std::ostream& out, const cv::Mat_<float>& image)
{
    // A negative scale says little-endian. The stream itself would group digits as the host's locale does.
    out << "Pf\n" + std::to_string(image.cols) + ' ' + std::to_string(image.rows) + "\n-1.0\n";
    std::vector<char> bytes;
    bytes.reserve(image.total() * sizeof(float));
    for (int y = image.rows - 1; y >= 0; --y)
        for (int x = 0; x < image.cols; ++x)
            appendLittleEndian(bytes, image(y, x));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.flush();
}

}  // namespace

ImageIO::ImageIO(int format)
{
    requireKnownFormat(format);
}

bool ImageIO::open(const std::string& path)
{
    close();
    auto stream = std::make_shared<std::ofstream>(path, std::ios::binary | std::ios::trunc);
    if (!stream->is_open())
        return false;
    stream_ = std::move(stream);
    return true;
}

bool ImageIO::isOpen() const
{
    return stream_ && stream_->is_open();
}

void ImageIO::close()
{
    if (stream_)
        stream_->close();
    stream_.reset();
}

ImageIO& ImageIO::operator<<(const cv::Mat_<float>& frame)
{
    if (isOpen())
        writePfm(*stream_, frame);
    return *this;
}

bool ImageIO::save(const std::string& path, const cv::Mat_<float>& image, int format)
{
    requireKnownFormat(format);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.is_open())
        return false;
    writePfm(file, image);
    return file.good();
}

}  // namespace halvor::vx
