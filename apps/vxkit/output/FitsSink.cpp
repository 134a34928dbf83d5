// SPDX-License-Identifier: Apache-2.0
#include <fitsio.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "apps/vxkit/output/ForeignSink.h"

namespace vxapp {

namespace {

struct Kind
{
    int image;   // in the file
    int memory;  // in a frame
};

Kind kindOf(SampleType samples)
{
    switch (samples) {
        case SampleType::u8:
            return {BYTE_IMG, TBYTE};
        case SampleType::u16:
            return {USHORT_IMG, TUSHORT};
        case SampleType::s16:
            return {SHORT_IMG, TSHORT};
        case SampleType::u32:
            return {ULONG_IMG, TDOUBLE};
        case SampleType::s32:
            return {LONG_IMG, TINT};
        case SampleType::f32:
            return {FLOAT_IMG, TFLOAT};
        default:
            return {DOUBLE_IMG, TDOUBLE};
    }
}

struct CloseFits
{
    void operator()(fitsfile* file) const
    {
        int status = 0;
        fits_close_file(file, &status);
    }
};

class FitsSink : public ForeignSink
{
public:
    explicit FitsSink(const SinkRequest& request) : ForeignSink(request)
    {
        errno = 0;
        int status = 0;
        fitsfile* fits = nullptr;
        fits_create_diskfile(&fits, file_.temporaryPath().c_str(), &status);
        fits_.reset(fits);
        std::array<LONGLONG, 3> lengths{shape_.size.width, shape_.size.height, shape_.frames};
        fits_create_imgll(fits_.get(), kindOf(shape_.samples).image, shape_.frames > 1 ? 3 : 2,
                          lengths.data(), &status);
        require(status == 0);
    }

    void add(const cv::Mat& frame) override
    {
        errno = 0;
        int status = 0;
        cv::Mat gapless = frame.isContinuous() ? frame : frame.clone();
        const LONGLONG first = 1 + added_++ * static_cast<LONGLONG>(frame.total());
        fits_write_img(fits_.get(), kindOf(shape_.samples).memory, first,
                       static_cast<LONGLONG>(frame.total()), gapless.ptr(), &status);
        require(status == 0);
    }

    std::string finish() override
    {
        errno = 0;
        int status = 0;
        LONGLONG end = 0;
        fits_flush_file(fits_.get(), &status);
        fits_get_hduaddrll(fits_.get(), nullptr, nullptr, &end, &status);
        fits_close_file(fits_.release(), &status);
        // The library does not look whether the last bytes found room.
        std::error_code error;
        const std::uintmax_t size = std::filesystem::file_size(file_.temporaryPath(), error);
        require(status == 0 && !error && size == static_cast<std::uintmax_t>(end));
        return commit();
    }

private:
    std::unique_ptr<fitsfile, CloseFits> fits_;
    LONGLONG added_ = 0;
};

}  // namespace

std::unique_ptr<FrameSink> openFitsSink(const SinkRequest& request)
{
    return std::make_unique<FitsSink>(request);
}

}  // namespace vxapp
