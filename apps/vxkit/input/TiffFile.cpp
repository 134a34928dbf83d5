// SPDX-License-Identifier: Apache-2.0
#include <tiffio.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/input/TiffPage.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

struct Page
{
    cv::Size size;
    SampleType samples;
};

template <typename T>
T fieldOf(TIFF* tiff, std::uint32_t tag, T otherwise)
{
    T value = otherwise;
    TIFFGetFieldDefaulted(tiff, tag, &value);
    return value;
}

std::optional<SampleType> samplesOf(int bits, int format)
{
    std::string name;
    switch (format) {
        case SAMPLEFORMAT_UINT:
        case SAMPLEFORMAT_VOID:
            name.push_back('u');
            break;
        case SAMPLEFORMAT_INT:
            name.push_back('s');
            break;
        case SAMPLEFORMAT_IEEEFP:
            name.push_back('f');
            break;
        default:
            break;
    }
    return sampleTypeNamed(name.append(std::to_string(bits)));
}

class TiffFile : public FrameFile
{
public:
    explicit TiffFile(std::string path);

    int frameCount() const override { return static_cast<int>(pages_.size()); }
    std::optional<FrameShape> shapeOfAll() const override { return std::nullopt; }
    SampleType sampleOf(const cv::Mat& /*frame*/) const override { return lastRead_; }
    cv::Mat read(int index) override;

private:
    Page pageOf(TIFF* tiff, const std::string& name) const;

    std::string path_;
    std::uint64_t fileBytes_ = 0;
    FrameTable pages_;
    SampleType lastRead_ = SampleType::u16;
};

TiffFile::TiffFile(std::string path) : path_(std::move(path)), pages_(tiffPages(path_))
{
    openForReading(path_, fileBytes_);
}

Page TiffFile::pageOf(TIFF* tiff, const std::string& name) const
{
    const auto width = fieldOf<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0);
    const auto height = fieldOf<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0);
    const auto bits = fieldOf<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    const auto channels = fieldOf<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    const auto format = fieldOf<std::uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    const auto shades = fieldOf<std::uint16_t>(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    requireFrameSize(name, width, height);
    const std::optional<SampleType> samples = samplesOf(bits, format);
    if (channels != 1 || !samples)
        throw UsageError(name + ": " + std::to_string(bits) + "-bit samples of TIFF format " +
                         std::to_string(format) + " in " + std::to_string(channels) +
                         (channels == 1 ? " channel" : " channels") + "; expected one channel of " +
                         sampleTypeNames());
    if (shades != PHOTOMETRIC_MINISBLACK)
        throw UsageError(name +
                         (shades == PHOTOMETRIC_MINISWHITE ? ": counts that fall with brightness"
                                                           : ": colours of a palette") +
                         " (TIFF photometric " + std::to_string(shades) +
                         "); expected counts that grow with it (1)");
    requirePlausibleSize(name, std::uint64_t{width} * height * factsOf(*samples).bytes, fileBytes_);
    return {{static_cast<int>(width), static_cast<int>(height)}, *samples};
}

bool readStrips(TIFF* tiff, char* bytes, std::size_t size)
{
    std::size_t done = 0;
    for (std::uint32_t strip = 0; strip < TIFFNumberOfStrips(tiff) && done < size; ++strip) {
        const auto left = static_cast<tmsize_t>(size - done);
        const tmsize_t got = TIFFReadEncodedStrip(tiff, strip, bytes + done, left);
        if (got <= 0)
            return false;
        done += static_cast<std::size_t>(got);
    }
    return done == size;
}

bool readTiles(TIFF* tiff, char* bytes, const Page& page, const std::string& name, std::uint64_t fileBytes)
{
    const auto tileWidth = static_cast<int>(fieldOf<std::uint32_t>(tiff, TIFFTAG_TILEWIDTH, 0));
    const auto tileHeight = static_cast<int>(fieldOf<std::uint32_t>(tiff, TIFFTAG_TILELENGTH, 0));
    const std::size_t pixel = factsOf(page.samples).bytes;
    const tmsize_t tileBytes = TIFFTileSize(tiff);
    if (tileWidth <= 0 || tileHeight <= 0 || tileBytes <= 0 ||
        static_cast<std::uint64_t>(tileBytes) !=
            std::uint64_t{pixel} * static_cast<unsigned>(tileWidth) * static_cast<unsigned>(tileHeight))
        return false;
    requirePlausibleSize(name, static_cast<std::uint64_t>(tileBytes), fileBytes);
    std::vector<char> tile(static_cast<std::size_t>(tileBytes));
    for (int top = 0; top < page.size.height; top += tileHeight)
        for (int left = 0; left < page.size.width; left += tileWidth) {
            const std::uint32_t number = TIFFComputeTile(tiff, static_cast<std::uint32_t>(left),
                                                         static_cast<std::uint32_t>(top), 0, 0);
            if (TIFFReadEncodedTile(tiff, number, tile.data(), tileBytes) != tileBytes)
                return false;
            const std::size_t columns = static_cast<std::size_t>(std::min(tileWidth, page.size.width - left));
            for (int y = 0; y < std::min(tileHeight, page.size.height - top); ++y) {
                const auto row = static_cast<std::size_t>(top) + static_cast<std::size_t>(y);
                const auto width = static_cast<std::size_t>(page.size.width);
                const auto tileRow = static_cast<std::size_t>(y) * static_cast<std::size_t>(tileWidth);
                std::copy_n(tile.data() + tileRow * pixel, columns * pixel,
                            bytes + (row * width + static_cast<std::size_t>(left)) * pixel);
            }
        }
    return true;
}

cv::Mat TiffFile::read(int index)
{
    const std::string name = frameCount() == 1 ? path_ : path_ + ", frame " + std::to_string(index);
    const TiffPage tiff(path_, pages_[index]);
    std::vector<char> bytes;
    if (tiff.isOpen()) {
        const Page page = pageOf(tiff.get(), name);
        bytes.resize(static_cast<std::size_t>(page.size.area()) * factsOf(page.samples).bytes);
        if (TIFFIsTiled(tiff.get()) != 0 ? readTiles(tiff.get(), bytes.data(), page, name, fileBytes_)
                                         : readStrips(tiff.get(), bytes.data(), bytes.size())) {
            lastRead_ = page.samples;
            return decodeSamples(bytes, page.size, page.samples, std::endian::native);
        }
    }
    throw UsageError(name + ": can't be decoded; expected an undamaged, complete image");
}

}  // namespace

std::unique_ptr<FrameFile> openTiffFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<TiffFile>(path);
}

}  // namespace vxapp
