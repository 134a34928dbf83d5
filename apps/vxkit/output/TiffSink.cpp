// SPDX-License-Identifier: Apache-2.0
#include <tiffio.h>

#include <cstdint>
#include <memory>

#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

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

struct CloseTiff
{
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

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

// The image library would hold all pages in memory until the last one is there.
class TiffSink : public FrameSink
{
public:
    explicit TiffSink(const SinkRequest& request)
        : shape_(request.shape), file_(request.options.path, request.options.force)
    {
        const QuietStandardError quiet;
        tiff_.reset(TIFFOpen(file_.temporaryPath().c_str(), needsBigTiff(shape_) ? "w8" : "w"));
        require(tiff_ != nullptr);
    }

    void add(const cv::Mat& frame) override
    {
        const QuietStandardError quiet;
        TIFF* tiff = tiff_.get();
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

    std::string finish() override
    {
        {
            const QuietStandardError quiet;
            require(TIFFFlush(tiff_.get()) == 1);
            tiff_.reset();
        }
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", " +
               std::to_string(8 * factsOf(shape_.samples).bytes) +
               (isFloatType(shape_.samples) ? "-bit floats)" : " bits)");
    }

private:
    void require(bool isDone) const
    {
        if (!isDone)
            throw UsageError(file_.path().string() + " can't be written");
    }

    SequenceShape shape_;
    SafeFile file_;
    std::unique_ptr<TIFF, CloseTiff> tiff_;
};

}  // namespace

std::unique_ptr<FrameSink> openTiffSink(const SinkRequest& request)
{
    return std::make_unique<TiffSink>(request);
}

}  // namespace vxapp
