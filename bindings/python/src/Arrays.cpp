// SPDX-License-Identifier: Apache-2.0
#include "bindings/python/src/Arrays.h"

#include <bit>
#include <cstring>
#include <memory>
#include <opencv2/core.hpp>
#include <utility>

namespace vxpy {

namespace {

using vxapp::SampleType;

struct NumpyType
{
    SampleType samples;
    char kind;
    std::size_t bytes;
    const char* name;
};

constexpr NumpyType numpyTypes[] = {
    {SampleType::u8, 'u', 1, "uint8"},    {SampleType::u16, 'u', 2, "uint16"},
    {SampleType::s16, 'i', 2, "int16"},   {SampleType::u32, 'u', 4, "uint32"},
    {SampleType::s32, 'i', 4, "int32"},   {SampleType::f32, 'f', 4, "float32"},
    {SampleType::f64, 'f', 8, "float64"},
};

// What an image of the samples' own bytes is for OpenCV.
int imageType(SampleType samples)
{
    return samples == SampleType::u32 ? CV_32SC1 : vxapp::factsOf(samples).storage;
}

// Masked pixels hold values that are none.
void requireUnmasked(const py::object& object, const std::string& what)
{
    if (!py::hasattr(object, "mask"))
        return;
    const py::module_ masks = py::module_::import("numpy.ma");
    if (masks.attr("is_masked")(object).cast<bool>())
        throw py::value_error(what + ": has " + std::string(py::str(masks.attr("count_masked")(object))) +
                              " masked pixels; expected none (filled(), or floats with nan in their place)");
}

py::array asArray(const py::object& object, const std::string& what)
{
    if (py::isinstance<py::array>(object)) {
        requireUnmasked(object, what);
        return py::reinterpret_borrow<py::array>(object);
    }
    py::array array = py::array::ensure(object);
    PyErr_Clear();
    // numpy makes an array of anything: of what it doesn't know, one that holds it.
    const bool isKnown = array && array.dtype().kind() != 'O' && !py::isinstance<py::str>(object) &&
                         !py::isinstance<py::bytes>(object);
    if (!isKnown)
        throw py::value_error(what + ": expected an array, found " + typeName(object));
    return array;
}

bool liesInRows(const py::array& array)
{
    const py::ssize_t bytes = array.itemsize();
    return array.shape(0) > 0 && array.shape(1) > 0 && array.strides(1) == bytes &&
           (array.shape(0) == 1 || array.strides(0) >= bytes * array.shape(1)) &&
           reinterpret_cast<std::uintptr_t>(array.data()) % static_cast<std::uintptr_t>(bytes) == 0;
}

cv::Mat imageOn(const py::array& array, SampleType samples)
{
    const std::size_t step =
        array.shape(0) == 1 ? std::size_t{cv::Mat::AUTO_STEP} : static_cast<std::size_t>(array.strides(0));
    // OpenCV has no image of constants: what is read is not written to.
    return {static_cast<int>(array.shape(0)), static_cast<int>(array.shape(1)), imageType(samples),
            const_cast<void*>(array.data()), step};
}

bool isNative(const py::dtype& type)
{
    constexpr char other = std::endian::native == std::endian::little ? '>' : '<';
    return type.byteorder() != other;
}

void requireFrame(const py::array& array, const std::string& what)
{
    constexpr py::ssize_t largestSide = 1 << 16;
    const auto fits = [](py::ssize_t side) { return side > 0 && side <= largestSide; };
    if (array.ndim() != 2 || !fits(array.shape(0)) || !fits(array.shape(1)))
        throw py::value_error(what + ": has the shape " + std::string(py::str(array.attr("shape"))) +
                              "; expected rows and columns (height, width), 1 to 65536 of each");
}

}  // namespace

std::string typeName(const py::handle& object)
{
    return std::string(py::str(py::type::handle_of(object).attr("__name__")));
}

std::string arrayText(const py::array& array)
{
    return std::string(py::str(py::object(array.dtype()))) + " " + std::string(py::str(array.attr("shape")));
}

SampleType sampleTypeOf(const py::array& array, const std::string& what)
{
    const py::dtype type = array.dtype();
    for (const NumpyType& known : numpyTypes)
        if (type.kind() == known.kind && static_cast<std::size_t>(type.itemsize()) == known.bytes)
            return known.samples;
    std::string expected;
    for (const NumpyType& known : numpyTypes)
        expected += std::string(expected.empty() ? "" : ", ") + known.name;
    throw py::value_error(what + ": holds " + std::string(py::str(py::object(type))) + "; expected one of " +
                          expected);
}

py::dtype dtypeOf(SampleType samples)
{
    switch (samples) {
        case SampleType::u8:
            return py::dtype::of<std::uint8_t>();
        case SampleType::u16:
            return py::dtype::of<std::uint16_t>();
        case SampleType::s16:
            return py::dtype::of<std::int16_t>();
        case SampleType::u32:
            return py::dtype::of<std::uint32_t>();
        case SampleType::s32:
            return py::dtype::of<std::int32_t>();
        case SampleType::f32:
            return py::dtype::of<float>();
        case SampleType::f64:
            return py::dtype::of<double>();
    }
    throw py::value_error("unknown type of samples");
}

FrameView frameView(const py::object& frame, const std::string& what)
{
    py::array array = asArray(frame, what);
    const SampleType samples = sampleTypeOf(array, what);
    requireFrame(array, what);
    if (!isNative(array.dtype()))
        array = array.attr("astype")(dtypeOf(samples));
    if (!liesInRows(array))
        array = array.attr("copy")("C");
    cv::Mat image = imageOn(array, samples);
    return {std::move(array), std::move(image), samples};
}

std::vector<FrameView> frameViews(const py::object& frames, const std::string& what)
{
    std::vector<FrameView> views;
    const auto add = [&](const py::object& frame) {
        const std::string name = what + ", frame " + std::to_string(views.size());
        views.push_back(frameView(frame, name));
        const FrameView& first = views.front();
        if (views.back().image.size() != first.image.size() || views.back().samples != first.samples)
            throw py::value_error(name + ": has " + arrayText(views.back().array) + ", while frame 0 has " +
                                  arrayText(first.array) + "; expected frames of one shape and type");
    };
    if (py::isinstance<py::array>(frames)) {
        const auto array = py::reinterpret_borrow<py::array>(frames);
        if (array.ndim() == 2) {
            views.push_back(frameView(array, what));
            return views;
        }
        if (array.ndim() != 3)
            throw py::value_error(what + ": has the shape " + std::string(py::str(array.attr("shape"))) +
                                  "; expected (frames, height, width) or (height, width)");
    }
    if (!py::isinstance<py::iterable>(frames))
        throw py::value_error(what + ": expected an array or a sequence of arrays, found " +
                              typeName(frames));
    for (const py::handle frame : frames)
        add(py::reinterpret_borrow<py::object>(frame));
    if (views.empty())
        throw py::value_error(what + ": holds no frames; expected at least one");
    return views;
}

void requireApart(const FrameView& frame, const cv::Mat& image, const py::array& out)
{
    const bool isSame = frame.image.data == image.data && frame.image.step[0] == image.step[0];
    const bool isBeside = frame.image.dataend <= image.datastart || image.dataend <= frame.image.datastart;
    if (isSame || isBeside)
        return;
    if (py::module_::import("numpy").attr("shares_memory")(frame.array, out).cast<bool>())
        throw py::value_error("out: lies partly on the frame; expected the frame itself or other memory");
}

cv::Mat writableImage(const py::object& out, cv::Size size, SampleType samples)
{
    const auto expected = [&] {
        return std::string(py::str(py::object(dtypeOf(samples)))) + " (" + std::to_string(size.height) +
               ", " + std::to_string(size.width) + ")";
    };
    if (!py::isinstance<py::array>(out))
        throw py::value_error("out: expected an array, " + expected() + ", found " + typeName(out));
    const auto array = py::reinterpret_borrow<py::array>(out);
    if (array.ndim() != 2 || array.shape(0) != size.height || array.shape(1) != size.width ||
        sampleTypeOf(array, "out") != samples)
        throw py::value_error("out: has " + arrayText(array) + "; expected " + expected());
    if (!isNative(array.dtype()) || !liesInRows(array))
        throw py::value_error(
            "out: has the strides " + std::string(py::str(array.attr("strides"))) + " of " +
            arrayText(array) +
            "; expected values in native byte order that lie one behind the other in a row");
    if (!array.writeable())
        throw py::value_error("out: is read-only; expected a writable array");
    return imageOn(array, samples);
}

py::array arrayOf(const cv::Mat& image, SampleType samples)
{
    const py::dtype type = dtypeOf(samples);
    const std::vector<py::ssize_t> shape{image.rows, image.cols};
    if (samples == SampleType::u32) {
        py::array_t<std::uint32_t> array(shape);
        auto values = array.mutable_unchecked<2>();
        for (int y = 0; y < image.rows; ++y)
            for (int x = 0; x < image.cols; ++x)
                values(y, x) = static_cast<std::uint32_t>(image.at<double>(y, x));
        return array;
    }
    const bool isOurs = image.u != nullptr && image.u->refcount == 1;
    auto kept = std::make_unique<cv::Mat>(isOurs ? image : image.clone());
    const std::vector<py::ssize_t> strides{static_cast<py::ssize_t>(kept->step[0]),
                                           static_cast<py::ssize_t>(kept->elemSize())};
    void* const data = kept->data;
    const py::capsule owner(kept.release(),
                            [](void* held) { std::unique_ptr<cv::Mat>(static_cast<cv::Mat*>(held)); });
    return {type, shape, strides, data, owner};
}

}  // namespace vxpy
