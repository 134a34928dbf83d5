// SPDX-License-Identifier: Apache-2.0
// How far an image is from a reference.

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <string>

#include "bindings/python/src/Arrays.h"
#include "bindings/python/src/Bindings.h"
#include "support/PictureMeasures.h"

namespace vxpy {

namespace {

cv::Mat_<float> valuesOf(const FrameView& view, const std::string& what)
{
    cv::Mat_<float> values;
    view.image.convertTo(values, CV_32F);
    if (view.samples == vxapp::SampleType::u32)
        std::transform(view.image.begin<int>(), view.image.end<int>(), values.begin(),
                       [](int bits) { return static_cast<float>(static_cast<std::uint32_t>(bits)); });
    const auto bad =
        std::count_if(values.begin(), values.end(), [](float value) { return !std::isfinite(value); });
    if (bad > 0)
        throw py::value_error(what + ": " + std::to_string(bad) +
                              " pixels are infinite or no numbers; expected a finite value in each");
    return values;
}

struct Measures
{
    double psnr = 0.0;
    double ssim = 0.0;
    double largest = 0.0;
    PointF shift{0.0F, 0.0F};
    int margin = 0;
};

Measures measured(cv::Mat_<float> image, const cv::Mat_<float>& reference, int margin, bool align)
{
    constexpr int leastSide = 11;  // of a window of SSIM
    Measures found;
    found.margin = margin;
    if (align) {
        found.shift = vxsupport::estimateShift(image, reference, margin);
        if (!(std::abs(found.shift.x) < vxsupport::maxRemovableShift &&
              std::abs(found.shift.y) < vxsupport::maxRemovableShift))
            throw std::invalid_argument(
                "image: no shift of less than 32 pixels aligns it with the reference");
        image = vxsupport::withoutShift(image, found.shift);
        found.margin = std::max(margin, vxsupport::spoiledMargin(found.shift));
    }
    const int edge = found.margin;
    if (std::min(reference.cols, reference.rows) / 2 <= edge ||
        std::min(reference.cols, reference.rows) - 2 * edge < leastSide)
        throw std::invalid_argument("margin " + std::to_string(edge) + ": leaves fewer than " +
                                    std::to_string(leastSide) + " rows or columns");
    const cv::Rect inner(edge, edge, reference.cols - 2 * edge, reference.rows - 2 * edge);
    const cv::Mat_<float> part = image(inner);
    const cv::Mat_<float> truth = reference(inner);
    found.psnr = vxsupport::psnr(part, truth);
    found.ssim = vxsupport::ssim(part, truth);
    found.largest = vxsupport::largestDifference(part, truth);
    return found;
}

py::dict compare(const py::object& image, const py::object& reference, int margin, bool align)
{
    const FrameView first = frameView(image, "image");
    const FrameView second = frameView(reference, "reference");
    if (first.image.size() != second.image.size())
        throw py::value_error("image: has the shape " + std::string(py::str(first.array.attr("shape"))) +
                              ", while the reference has " +
                              std::string(py::str(second.array.attr("shape"))));
    if (margin < 0)
        throw py::value_error("margin " + std::to_string(margin) + ": expected 0 or more");
    const cv::Mat_<float> values = valuesOf(first, "image");
    const cv::Mat_<float> truth = valuesOf(second, "reference");
    Measures found;
    {
        const py::gil_scoped_release released;
        found = measured(values, truth, margin, align);
    }
    py::dict told;
    told["psnr"] = found.psnr;
    told["ssim"] = found.ssim;
    told["largest_difference"] = found.largest;
    told["shift"] = py::make_tuple(found.shift.x, found.shift.y);
    told["margin"] = found.margin;
    return told;
}

}  // namespace

void addMeasures(py::module_& module)
{
    module.def("compare", &compare, py::arg("image"), py::arg("reference"), py::arg("margin"),
               py::arg("align"));
}

}  // namespace vxpy
