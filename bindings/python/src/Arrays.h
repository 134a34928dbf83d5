// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/numpy.h>

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "apps/vxkit/formats/SampleType.h"

// Arrays of numpy and images of OpenCV on the same memory.
namespace vxpy {

namespace py = pybind11;

/// A frame in an array's memory. The array is to be released with the interpreter lock held.
struct FrameView
{
    py::array array;
    cv::Mat image;  ///< of the samples' own type, but for u32, for which OpenCV has none: s32, bit by bit
    vxapp::SampleType samples;
};

/// Of its class, for messages.
std::string typeName(const py::handle& object);

/// "uint16 (120, 160)"
std::string arrayText(const py::array& array);

/// The type of an array's values.
/// @param what  what the array is, for the message
/// @throws py::type_error turned ValueError if the library has none such
vxapp::SampleType sampleTypeOf(const py::array& array, const std::string& what);
py::dtype dtypeOf(vxapp::SampleType samples);

/// Frames of one shape and type: an array of two or three dimensions, or a sequence of arrays of two. Copies what does
/// not lie in rows of native samples.
/// @throws ValueError that tells shapes or types
std::vector<FrameView> frameViews(const py::object& frames, const std::string& what);
FrameView frameView(const py::object& frame, const std::string& what);

/// An array to write into.
/// @throws ValueError unless it is a writable array of the shape and type that lies in rows
cv::Mat writableImage(const py::object& out, cv::Size size, vxapp::SampleType samples);

/// @param image  on the array of the result
/// @throws ValueError where it would overwrite parts of a frame that are still to be read
void requireApart(const FrameView& frame, const cv::Mat& image, const py::array& out);

/// An array that owns the image; on its memory where nobody else holds it.
/// @param image  in the storage of its samples
py::array arrayOf(const cv::Mat& image, vxapp::SampleType samples);

}  // namespace vxpy
