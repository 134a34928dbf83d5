// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <hdf5.h>

#include <opencv2/core/mat.hpp>
#include <utility>

namespace vxapp {

/// Owns an object of the HDF5 library.
class Hdf5Handle
{
public:
    using Close = herr_t (*)(hid_t);

    Hdf5Handle() = default;
    /// @param id     negative if there is none
    /// @param close  the library's function for objects of this kind
    Hdf5Handle(hid_t id, Close close) : id_(id), close_(close) {}
    ~Hdf5Handle() { reset(); }
    Hdf5Handle(Hdf5Handle&& other) noexcept
        : id_(std::exchange(other.id_, -1)), close_(std::exchange(other.close_, nullptr))
    {}
    Hdf5Handle& operator=(Hdf5Handle&& other) noexcept
    {
        std::swap(id_, other.id_);
        std::swap(close_, other.close_);
        return *this;
    }

    explicit operator bool() const { return id_ >= 0; }
    hid_t get() const { return id_; }
    /// @return whether the library closed it, which may write what it still held
    bool reset() { return id_ < 0 || close_(std::exchange(id_, -1)) >= 0; }

private:
    hid_t id_ = -1;
    Close close_ = nullptr;
};

/// Keeps the library's own error reports off the terminal while it lives. Made before the library's first call, it also
/// keeps it from telling, when the program ends, what damaged files left open inside of it.
class QuietHdf5
{
public:
    QuietHdf5()
    {
        [[maybe_unused]] static const herr_t once = H5dont_atexit();
        H5Eget_auto2(H5E_DEFAULT, &report_, &data_);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    ~QuietHdf5() { H5Eset_auto2(H5E_DEFAULT, report_, data_); }
    QuietHdf5(const QuietHdf5&) = delete;
    QuietHdf5& operator=(const QuietHdf5&) = delete;

private:
    H5E_auto2_t report_ = nullptr;
    void* data_ = nullptr;
};

/// The library's type of samples in a frame of an OpenCV depth.
inline hid_t hdf5TypeOf(int depth)
{
    switch (depth) {
        case CV_8U:
            return H5T_NATIVE_UINT8;
        case CV_16U:
            return H5T_NATIVE_UINT16;
        case CV_16S:
            return H5T_NATIVE_INT16;
        case CV_32S:
            return H5T_NATIVE_INT32;
        case CV_32F:
            return H5T_NATIVE_FLOAT;
        default:
            return H5T_NATIVE_DOUBLE;
    }
}

}  // namespace vxapp
