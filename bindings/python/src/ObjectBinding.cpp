// SPDX-License-Identifier: Apache-2.0
// Engines, chain, blocks, filters and simulators: objects of the C interface, by their kinds.

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "bindings/c/vxkit.h"
#include "bindings/python/src/Arrays.h"
#include "bindings/python/src/Bindings.h"
#include "bindings/python/src/Errors.h"
#include "support/drivers/BurstEngine.h"

namespace vxpy {

namespace {

using vxapp::SampleType;

void require(vxkit_status status)
{
    if (status != VXKIT_OK)
        raiseStatus(status, vxkit_last_error());
}

constexpr std::pair<SampleType, vxkit_type> types[] = {
    {SampleType::u8, VXKIT_U8},   {SampleType::u16, VXKIT_U16}, {SampleType::s16, VXKIT_I16},
    {SampleType::s32, VXKIT_I32}, {SampleType::f32, VXKIT_F32}, {SampleType::f64, VXKIT_F64},
};

vxkit_type typeOf(SampleType samples, const char* what)
{
    for (const auto& [known, type] : types)
        if (known == samples)
            return type;
    throw py::value_error(std::string(what) +
                          ": holds uint32; expected a type of at most 16 bits, int32 or floats");
}

SampleType samplesOf(vxkit_type type)
{
    for (const auto& [known, name] : types)
        if (name == type)
            return known;
    throw py::value_error("a type of samples that numpy arrays have no name for here");
}

vxkit_image imageOf(const cv::Mat& image, SampleType samples, const char* what)
{
    return {image.data, image.cols, image.rows, static_cast<std::ptrdiff_t>(image.step[0]),
            typeOf(samples, what)};
}

/// An array for a result, or the caller's.
struct Target
{
    Target(const py::object& out, cv::Size size, SampleType samples, bool anyFit = false)
        : array(out.is_none() ? py::array(dtypeOf(samples), {size.height, size.width}) : py::array())
    {
        if (out.is_none()) {
            image = writableImage(array, size, samples);
            type = samples;
            return;
        }
        array = py::reinterpret_borrow<py::array>(out);
        type = anyFit && py::isinstance<py::array>(out) ? sampleTypeOf(array, "out") : samples;
        image = writableImage(out, size, type);
    }

