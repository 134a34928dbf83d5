// SPDX-License-Identifier: Apache-2.0
// A recording through bad pixels, chain and look, as the program does it.

#include <pybind11/stl.h>

#include <memory>
#include <utility>

#include "apps/vxkit/stream/Enhancement.h"
#include "apps/vxkit/stream/Look.h"
#include "bindings/python/src/ArrayFile.h"
#include "bindings/python/src/Bindings.h"
#include "bindings/python/src/Errors.h"
#include "bindings/python/src/Quiet.h"
#include "support/drivers/ChainTable.h"

namespace vxpy {

namespace {

using vxapp::ChainOptions;
using vxapp::EnhancementOptions;
using vxapp::SampleType;
using vxsupport::ChainSetting;

// "tnr_alpha" of "tnr-alpha"
std::string nameInPython(const ChainSetting& setting)
{
    return inPython("--" + vxsupport::nameOf(setting));
}

int settingFrom(const ChainSetting& setting, const py::handle& value)
{
    const std::string name = nameInPython(setting);
    if (setting.isMode() && py::isinstance<py::str>(value)) {
        std::string expected;
        int mode = 0;
        for (const char* const known : vxsupport::histogramModeNames()) {
            if (value.cast<std::string>() == known)
                return mode;
            expected += std::string(mode++ > 0 ? ", " : "") + known;
        }
        throw py::value_error(name + " " + value.cast<std::string>() + ": expected one of " + expected);
    }
    long chosen = 0;
    try {
        if (py::isinstance<py::bool_>(value))
            throw py::cast_error();
        chosen = value.cast<long>();
    } catch (const py::cast_error&) {
        throw py::value_error(name + ": expected a whole number from " + std::to_string(setting.low) +
                              " to " + std::to_string(setting.high) + ", found " +
                              std::string(py::repr(value)));
    }
    if (chosen < setting.low || chosen > setting.high)
        throw py::value_error(name + " " + std::to_string(chosen) + ": expected " +
                              std::to_string(setting.low) + " to " + std::to_string(setting.high));
    return static_cast<int>(chosen);
}

bool switchFrom(const std::string& name, const py::handle& value)
{
    try {
        if (!value.is_none())
            return value.cast<bool>();
    } catch (const py::cast_error&) {  // told below
    }
    throw py::value_error(name + ": expected True or False, found " + std::string(py::repr(value)));
}

void takeSetting(const std::string& name, const py::handle& value, ChainOptions& options)
{
    const auto blocks = vxsupport::chainBlocks();
    for (std::size_t i = 0; i < blocks.size(); ++i)
        if (name == blocks[i].prefix) {
            options.blocks[i] = switchFrom(name, value);
            return;
        }
    const auto table = vxsupport::chainTable();
    for (std::size_t i = 0; i < table.size(); ++i)
        if (name == nameInPython(table[i])) {
            options.values[i] = settingFrom(table[i], value);
            return;
        }
    std::string known;
    for (const vxsupport::ChainBlock& block : blocks)
        known += std::string(block.prefix) + ", ";
    for (const ChainSetting& setting : table)
        known += nameInPython(setting) + ", ";
    throw py::value_error(name + ": no setting of the chain; expected one of " +
                          known.substr(0, known.size() - 2));
}

ChainOptions chainFrom(const std::string& look, const std::string& file, const py::dict& settings)
{
    ChainOptions options;
    options.look = look;
    options.file = file;
    options.values.resize(vxsupport::chainTable().size());
    options.blocks.resize(vxsupport::chainBlocks().size());
    for (const auto& [name, value] : settings)
        takeSetting(name.cast<std::string>(), value, options);
    return options;
}

/// A recording and what is made of it. One call at a time; the frames are asked for in their order.
class EnhancedRecording
{
public:
    EnhancedRecording(std::shared_ptr<SharedRecording> input, EnhancementOptions options)
        : input_(std::move(input)), options_(std::move(options))
    {
        unlocked([&] { enhancement_.emplace(input_->recording, options_); });
    }

    py::tuple shape() const
    {
        const cv::Size size = input_->recording.frameSize();
        return py::make_tuple(input_->recording.frameCount(), size.height, size.width);
    }
    SampleType type()
    {
        return enhancement_->isEqualised() ? SampleType::u16 : enhancement_->scale().valueType();
    }
    bool runsTwice() const { return enhancement_->runsTwice(); }
    /// Pixels of the frames so far that were no numbers.
    int undefinedValues() { return enhancement_->scale().undefinedValues(); }
    /// What one count stands for, if that is more than the recording's noise.
    std::optional<double> lostDetail() { return enhancement_->scale().lostDetail(); }

