// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/FilterObject.h"

#include <opencv2/core.hpp>
#include <string_view>

#include "bindings/c/ChainObject.h"
#include "bindings/c/Failure.h"
#include "bindings/c/Images.h"
#include "enhancement/PixelStatistics.h"
#include "support/drivers/ClusterFilter.h"
#include "support/drivers/FrameFilter.h"

namespace vxc {

namespace {

using namespace vxsupport;

constexpr double unsignedZero = 32768.0;

void requireSampleTypes(const vxkit_image& src, const vxkit_image& dst)
{
    if (src.type != VXKIT_U16 && src.type != VXKIT_I16)
        throw Failure(VXKIT_WRONG_TYPE,
                      std::string("src: found ") + vxkit_type_text(src.type) + "; expected u16 or i16");
    requireType(dst, src.type, "dst");
}

class FilterObject : public Object
{
public:
    FilterObject(const Kind& kind, cv::Size frame) : Object(kind, frame)
    {
        requireFilterSize(frame);
        openFirst();
    }

    void process(const vxkit_image& src, const vxkit_image& dst) override;

private:
    void open() override { filter_ = opened(); }
    void close() noexcept override { filter_.reset(); }
    // Only filters without memory have settings that act at once.
    void apply(std::size_t /*index*/) override { filter_ = opened(); }
    double effectiveNumber(std::size_t index) const override;
    std::unique_ptr<FrameFilter> opened() const;

    std::unique_ptr<FrameFilter> filter_;
    cv::Mat_<short> samples_, result_;
};

std::unique_ptr<FrameFilter> FilterObject::opened() const
{
    const std::string_view name = kind().name;
    if (name == "temporal") {
        TemporalSettings settings;
        settings.globalThreshold = values().integer("global-threshold");
        settings.hwUnits = values().integer("hw-units") != 0;
        if (values().isChosen("control-gain"))
            settings.controlGain = values().integer("control-gain");
        if (values().isChosen("feedback-factor"))
            settings.feedbackFactor = values().integer("feedback-factor");
        return makeTemporalFilter(settings);
    }
    if (name == "static-pattern")
        return makePatternFilter(
            {values().integer("threshold"), values().integer("line-limit"), values().integer("frame-limit")});
    if (name == "spatial")
        return makeSpatialFilter(values().integer("gain"));
    UnsharpSettings settings{values().number("amount"), values().number("sigma"), std::nullopt};
    if (values().number("threshold") >= 0.0)
        settings.threshold = values().number("threshold");
    return makeUnsharpFilter(settings);
}

double FilterObject::effectiveNumber(std::size_t index) const
{
    const std::string& name = table()[index].name;
    const bool isUnits = name == "control-gain" || name == "feedback-factor";
    if (!isUnits || values().isChosen(index) || values().integer("hw-units") == 0)
        return values().number(index);
    return name == "control-gain" ? 16.0 : 1228.0;
}

void FilterObject::process(const vxkit_image& src, const vxkit_image& dst)
{
    const cv::Mat in = matrixOf(&src, frame(), "src");
    cv::Mat out = matrixOf(&dst, frame(), "dst");
    requireSampleTypes(src, dst);
    start();
    toSamples(in, samples_);
    filter_->process(samples_, result_);
    toFrame(result_, out);
}

class ClusterObject : public Object
{
public:
    ClusterObject(const Kind& kind, cv::Size frame) : Object(kind, frame) { requireFilterSize(frame); }

    void process(const vxkit_image& src, const vxkit_image& dst) override;
    void learn(std::span<const vxkit_image> frames) override;
    void learnStatistics(const vxkit_image& mean, const vxkit_image& deviation) override;
    cv::Mat result(const std::string& name) const override;

private:
    void open() override {}  // what filters comes of learning
    void close() noexcept override
    {
        signed_.reset();
        unsigned_.reset();
    }
    ClusterLimits limits() const;
    void learn(const SceneStatistics& statistics);

    // Of the same factors: for samples that are values, and for those that stand for a count.
    std::unique_ptr<ClusterFilter> signed_, unsigned_;
    cv::Mat_<short> samples_, result_;
};

ClusterLimits ClusterObject::limits() const
{
    return {values().integer("cluster-width"), values().integer("cluster-height"),
            values().number("std-dev-limit"),  values().number("alpha-damping"),
            values().number("mean-limit"),     values().integer("mode") == 0 ? "median" : "gaussian"};
}

void ClusterObject::learn(const SceneStatistics& statistics)
{
    start();
    auto forSigned = std::make_unique<ClusterFilter>(limits(), statistics, 0.0);
    unsigned_ = std::make_unique<ClusterFilter>(limits(), statistics, unsignedZero);
    signed_ = std::move(forSigned);
}

void ClusterObject::learn(std::span<const vxkit_image> frames)
{
    if (frames.size() < 2)
        throw Failure(VXKIT_OUT_OF_RANGE,
                      std::to_string(frames.size()) + " frames; expected at least two of a uniform scene");
    halvor::vx::PixelStatistics statistics;
    cv::Mat_<float> counts;
    for (const vxkit_image& image : frames) {
        const cv::Mat in = matrixOf(&image, frame(), "frames");
        if (image.type != VXKIT_U16 && image.type != VXKIT_I16)
            throw Failure(VXKIT_WRONG_TYPE, std::string("frames: found ") + vxkit_type_text(image.type) +
                                                "; expected u16 or i16");
        requireType(image, frames[0].type, "frames");
        in.convertTo(counts, CV_32F);
        statistics.add(counts);
    }
    learn({statistics.mean(), statistics.stdDev(), std::to_string(frames.size()) + " frames"});
}

void ClusterObject::learnStatistics(const vxkit_image& mean, const vxkit_image& deviation)
{
    const auto imageOf = [this](const vxkit_image& image, const char* what) {
        const cv::Mat in = matrixOf(&image, frame(), what);
        requireType(image, VXKIT_F32, what);
        if (!cv::checkRange(in))
            throw Failure(
                VXKIT_OUT_OF_RANGE,
                std::string(what) + ": some pixels are infinite or no numbers; expected finite ones");
        return in.clone();
    };
    learn({imageOf(mean, "mean"), imageOf(deviation, "deviation"), "statistics"});
}

void ClusterObject::process(const vxkit_image& src, const vxkit_image& dst)
{
    const cv::Mat in = matrixOf(&src, frame(), "src");
    cv::Mat out = matrixOf(&dst, frame(), "dst");
    requireSampleTypes(src, dst);
    if (!signed_)
        throw Failure(VXKIT_NOT_READY,
                      "nothing was learned; expected vxkit_learn or vxkit_learn_statistics first");
    toSamples(in, samples_);
    ClusterFilter& filter = src.type == VXKIT_U16 ? *unsigned_ : *signed_;
    filter.process(samples_, result_);
    toFrame(result_, out);
}

cv::Mat ClusterObject::result(const std::string& name) const
{
    if (name != "damping")
        refuseResult(name, "\"damping\"");
    if (!signed_)
        throw Failure(VXKIT_NOT_READY, "result \"damping\": nothing was learned");
    return signed_->damping();
}

}  // namespace

std::unique_ptr<Object> makeFilter(const Kind& kind, cv::Size frame)
{
    return std::make_unique<FilterObject>(kind, frame);
}

std::unique_ptr<Object> makeCluster(const Kind& kind, cv::Size frame)
{
    return std::make_unique<ClusterObject>(kind, frame);
}

}  // namespace vxc
