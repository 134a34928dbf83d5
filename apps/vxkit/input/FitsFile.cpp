// SPDX-License-Identifier: Apache-2.0
#include <fitsio.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

// The first image of two or three dimensions in a FITS file. Rows are taken in the file's order; programs for
// astronomy show the first one at the bottom.
namespace vxapp {

namespace {

struct CloseFits
{
    void operator()(fitsfile* file) const
    {
        int status = 0;
        fits_close_file(file, &status);
    }
};
using OpenFits = std::unique_ptr<fitsfile, CloseFits>;

struct Kind
{
    SampleType samples;
    int memory;  // cfitsio's type of the samples in a frame
};

std::optional<Kind> kindOf(int imageType)
{
    switch (imageType) {
        case BYTE_IMG:
            return Kind{SampleType::u8, TBYTE};
        case SHORT_IMG:
            return Kind{SampleType::s16, TSHORT};
        case USHORT_IMG:
            return Kind{SampleType::u16, TUSHORT};
        case LONG_IMG:
            return Kind{SampleType::s32, TINT};
        case ULONG_IMG:
            return Kind{SampleType::u32, TDOUBLE};
        case FLOAT_IMG:
            return Kind{SampleType::f32, TFLOAT};
        case DOUBLE_IMG:
            return Kind{SampleType::f64, TDOUBLE};
        default:
            return std::nullopt;
    }
}

class FitsFile : public FrameFile
{
public:
    explicit FitsFile(std::string path);

    int frameCount() const override { return frames_; }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{size_, factsOf(kind_.samples).storage, kind_.samples};
    }
    cv::Mat read(int index) override;

private:
    OpenFits open() const;
    bool takeImage(fitsfile* file);

    std::string path_;
    int unit_ = 0;  // of the image within the file
    Kind kind_{};
    cv::Size size_;
    int frames_ = 0;
    bool hasBlanks_ = false;
};

FitsFile::FitsFile(std::string path) : path_(std::move(path))
{
    const OpenFits file = open();
    int units = 0;
    int status = 0;
    fits_get_num_hdus(file.get(), &units, &status);
    for (unit_ = 1; unit_ <= units && status == 0; ++unit_)
        if (fits_movabs_hdu(file.get(), unit_, nullptr, &status) == 0 && takeImage(file.get()))
            return;
    throw UsageError(path_ + ": holds no image that can be read; expected one of two or three dimensions");
}

// The name is taken as it stands, not as one of cfitsio's filters.
OpenFits FitsFile::open() const
{
    fitsfile* file = nullptr;
    int status = 0;
    fits_open_diskfile(&file, path_.c_str(), READONLY, &status);
    if (status != 0)
        throw UsageError(path_ + ": can't be decoded; expected an undamaged, complete FITS file");
    return OpenFits(file);
}

bool FitsFile::takeImage(fitsfile* file)
{
    int status = 0;
    int type = 0;
    int dimensions = 0;
    int unitType = 0;
    std::array<LONGLONG, 4> lengths{1, 1, 1, 1};
    fits_get_hdu_type(file, &unitType, &status);
    if (status != 0 || unitType != IMAGE_HDU)
        return false;
    fits_get_img_equivtype(file, &type, &status);
    fits_get_img_dim(file, &dimensions, &status);
    fits_get_img_sizell(file, static_cast<int>(lengths.size()), lengths.data(), &status);
    if (status != 0 || dimensions < 2 || dimensions > 4 || lengths[3] != 1)
        return false;
    long blank = 0;
    int blankStatus = 0;
    if (fits_read_key(file, TLONG, "BLANK", &blank, nullptr, &blankStatus) == 0 && type > 0)
        hasBlanks_ = true;
    if (hasBlanks_)
        type = DOUBLE_IMG;  // so that pixels without a value become no numbers
    const std::optional<Kind> kind = kindOf(type);
    if (!kind)
        throw UsageError(path_ + ": holds samples of FITS type " + std::to_string(type) + "; expected " +
                         sampleTypeNames());
    kind_ = *kind;
    requireFrameSize(path_, lengths[0], lengths[1]);
    size_ = {static_cast<int>(lengths[0]), static_cast<int>(lengths[1])};
    std::uint64_t fileBytes = 0;
    openForReading(path_, fileBytes);
    requirePlausibleSize(path_, static_cast<std::uint64_t>(size_.area()) * factsOf(kind_.samples).bytes,
                         fileBytes);
    frames_ = checkedFrameCount(path_, static_cast<std::uint64_t>(std::max(lengths[2], LONGLONG{0})));
    return true;
}

cv::Mat FitsFile::read(int index)
{
    const OpenFits file = open();
    int status = 0;
    cv::Mat frame(size_, factsOf(kind_.samples).storage);
    double noNumber = std::numeric_limits<double>::quiet_NaN();
    fits_movabs_hdu(file.get(), unit_, nullptr, &status);
    fits_read_img(file.get(), kind_.memory, 1 + static_cast<LONGLONG>(index) * size_.area(), size_.area(),
                  hasBlanks_ ? &noNumber : nullptr, frame.ptr(), nullptr, &status);
    if (status != 0)
        throw UsageError(path_ + ": frame " + std::to_string(index) +
                         " can't be decoded; expected an undamaged, complete FITS file");
    return frame;
}

}  // namespace

std::unique_ptr<FrameFile> openFitsFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<FitsFile>(path);
}

}  // namespace vxapp
