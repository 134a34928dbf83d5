// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace halvor::vx {

/// Image of an object that is copied by value: a copy has pixels of its own.
template <typename Pixel>
class OwnedImage : public cv::Mat_<Pixel>
{
public:
    using cv::Mat_<Pixel>::Mat_;
    OwnedImage() = default;
    /// Copies the pixels.
    OwnedImage(const OwnedImage& other) : cv::Mat_<Pixel>(other.clone()) {}
    OwnedImage(OwnedImage&&) noexcept = default;
    /// Takes a copy of the other's pixels, in memory of its own.
    OwnedImage& operator=(const OwnedImage& other)
    {
        if (this != &other)
            cv::Mat_<Pixel>::operator=(other.clone());
        return *this;
    }
    OwnedImage& operator=(OwnedImage&&) noexcept = default;
    ~OwnedImage() = default;
};

}  // namespace halvor::vx