    /// Looks through the recording.
    py::dict survey()
    {
        unlocked(
            [&] { found_ = vxapp::survey(input_->recording, enhancement_->scale(), options_.badPixels); });
        py::dict told;
        told["noise"] = found_.noise;
        told["bad_pixels"] = py::none();
        if (!found_.badPixels.marks.empty())
            told["bad_pixels"] = arrayOf(found_.badPixels.marks, SampleType::u8);
        told["scale"] = enhancement_->scale().scale();
        told["offset"] = enhancement_->scale().offset();
        return told;
    }

    void settle(double noise, const py::object& badPixels)
    {
        vxapp::Survey found;
        found.noise = noise;
        if (!badPixels.is_none()) {
            const FrameView view = frameView(badPixels, "bad_pixels");
            if (view.samples != SampleType::u8 || view.image.size() != input_->recording.frameSize())
                throw py::value_error("bad_pixels: has " + arrayText(view.array) +
                                      "; expected uint8 values in the shape of a frame, " +
                                      std::string(py::str(py::make_tuple(shape()[1], shape()[2]))));
            found.badPixels.marks = view.image.clone();
        }
        unlocked([&] { enhancement_->settle(found); });
    }

    void measure(int index)
    {
        unlocked([&] {
            read(index);
            enhancement_->measure(samples_);
        });
    }

    py::array enhance(int index, const py::object& out)
    {
        cv::Mat image;
        if (!out.is_none())
            image = writableImage(out, input_->recording.frameSize(), type());
        unlocked([&] {
            read(index);
            enhancement_->enhance(samples_);
            deliver(image);
        });
        return out.is_none() ? arrayOf(std::exchange(image, {}), type()) : py::array(out);
    }

private:
    template <typename Function>
    void unlocked(Function function)
    {
        const py::gil_scoped_release released;
        const std::lock_guard lock(input_->mutex);
        quietly(function);
    }

    void read(int index) { enhancement_->scale().toSamples(input_->recording, index, samples_); }

    void deliver(cv::Mat& image)
    {
        if (!enhancement_->isEqualised()) {
            const cv::Mat values = enhancement_->scale().toValues(enhancement_->enhanced());
            if (image.empty())
                image = values;
            else
                values.copyTo(image);
            return;
        }
        // What is equalised counts from 0 on; the samples' bits are the counts'.
        const cv::Mat_<short>& enhanced = enhancement_->enhanced();
        const cv::Mat counts(enhanced.rows, enhanced.cols, CV_16UC1, const_cast<short*>(enhanced[0]),
                             enhanced.step);
        counts.copyTo(image);
    }

    std::shared_ptr<SharedRecording> input_;
    EnhancementOptions options_;
    std::optional<vxapp::Enhancement> enhancement_;
    vxapp::Survey found_;
    cv::Mat_<short> samples_;
};

std::unique_ptr<EnhancedRecording> openEnhancement(const py::object& frames, const std::string& look,
                                                   const std::string& file, const py::dict& settings,
                                                   const std::string& badPixels, int ahead, int behind,
                                                   bool isSigned, std::optional<double> scale,
                                                   std::optional<double> offset)
{
    EnhancementOptions options;
    options.chain = chainFrom(look, file, settings);
    options.badPixels.source = badPixels;
    options.reach = {behind, ahead};
    options.scale.form = isSigned ? vxapp::SampleForm::signedSamples : vxapp::SampleForm::unsignedCounts;
    options.scale.scale = scale;
    options.scale.offset = offset;
    return std::make_unique<EnhancedRecording>(recordingOf(frames, "frames"), std::move(options));
}

py::list lookList()
{
    py::list all;
    for (const vxapp::Look& look : vxapp::looks())
        all.append(py::make_tuple(look.name, look.help));
    return all;
}

}  // namespace

void addEnhancement(py::module_& module)
{
    py::class_<EnhancedRecording>(module, "Enhancement")
        .def(py::init(&openEnhancement), py::arg("frames"), py::arg("look"), py::arg("settings_file"),
             py::arg("settings"), py::arg("bad_pixels"), py::arg("ahead"), py::arg("behind"),
             py::arg("signed"), py::arg("scale"), py::arg("offset"))
        .def_property_readonly("shape", &EnhancedRecording::shape)
        .def_property_readonly("dtype", [](EnhancedRecording& self) { return dtypeOf(self.type()); })
        .def_property_readonly("runs_twice", &EnhancedRecording::runsTwice)
        .def_property_readonly("undefined_values", &EnhancedRecording::undefinedValues)
        .def_property_readonly("lost_detail", &EnhancedRecording::lostDetail)
        .def("survey", &EnhancedRecording::survey)
        .def("settle", &EnhancedRecording::settle, py::arg("noise"), py::arg("bad_pixels"))
        .def("measure", &EnhancedRecording::measure)
        .def("enhance", &EnhancedRecording::enhance, py::arg("index"), py::arg("out") = py::none());
    module.def("looks", &lookList);
}

}  // namespace vxpy
