// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/ChainObject.h"

#include <array>
#include <cmath>
#include <optional>
#include <utility>

#include "bindings/c/Failure.h"
#include "bindings/c/Images.h"
#include "support/drivers/ChainTable.h"

namespace vxc {

namespace {

using halvor::vx::ChainMatrix;
using halvor::vx::MARLOImageEnhancer;
using vxsupport::ChainSetting;
using vxsupport::ChainSettings;

/// What the chain and a block alone have in common: settings, and the chain that holds the blocks.
class ChainBase : public Object
{
public:
    ChainBase(const Kind& kind, cv::Size frame, std::optional<std::size_t> block);

protected:
    bool isEqualised() const { return settings_.histMode != 0; }
    MARLOImageEnhancer& chain() { return *chain_; }
    const MARLOImageEnhancer& chain() const { return *chain_; }
    bool wasUsed() const { return chain_.has_value(); }
    /// @throws Failure  unless src is of a frame's type, and dst of what becomes of it
    void requireTypes(const vxkit_image& src, const vxkit_image& dst, bool givesLevels) const;

private:
    void open() override;
    void close() noexcept override { chain_.reset(); }
    void apply(std::size_t index) override;
    double effectiveNumber(std::size_t index) const override;

    std::string nameIn(const ChainSetting& setting) const
    {
        return block_ ? std::string(setting.option) : nameOf(setting);
    }
    ChainSettings chosenSettings() const;

    std::optional<std::size_t> block_;
    ChainSettings settings_;
    std::optional<MARLOImageEnhancer> chain_;
};

ChainBase::ChainBase(const Kind& kind, cv::Size size, std::optional<std::size_t> block)
    : Object(kind, size), block_(block)
{
    requireFilterSize(size);
    const ChainSettings usual = vxsupport::usualChainSettings(size);
    for (const ChainSetting& setting : vxsupport::chainTable())
        if (setting.isRank() && (!block || setting.block == *block))
            presume(nameIn(setting), usual.*setting.field);
    openFirst();
}

ChainSettings ChainBase::chosenSettings() const
{
    ChainSettings settings = vxsupport::usualChainSettings(frame());
    const auto blocks = vxsupport::chainBlocks();
    for (const ChainSetting& setting : vxsupport::chainTable())
        if (!block_ || setting.block == *block_)
            settings.*setting.field = values().integer(nameIn(setting).c_str());
    if (!block_)
        for (const vxsupport::ChainBlock& block : blocks)
            if (values().integer(block.prefix) == 0)
                settings.*block.enabled = 0;
    if (settings.histGainLow > settings.histGainHigh)
        throw Failure(VXKIT_OUT_OF_RANGE, "the lower rank, " + std::to_string(settings.histGainLow) +
                                              ": expected at most the upper one, " +
                                              std::to_string(settings.histGainHigh));
    return settings;
}

void ChainBase::open()
{
    const ChainSettings settings = chosenSettings();
    chain_.emplace(vxsupport::openChain(settings, frame()));
    settings_ = settings;
}

void ChainBase::apply(std::size_t /*index*/)
{
    settings_ = chosenSettings();
    vxsupport::changeChain(*chain_, settings_);
}

// The mode "off" and the switch of the block say the same.
double ChainBase::effectiveNumber(std::size_t index) const
{
    if (!block_ && table()[index].name == "hist" && values().integer("hist-mode") == 0)
        return 0.0;
    return values().number(index);
}

void ChainBase::requireTypes(const vxkit_image& src, const vxkit_image& dst, bool givesLevels) const
{
    const auto isSample = [](vxkit_type type) { return type == VXKIT_U16 || type == VXKIT_I16; };
    if (!isSample(src.type))
        throw Failure(VXKIT_WRONG_TYPE,
                      std::string("src: found ") + vxkit_type_text(src.type) + "; expected u16 or i16");
    if (givesLevels && !isSample(dst.type))
        throw Failure(VXKIT_WRONG_TYPE,
                      std::string("dst: found ") + vxkit_type_text(dst.type) + "; expected u16 or i16");
    if (!givesLevels)
        requireType(dst, src.type, "dst");
}

class WholeChain : public ChainBase
{
public:
    WholeChain(const Kind& kind, cv::Size frame) : ChainBase(kind, frame, std::nullopt) {}

