// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cerrno>

#include "apps/vxkit/formats/Hdf5Handles.h"
#include "apps/vxkit/output/ForeignSink.h"

namespace vxapp {

namespace {

constexpr const char* dataSet = "frames";

hid_t storedAs(SampleType samples)
{
    switch (samples) {
        case SampleType::u8:
            return H5T_STD_U8LE;
        case SampleType::u16:
            return H5T_STD_U16LE;
        case SampleType::s16:
            return H5T_STD_I16LE;
        case SampleType::u32:
            return H5T_STD_U32LE;
        case SampleType::s32:
            return H5T_STD_I32LE;
        case SampleType::f32:
            return H5T_IEEE_F32LE;
        default:
            return H5T_IEEE_F64LE;
    }
}

class Hdf5Sink : public ForeignSink
{
public:
    explicit Hdf5Sink(const SinkRequest& request) : ForeignSink(request)
    {
        const QuietHdf5 quiet;
        errno = 0;
        const std::array<hsize_t, 3> lengths{static_cast<hsize_t>(shape_.frames),
                                             static_cast<hsize_t>(shape_.size.height),
                                             static_cast<hsize_t>(shape_.size.width)};
        hdf5_ = {H5Fcreate(file_.temporaryPath().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose};
        require(static_cast<bool>(hdf5_));
        space_ = {H5Screate_simple(3, lengths.data(), nullptr), H5Sclose};
        // The same frames make the same bytes at any time of day.
        const Hdf5Handle plan(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
        require(H5Pset_obj_track_times(plan.get(), false) >= 0);
        set_ = {H5Dcreate2(hdf5_.get(), dataSet, storedAs(shape_.samples), space_.get(), H5P_DEFAULT,
                           plan.get(), H5P_DEFAULT),
                H5Dclose};
        require(static_cast<bool>(set_));
    }

    void add(const cv::Mat& frame) override
    {
        const QuietHdf5 quiet;
        errno = 0;
        const cv::Mat gapless = frame.isContinuous() ? frame : frame.clone();
        const std::array<hsize_t, 3> first{added_++, 0, 0};
        const std::array<hsize_t, 3> count{1, static_cast<hsize_t>(frame.rows),
                                           static_cast<hsize_t>(frame.cols)};
        const Hdf5Handle memory(H5Screate_simple(3, count.data(), nullptr), H5Sclose);
        H5Sselect_hyperslab(space_.get(), H5S_SELECT_SET, first.data(), nullptr, count.data(), nullptr);
        require(H5Dwrite(set_.get(), hdf5TypeOf(frame.depth()), memory.get(), space_.get(), H5P_DEFAULT,
                         gapless.ptr()) >= 0);
    }

    std::string finish() override
    {
        {
            const QuietHdf5 quiet;
            errno = 0;
            require(set_.reset() && space_.reset() && hdf5_.reset());
        }
        return commit(std::string(" in /") + dataSet);
    }

private:
    Hdf5Handle hdf5_;
    Hdf5Handle space_;
    Hdf5Handle set_;
    hsize_t added_ = 0;
};

}  // namespace

std::unique_ptr<FrameSink> openHdf5Sink(const SinkRequest& request)
{
    return std::make_unique<Hdf5Sink>(request);
}

}  // namespace vxapp
