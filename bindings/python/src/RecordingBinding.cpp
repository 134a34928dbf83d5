// SPDX-License-Identifier: Apache-2.0
// Files and arrays as recordings.

#include <pybind11/stl.h>

#include <cstring>
#include <opencv2/core.hpp>

#include "apps/vxkit/formats/FileFormats.h"
#include "bindings/python/src/ArrayFile.h"
#include "bindings/python/src/Bindings.h"
#include "bindings/python/src/Errors.h"

namespace vxpy {

namespace {

using vxapp::RecordingOptions;
using vxapp::SampleType;

std::shared_ptr<SharedRecording> openRecording(const RecordingOptions& options)
{
    const py::gil_scoped_release released;
    return std::make_shared<SharedRecording>(options);
}

SampleType sampleTypeFrom(const std::string& name)
{
    // As numpy calls them, and as the program does.
    for (const vxapp::SampleFacts& facts : vxapp::sampleTypes())
        if (name == facts.name || name == py::str(py::object(dtypeOf(facts.type))).cast<std::string>())
            return facts.type;
    throw py::value_error("dtype " + name +
                          ": expected uint8, uint16, int16, uint32, int32, float32 or float64");
}

std::endian orderFrom(const std::string& name)
{
    if (name != "little" && name != "big")
        throw py::value_error("endian " + name + ": expected little or big");
    return name == "big" ? std::endian::big : std::endian::little;
}

std::shared_ptr<SharedRecording> openFiles(const std::vector<std::string>& paths, const std::string& size,
                                           const std::string& frames, const std::optional<std::string>& dtype,
                                           const std::optional<std::string>& endian, std::uint64_t header,
                                           std::uint64_t frameHeader, const std::string& dataset)
{
    if (paths.empty())
        throw py::value_error("path: expected at least one file");
    RecordingOptions options;
    options.inputs = paths;
    options.size = size;
    options.frames = frames;
    if (dtype)
        options.hints.samples = sampleTypeFrom(*dtype);
    if (endian)
        options.hints.order = orderFrom(*endian);
    options.hints.dataset = dataset;
    options.header = header;
    options.frameHeader = frameHeader;
    options.takesBytes = true;
    return onFiles([&] { return openRecording(options); });
}

py::tuple shapeOf(const SharedRecording& shared)
{
    const cv::Size size = shared.recording.frameSize();
    return py::make_tuple(shared.recording.frameCount(), size.height, size.width);
}

cv::Mat readFrame(SharedRecording& shared, int index)
{
    return onFiles([&] {
        const py::gil_scoped_release released;
        const std::lock_guard lock(shared.mutex);
        return shared.recording.frame(index);
    });
}

void copyTo(const cv::Mat& frame, SampleType samples, cv::Mat& out)
{
    if (samples != SampleType::u32) {
        frame.copyTo(out);
        return;
    }
    for (int y = 0; y < out.rows; ++y)
        for (int x = 0; x < out.cols; ++x)
            out.at<int>(y, x) = static_cast<int>(static_cast<std::uint32_t>(frame.at<double>(y, x)));
}

py::array frameOf(SharedRecording& shared, int index, const py::object& out)
{
    if (index < 0 || index >= shared.recording.frameCount())
        throw py::index_error("frame " + std::to_string(index) + ": expected 0 to " +
                              std::to_string(shared.recording.frameCount() - 1));
    const SampleType samples = shared.recording.sampleType();
    if (out.is_none())
        return arrayOf(readFrame(shared, index), samples);
    cv::Mat image = writableImage(out, shared.recording.frameSize(), samples);
    copyTo(readFrame(shared, index), samples, image);
    return out;
}

py::list formatList()
{
    py::list formats;
    for (const vxapp::FileFormat& format : vxapp::fileFormats()) {
        py::list endings, types;
        for (const std::string_view ending : format.endings)
            endings.append(std::string(ending));
        for (const vxapp::SampleFacts& facts : vxapp::sampleTypes())
            if (format.openSink != nullptr && format.takes(facts.type))
                types.append(dtypeOf(facts.type).attr("name"));
        py::dict entry;
        entry["name"] = std::string(format.name);
        entry["endings"] = py::tuple(endings);
        entry["reads"] = format.open != nullptr || format.name == "raw";
        entry["writes"] = py::tuple(types);
        entry["one_file_per_frame"] = format.oneFilePerFrame;
        entry["holds"] = std::string(format.sequenceText);
        formats.append(entry);
    }
    return formats;
}

}  // namespace

void addRecording(py::module_& module)
{
    py::class_<SharedRecording, std::shared_ptr<SharedRecording>>(module, "Recording")
        .def(py::init(&openFiles), py::arg("paths"), py::arg("size"), py::arg("frames"), py::arg("dtype"),
             py::arg("endian"), py::arg("header"), py::arg("frame_header"), py::arg("dataset"))
        .def_property_readonly("shape", &shapeOf)
        .def_property_readonly(
            "dtype", [](const SharedRecording& shared) { return dtypeOf(shared.recording.sampleType()); })
        .def_property_readonly("first",
                               [](const SharedRecording& shared) { return shared.recording.firstNumber(); })
        .def("name_of",
             [](const SharedRecording& shared, int index) { return textOf(shared.recording.nameOf(index)); })
        .def("frame", &frameOf, py::arg("index"), py::arg("out") = py::none());
    module.def("formats", &formatList);
}

}  // namespace vxpy