    void process(const vxkit_image& src, const vxkit_image& dst) override;
    cv::Mat result(const std::string& name) const override;

private:
    cv::Mat_<short> input_, output_;
};

void WholeChain::process(const vxkit_image& src, const vxkit_image& dst)
{
    const cv::Mat in = matrixOf(&src, frame(), "src");
    cv::Mat out = matrixOf(&dst, frame(), "dst");
    requireTypes(src, dst, isEqualised());
    start();
    const bool isPlain = in.depth() == CV_16S;
    if (!isPlain)
        toSamples(in, input_);
    cv::Mat_<short> samples = isPlain ? cv::Mat_<short>(in) : input_;
    if (isPlain || isEqualised()) {
        // Levels fit both types.
        cv::Mat_<short> result(out.rows, out.cols, out.ptr<short>(), out.step);
        chain().processFrame(samples, result);
    } else {
        chain().processFrame(samples, output_);
        toFrame(output_, out);
    }
}

cv::Mat WholeChain::result(const std::string& name) const
{
    constexpr std::array<std::pair<const char*, ChainMatrix* (MARLOImageEnhancer::*)() const>, 4> stages{{
        {"after-temporal", &MARLOImageEnhancer::getTNRArray},
        {"after-pattern", &MARLOImageEnhancer::getSPRArray},
        {"after-spatial", &MARLOImageEnhancer::getSNRArray},
        {"after-histogram", &MARLOImageEnhancer::getHistoArray},
    }};
    for (const auto& [known, array] : stages) {
        if (name != known)
            continue;
        if (!wasUsed() || chain().getFrameCount() == 0)
            throw Failure(VXKIT_NOT_READY, "result \"" + name + "\": no frame so far");
        return (chain().*array)()->image();
    }
    refuseResult(name, "\"after-temporal\", \"after-pattern\", \"after-spatial\" and \"after-histogram\"");
}

class OneBlock : public ChainBase
{
public:
    OneBlock(const Kind& kind, cv::Size frame, std::size_t block)
        : ChainBase(kind, frame, block), block_(block), in_(frame), out_(frame)
    {}

    void process(const vxkit_image& src, const vxkit_image& dst) override;

private:
    bool isEqualiser() const { return block_ == 3; }
    void run();
    void equalise();

    std::size_t block_;
    cv::Mat_<short> samples_;
    cv::Mat_<int> in_, out_;
};

void OneBlock::process(const vxkit_image& src, const vxkit_image& dst)
{
    const cv::Mat in = matrixOf(&src, frame(), "src");
    cv::Mat out = matrixOf(&dst, frame(), "dst");
    const bool givesLevels = isEqualiser() && isEqualised();
    requireTypes(src, dst, givesLevels);
    start();
    toSamples(in, samples_);
    samples_.convertTo(in_, CV_32S);
    run();
    // The low 16 bits, as the chain gives them.
    for (int y = 0; y < out_.rows; ++y)
        std::transform(out_[y], out_[y] + out_.cols, samples_[y],
                       [](int sample) { return static_cast<short>(sample); });
    if (givesLevels)
        samples_.convertTo(out, out.depth());
    else
        toFrame(samples_, out);
}

void OneBlock::run()
{
    switch (block_) {
        case 0:
            return chain().getTNRModule()->ProcessFrame(in_[0], out_[0]);
        case 1:
            return chain().getSPRModule()->ProcessFrame(in_[0], out_[0]);
        case 2:
            return chain().getSNRModule()->ProcessFrame(in_[0], out_[0]);
        case 3:
            return equalise();
        default:
            return chain().getPeakingDSPMod()->ProcessFrame(in_[0], out_[0], nullptr);
    }
}

// As in the chain: measured by the model of the hardware, mapped by the table of the frame before.
void OneBlock::equalise()
{
    Histogram& histogram = *chain().getHistogramObject();
    const int frameNumber = static_cast<int>(histogram.initializedGain());
    histogram.param.hw = 1;
    histogram.MeasureFrame(frameNumber, in_[0], chain().getHistoBinArray()->row(0));
    histogram.ProcessFrame(frameNumber, in_[0], out_[0]);
    histogram.Update(frameNumber);
}

std::size_t blockOf(const Kind& kind)
{
    const auto blocks = vxsupport::chainBlocks();
    for (std::size_t block = 0; block < blocks.size(); ++block)
        if (std::string(kind.name) == blocks[block].prefix)
            return block;
    throw Failure(VXKIT_FAILED, std::string("no block is called ") + kind.name);
}

}  // namespace

void requireFilterSize(cv::Size frame)
{
    if (frame.width < 2)
        throw Failure(VXKIT_OUT_OF_RANGE, "size " + std::to_string(frame.width) + "x" +
                                              std::to_string(frame.height) +
                                              ": expected at least two columns");
}

std::unique_ptr<Object> makeChain(const Kind& kind, cv::Size frame)
{
    return std::make_unique<WholeChain>(kind, frame);
}

std::unique_ptr<Object> makeBlock(const Kind& kind, cv::Size frame)
{
    return std::make_unique<OneBlock>(kind, frame, blockOf(kind));
}

}  // namespace vxc
