// SPDX-License-Identifier: Apache-2.0
// Frames into files.

#include <pybind11/stl.h>

#include <memory>
#include <utility>

#include "apps/vxkit/output/FrameSink.h"
#include "bindings/python/src/ArrayFile.h"
#include "bindings/python/src/Bindings.h"
#include "bindings/python/src/Errors.h"

namespace vxpy {

namespace {

/// The output of a known number of frames like the first.
class Writer
{
public:
    Writer(const vxapp::SequenceOptions& options, const py::object& first, int frames,
           std::shared_ptr<SharedRecording> input)
        : view_(frameView(first, "frames, frame 0")),
          input_(input ? std::move(input) : recordingOf(first, "frames"))
    {
        onFiles([&] {
            const py::gil_scoped_release released;
            input_->recording.files()->beginOutputs();
            sink_ =
                vxapp::openFrameSink(options, input_->recording, {view_.image.size(), frames, view_.samples});
        });
    }

    void add(const py::object& frame)
    {
        const std::string name = "frames, frame " + std::to_string(count_);
        const FrameView view = frameView(frame, name);
        if (view.image.size() != view_.image.size() || view.samples != view_.samples)
            throw py::value_error(name + ": has " + arrayText(view.array) + ", while frame 0 has " +
                                  arrayText(view_.array) + "; expected frames of one shape and type");
        const cv::Mat stored = storedImage(view);
        onFiles([&] {
            const py::gil_scoped_release released;
            sink_->add(stored);
        });
        ++count_;
    }

    py::str finish()
    {
        return textOf(inPython(onFiles([&] {
            const py::gil_scoped_release released;
            return sink_->finish();
        })));
    }

private:
    FrameView view_;
    std::shared_ptr<SharedRecording> input_;
    std::unique_ptr<vxapp::FrameSink> sink_;
    int count_ = 0;
};

std::unique_ptr<Writer> openWriter(const std::string& path, const py::object& first, int frames, bool force,
                                   const std::string& format, double framesPerSecond,
                                   const std::string& range, const std::string& colourMap, bool isBigEndian,
                                   std::shared_ptr<SharedRecording> input)
{
    vxapp::SequenceOptions options;
    options.path = path;
    options.force = force;
    options.format = format;
    options.framesPerSecond = framesPerSecond;
    options.range = range;
    if (!colourMap.empty())
        options.colourMap = colourMap;
    options.order = isBigEndian ? std::endian::big : std::endian::little;
    return std::make_unique<Writer>(options, first, frames, std::move(input));
}

}  // namespace

void addWriter(py::module_& module)
{
    py::class_<Writer>(module, "Writer")
        .def(py::init(&openWriter), py::arg("path"), py::arg("first"), py::arg("frames"), py::arg("force"),
             py::arg("format"), py::arg("fps"), py::arg("range"), py::arg("colour_map"),
             py::arg("big_endian"), py::arg("input"))
        .def("add", &Writer::add)
        .def("finish", &Writer::finish);
    module.def("colour_maps", [] { return vxsupport::colourMapNames(); });
}

}  // namespace vxpy
