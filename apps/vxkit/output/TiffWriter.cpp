// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/TiffWriter.h"

#include <cerrno>
#include <cstdint>
#include <string>

#include "apps/files/Failure.h"
#include "apps/vxkit/formats/TiffHandles.h"

namespace vxapp {

namespace {

// Links in a classic TIFF file have 32 bits; a directory takes far less than what is added to each page.
bool needsBigTiff(const SequenceShape& shape)
{
    constexpr std::uint64_t directoryBytes = 1024;
    const std::uint64_t pageBytes =
        factsOf(shape.samples).bytes * static_cast<std::uint64_t>(shape.size.area()) + directoryBytes;
    return pageBytes * static_cast<std::uint64_t>(shape.frames) > UINT32_MAX;
}

int formatOf(SampleType samples)
{
    switch (samples) {
        case SampleType::s16:
        case SampleType::s32:
            return SAMPLEFORMAT_INT;
        case SampleType::f32:
        case SampleType::f64:
            return SAMPLEFORMAT_IEEEFP;
        default:
            return SAMPLEFORMAT_UINT;
    }
}

}  // namespace

struct TiffWriter::Handle
{
    TiffHandle tiff;
};

TiffWriter::TiffWriter(const vxfiles::OutputFile& file, const SequenceShape& shape)
    : path_(file.path()), shape_(shape), handle_(std::make_unique<Handle>())
{
    errno = 0;
    const auto options = quietTiffOptions();
    handle_->tiff.reset(
        TIFFOpenExt(file.temporaryPath().c_str(), needsBigTiff(shape_) ? "w8" : "w", options.get()));
    require(handle_->tiff != nullptr);
}

TiffWriter::~TiffWriter() = default;

void TiffWriter::add(const cv::Mat& frame)
{
    errno = 0;
    TIFF* tiff = handle_->tiff.get();
    const auto rows = static_cast<std::uint32_t>(frame.rows);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(frame.cols));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, rows);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<int>(8 * factsOf(shape_.samples).bytes));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, formatOf(shape_.samples));
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows);
    std::string samples = encodeSamples(frame, shape_.samples, std::endian::native);
    const auto bytes = static_cast<tmsize_t>(samples.size());
    require(TIFFWriteEncodedStrip(tiff, 0, samples.data(), bytes) == bytes);
    require(TIFFWriteDirectory(tiff) == 1);
}

void TiffWriter::finish()
{
    errno = 0;
    require(TIFFFlush(handle_->tiff.get()) == 1);
    handle_->tiff.reset();
}

void TiffWriter::require(bool isDone) const
{
    if (!isDone)
        throw vxfiles::writeFailure(path_, errno);
}

}  // namespace vxapp