    py::array array;
    cv::Mat image;
    SampleType type = SampleType::u8;
};

/// An object of the C interface, which is its own guard against two calls at once.
class Object
{
public:
    Object(const std::string& kind, int width, int height) : size_(width, height)
    {
        vxkit_status status = VXKIT_OK;
        {
            const py::gil_scoped_release released;
            status = vxkit_create(kind.c_str(), width, height, &object_);
        }
        require(status);
        equalises_ = kind == "enhancer" || kind == "hist" || kind == "peak";
    }
    ~Object() { vxkit_release(object_); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    int width() const { return size_.width; }
    int height() const { return size_.height; }
    void reset()
    {
        require(vxkit_reset(object_));
        streamed_.reset();
    }

    /// @param shown  the setting's name in messages
    void set(const std::string& name, const py::handle& value, const std::string& shown)
    {
        vxkit_status status = VXKIT_OK;
        if (py::isinstance<py::str>(value)) {
            const auto text = value.cast<std::string>();
            if (name == "camera" && !text.empty() && !vxsupport::psfSigmaFor(text))
                throw py::value_error(inPython(shown + " " + text + vxsupport::unknownCameraText()));
            status = vxkit_set_text(object_, name.c_str(), text.c_str());
        } else {
            try {
                status = vxkit_set_number(object_, name.c_str(), value.cast<double>());
            } catch (const py::cast_error&) {
                throw py::value_error(shown + ": expected a number or a text, found " +
                                      std::string(py::repr(value)));
            }
        }
        const std::string message = status == VXKIT_OK ? "" : vxkit_last_error();
        if (status != VXKIT_OK)
            raiseStatus(status, message.starts_with(name) ? shown + message.substr(name.size()) : message);
    }
    double number(const std::string& name) const
    {
        double value = 0.0;
        require(vxkit_get_number(object_, name.c_str(), &value));
        return value;
    }
    std::string text(const std::string& name) const
    {
        std::size_t needed = 0;
        require(vxkit_get_text(object_, name.c_str(), nullptr, 0, &needed));
        std::string value(needed, '\0');
        require(vxkit_get_text(object_, name.c_str(), value.data(), needed, &needed));
        value.resize(needed - 1);
        return value;
    }

    py::array process(const py::object& frame, const py::object& out)
    {
        const FrameView view = frameOfStream(frame);
        const vxkit_image src = imageOf(view.image, view.samples, "frame");
        const bool isLevels = equalises_ && view.samples == SampleType::s16;
        const Target target(out, view.image.size(), isLevels && out.is_none() ? levelType() : view.samples,
                            equalises_);
        requireApart(view, target.image, target.array);
        const vxkit_image dst = imageOf(target.image, target.type, "out");
        vxkit_status status = VXKIT_OK;
        {
            const py::gil_scoped_release released;
            status = vxkit_process(object_, &src, &dst);
        }
        require(status);
        streamed_ = view.samples;
        return target.array;
    }

    void learn(const py::object& frames)
    {
        const std::vector<FrameView> views = frameViews(frames, "frames");
        std::vector<vxkit_image> images;
        images.reserve(views.size());
        for (const FrameView& view : views)
            images.push_back(imageOf(view.image, view.samples, "frames"));
        vxkit_status status = VXKIT_OK;
        {
            const py::gil_scoped_release released;
            status = vxkit_learn(object_, images.data(), static_cast<int>(images.size()));
        }
        require(status);
    }

    void learnStatistics(const py::object& mean, const py::object& deviation)
    {
        const FrameView first = frameView(mean, "mean");
        const FrameView second = frameView(deviation, "deviation");
        const vxkit_image means = imageOf(first.image, first.samples, "mean");
        const vxkit_image deviations = imageOf(second.image, second.samples, "deviation");
        vxkit_status status = VXKIT_OK;
        {
            const py::gil_scoped_release released;
            status = vxkit_learn_statistics(object_, &means, &deviations);
        }
        require(status);
    }

    py::tuple addFrame(const py::object& frame)
    {
        const FrameView view = frameView(frame, "frame");
        requireSize(view);
        const vxkit_image src = imageOf(view.image, view.samples, "frame");
        vxkit_burst_report report{};
        vxkit_status status = VXKIT_OK;
        {
            const py::gil_scoped_release released;
            status = vxkit_add_frame(object_, &src, &report);
        }
        if (status == VXKIT_NO_RESULT)
            raiseError(vxkit_last_error(), report.code);
        require(status);
        return py::make_tuple(
            report.code, report.has_image != 0,
            report.iterations < 0 ? py::object(py::none()) : py::object(py::int_(report.iterations)),
            std::isnan(report.factor) ? py::object(py::none()) : py::object(py::float_(report.factor)),
            frameReports(report.frames));
    }

    py::array result(const std::string& name, const py::object& out) const
    {
        vxkit_image shape{};
        require(vxkit_result_shape(object_, name.c_str(), &shape));
        const Target target(out, {shape.width, shape.height}, samplesOf(shape.type));
        const vxkit_image dst = imageOf(target.image, target.type, "out");
        require(vxkit_result(object_, name.c_str(), &dst));
        return target.array;
    }

    py::array simulated(int index, bool isIdeal, const py::object& out)
    {
        const Target target(out, size_, SampleType::f32);
        const vxkit_image dst = imageOf(target.image, target.type, "out");
        vxkit_status status = VXKIT_OK;
        {
            const py::gil_scoped_release released;
            status = isIdeal ? vxkit_simulated_ideal(object_, index, &dst)
                             : vxkit_simulated_frame(object_, index, &dst);
        }
        require(status);
        return target.array;
    }
    py::tuple shift(int index)
    {
        double x = 0.0;
        double y = 0.0;
        require(vxkit_simulated_shift(object_, index, &x, &y));
        return py::make_tuple(x, y);
    }

private:
    void requireSize(const FrameView& view) const
    {
        if (view.image.size() != size_)
            throw py::value_error("frame: has " + arrayText(view.array) + "; expected the shape (" +
                                  std::to_string(size_.height) + ", " + std::to_string(size_.width) + ")");
    }

    FrameView frameOfStream(const py::object& frame) const
    {
        FrameView view = frameView(frame, "frame");
        requireSize(view);
        if (view.samples != SampleType::u16 && view.samples != SampleType::s16)
            throw py::value_error("frame: holds " + std::string(py::str(view.array.dtype())) +
                                  "; expected uint16 counts or int16 samples");
        // The same bits mean other counts in the other type, and filters remember counts.
        if (streamed_ && *streamed_ != view.samples)
            throw py::value_error("frame: holds " + std::string(py::str(view.array.dtype())) +
                                  ", while the frames before held " +
                                  std::string(py::str(dtypeOf(*streamed_))) +
                                  "; expected one type, or reset() first");
        return view;
    }

    // Equalised levels are no signed samples; without the equaliser results are.
    SampleType levelType() const
    {
        double equaliser = 1.0;
        if (vxkit_get_number(object_, "hist", &equaliser) != VXKIT_OK)
            return SampleType::s16;
        return equaliser != 0.0 ? SampleType::u16 : SampleType::s16;
    }

    py::list frameReports(int count) const
    {
        py::list reports;
        for (int i = 0; i < count; ++i) {
            vxkit_frame_report report{};
            require(vxkit_frame_report_at(object_, i, &report));
            reports.append(py::make_tuple(report.shift_x, report.shift_y, report.usable));
        }
        return reports;
    }

    cv::Size size_;
    vxkit_object* object_ = nullptr;
    bool equalises_ = false;
    std::optional<SampleType> streamed_;  // of the frames so far
};

py::list kindList()
{
    constexpr const char* families[] = {"superres", "filter", "simulator"};
    py::list kinds;
    for (int i = 0; i < vxkit_kind_count(); ++i) {
        vxkit_kind_info info{};
        require(vxkit_kind(i, &info));
        kinds.append(py::make_tuple(info.name, families[info.family], info.summary));
    }
    return kinds;
}

py::list settingList(const std::string& kind)
{
    constexpr const char* names[] = {"integer", "number", "switch", "choice", "text"};
    py::list settings;
    for (int i = 0; i < vxkit_setting_count(kind.c_str()); ++i) {
        vxkit_setting_info info{};
        require(vxkit_setting(kind.c_str(), i, &info));
        py::dict setting;
        setting["name"] = info.name;
        setting["type"] = names[info.type];
        setting["low"] = info.low;
        setting["high"] = info.high;
        setting["default"] = info.type >= VXKIT_CHOICE         ? py::object(py::str(info.default_text))
                             : std::isnan(info.default_number) ? py::object(py::none())
                                                               : py::object(py::float_(info.default_number));
        setting["choices"] = info.choices;
        setting["unit"] = info.unit;
        setting["help"] = info.help;
        setting["at_once"] = info.at_once != 0;
        settings.append(setting);
    }
    return settings;
}

}  // namespace

void addObjects(py::module_& module)
{
    py::class_<Object>(module, "Object")
        .def(py::init<const std::string&, int, int>(), py::arg("kind"), py::arg("width"), py::arg("height"))
        .def_property_readonly("width", &Object::width, "Columns of a frame.")
        .def_property_readonly("height", &Object::height, "Rows of a frame.")
        .def("reset", &Object::reset, "Forget frames and what was learned; keep the settings.")
        .def("_set", &Object::set, py::arg("name"), py::arg("value"), py::arg("shown"))
        .def("_number", &Object::number)
        .def("_text", &Object::text)
        .def("_process", &Object::process, py::arg("frame"), py::arg("out") = py::none(),
             "Filter the next frame of a stream.\n\n"
             "Parameters\n----------\nframe : array_like\n    ``(height, width)``, uint16 counts or int16 "
             "samples.\n"
             "out : numpy.ndarray, optional\n    Takes the result; may be `frame`.\n\n"
             "Returns\n-------\nnumpy.ndarray\n    `out`, or a new array: in the frame's type, equalised "
             "levels from 0 to "
             "32766 in uint16.")
        .def("_learn", &Object::learn, py::arg("frames"),
             "Learn from frames of a uniform scene.\n\n"
             "Parameters\n----------\nframes : array_like\n    ``(frames, height, width)``, two or more, "
             "uint16 or int16.")
        .def("_learn_statistics", &Object::learnStatistics, py::arg("mean"), py::arg("deviation"),
             "Learn from each pixel's mean and standard deviation in time.\n\n"
             "Parameters\n----------\nmean, deviation : array_like\n    ``(height, width)``, float32, in "
             "counts.")
        .def("_add_frame", &Object::addFrame)
        .def("_result", &Object::result, py::arg("name"), py::arg("out") = py::none(),
             "A result by its name.\n\n"
             "Parameters\n----------\nname : str\n    Super-resolution: \"image\"; \"confidence\" of "
             "LocalMotion; "
             "\"quality\" of Reference. Enhancer:\n    \"after-temporal\", \"after-pattern\", "
             "\"after-spatial\" and "
             "\"after-histogram\". ClusterFilter: \"damping\".\nout : numpy.ndarray, optional\n    Takes "
             "it.\n\n"
             "Returns\n-------\nnumpy.ndarray")
        .def("_simulated", &Object::simulated, py::arg("index"), py::arg("ideal"), py::arg("out"))
        .def("_shift", &Object::shift);
    module.def("kinds", &kindList);
    module.def("settings", &settingList);
    module.def(
        "set_threads", [](int threads) { require(vxkit_set_threads(threads)); }, py::arg("threads"));
}

}  // namespace vxpy
