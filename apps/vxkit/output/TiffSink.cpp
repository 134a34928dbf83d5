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
        std::uint64_t{2} * static_cast<std::uint64_t>(shape.size.area()) + directoryBytes;
    return pageBytes * static_cast<std::uint64_t>(shape.frames) > UINT32_MAX;
}

struct CloseTiff
{
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

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

    void add(const cv::Mat_<std::uint16_t>& frame) override
    {
        const QuietStandardError quiet;
        TIFF* tiff = tiff_.get();
        const auto rows = static_cast<std::uint32_t>(frame.rows);
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(frame.cols));
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, rows);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows);
        cv::Mat_<std::uint16_t> gapless = frame.isContinuous() ? frame : frame.clone();
        const auto bytes = static_cast<tmsize_t>(gapless.total() * gapless.elemSize());
        require(TIFFWriteEncodedStrip(tiff, 0, gapless.data, bytes) == bytes);
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
        return file_.path().string() + " (" + framesText(shape_) + ", 16 bits)";
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
