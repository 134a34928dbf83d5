// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "enhancement/superresolution/engine/SlidingWindow.h"

namespace halvor::vx {

/// Complex spectra of the frames in a window, which slide along with them: arrays of pairs of floats, zero at
/// first. All memory is allocated by the constructor.
class SpectrumWindow
{
public:
    using Spectrum = float (*)[2];

    /// @param elements  complex values of a spectrum
    /// @param capacity  spectra that the window holds
    SpectrumWindow(int elements, int capacity)
        : elements_(elements),
          storage_(std::make_unique<float[][2]>(static_cast<std::size_t>(elements) *
                                                static_cast<std::size_t>(capacity))),
          spectra_(capacity)
    {
        for (int i = 0; i < capacity; ++i)
            spectra_[i] = storage_.get() + static_cast<std::ptrdiff_t>(i) * elements;
    }

    /// The memory of a new frame's spectrum.
    Spectrum push() { return spectra_.push(); }
    void clear() { spectra_.clear(); }

    int elements() const { return elements_; }
    int count() const { return spectra_.count(); }
    /// One pointer for each place of the window, oldest frame first.
    Spectrum* pointers() { return spectra_.slots().data(); }

private:
    int elements_;
    std::unique_ptr<float[][2]> storage_;
    SlidingWindow<Spectrum> spectra_;
};

}  // namespace halvor::vx
