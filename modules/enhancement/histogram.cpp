// SPDX-License-Identifier: Apache-2.0
#include "enhancement/histogram.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "core/base/WrapArithmetic.h"
#include "enhancement/ParameterFile.h"
#include "enhancement/arithmetic/HistogramScale.h"
#include "enhancement/arithmetic/PixelConversion.h"
#include "enhancement/arithmetic/RecursiveFilter.h"

using namespace halvor::vx;

namespace {

constexpr int markModeOn[2] = {0x5678, 0x1234};
constexpr int expansionHold = 16;  // frames for which a range that grew does not shrink

// The rank below which `thousandths` of the pixels lie; needs the quotient in floating point.
int rankOf(int pixels, int thousandths)
{
    return static_cast<int>(std::floor(static_cast<double>(pixels) * thousandths / 1000.0 + 0.5));
}

double curveExponent(int gamma)
{
    return gamma >= 0 ? wrapAdd(gamma, 10) / 10.0 : 10.0 / wrapSub(10, gamma);
}

}  // namespace

Histogram::Histogram(int frameCols, int frameRows)
    : bins_(tableSize),
      gainTable_(tableSize),
      transferCurve_(tableSize),
      localGain_(tableSize),
      histoEqu_(tableSize),
      pgain_(256 << (maxWidth - param.width)),
      cols_(frameCols),
      rows_(frameRows),
      pixelCount_(cols_ * rows_),
      hstCmod_(
          std::make_unique<HstCmod>(cols_, rows_, 1, 1, 1, 1 << param.range, param.poffdis, param.rangedis))
{
    param.gainlow = rankOf(pixelCount_, 1);
    param.gainhigh = rankOf(pixelCount_, 999);
    for (int i = 0; i <= 1 << param.width; ++i) {
        gainTable_[static_cast<std::size_t>(i)] = i << (maxWidth - param.width);
        localGain_[static_cast<std::size_t>(i)] = 1.0;
    }
}

void Histogram::SetParam(const char* fileName)
{
    ParameterFile file(fileName);
    if (!file.isOpen()) {
        std::printf("histo: Cannot read %s\n", fileName != nullptr ? fileName : "(null)");
        return;
    }
    struct Key
    {
        const char* text;
        int HistogramParam::*field;
    };
    static constexpr Key keys[] = {
        {"mode=", &HistogramParam::mode},         {"width=", &HistogramParam::width},
        {"range=", &HistogramParam::range},       {"offset=", &HistogramParam::offset},
        {"speed=", &HistogramParam::speed},       {"gamma=", &HistogramParam::gamma},
        {"rangedis=", &HistogramParam::rangedis}, {"poffdis=", &HistogramParam::poffdis},
        {"limit=", &HistogramParam::limit},       {"gain=", &HistogramParam::gain},
        {"gainlow=", &HistogramParam::gainlow},   {"gainhigh=", &HistogramParam::gainhigh}};
    while (file.next()) {
        if (!file.inSection("Histogram_Parameter]"))
            continue;
        for (const Key& key : keys)
            file.readInteger(key.text, param.*key.field);
    }
}

void Histogram::MeasureFrame(int frame, const int* in, int* binData)
{
    if (param.hw != 0) {
        hstCmod_->MeasureFrame(in);
        hstCmod_->GetBinData(binData);
        ReadBinData(binData, 32768);
    } else {
        countPixels(in);
        filterRange(frame);
        computeGain();
    }
    WriteBinData(binData);
}

void Histogram::MeasureFrame(int frame, ChainMatrix& in, ChainMatrix& binData)
{
    MeasureFrame(frame, in.row(0), binData.row(0));
}

void Histogram::MeasureFrame(int frame, ChainMatrix& in)
{
    MeasureFrame(frame, in.row(0), nullptr);
}

void Histogram::countPixels(const int* in)
{
    const int binCount = 1 << legalWidth();
    std::fill_n(bins_.begin(), binCount, 0);
    min_ = 32767;
    max_ = -32768;
    hasInvalidPixels_ = false;
    const HistogramScale scale = currentScale();
    const int toSixteenths = std::max(0, 11 - legalWidth());
    const int lastSplit = param.tridis == 0 ? binCount - 1 : 0;
    int position[chunkSize];
    for (int start = 0; start < pixelCount_; start += chunkSize) {
        const int n = std::min(chunkSize, pixelCount_ - start);
        scaleSamples(scale, in + start, position, n);
        for (int i = 0; i < n; ++i) {
            const int pixel = in[start + i];
            if (pixel == 32767 || pixel == -32768) {
                hasInvalidPixels_ = true;
            } else {
                max_ = std::max(max_, pixel);
                min_ = std::min(min_, pixel);
            }
            const int bin = scale.bin(position[i]);
            const int share = bin < lastSplit ? scale.frac(position[i]) >> toSixteenths : 0;
            bins_[static_cast<std::size_t>(bin)] += 16 - share;
            bins_[static_cast<std::size_t>(bin) + 1] += share;
        }
    }
}

void Histogram::filterRange(int frame)
{
    if (frame == lastFrame_) {
        hi_ = max_;
        lo_ = min_;
        return;
    }
    lastFrame_ = frame;
    const int expansionSpeed = std::max(0, legalShift(param.speed) - 4);
    if (min_ < lo_) {
        speedLow_ = expansionSpeed;
        holdLow_ = expansionHold;
        lo_ = roundedFilterStep(lo_, min_, speedLow_);
    }
    if (max_ > hi_) {
        speedHigh_ = expansionSpeed;
        holdHigh_ = expansionHold;
        hi_ = roundedFilterStep(hi_, max_, speedHigh_);
    }
    if (holdLow_ == 0)
        lo_ = roundedFilterStep(lo_, min_, legalShift(param.speed));
    else
        --holdLow_;
    if (holdHigh_ == 0)
        hi_ = roundedFilterStep(hi_, max_, legalShift(param.speed));
    else
        --holdHigh_;
}

void Histogram::computeGain()
{
    const int range = wrapAdd(wrapSub(hi_, lo_), 1);
    rangeUsed_ = std::max(powerOfTwo(param.range), range);
    if (param.rangedis == 0)
        pgain_ = std::clamp(truncateToInt(std::floor(8388608.0 / rangeUsed_ + 0.5)), 256, 65536);
    else
        pgain_ = 1 << (23 - legalWidth());
    poffset_ = 0;
    if (param.poffdis == 0) {
        const int spread = wrapAdd(wrapMul(range, pgain_), 128) >> 8;
        poffset_ = std::clamp(wrapSub(32769, spread) >> 1, 0, 16383);
    }
}

void Histogram::Update(int frame)
{
    accumulate();
    buildGainTable(frame);
    sampleCurve();
    initializedGain_ = 1;
}

// Running sum over the bins of what each contributes to the curve.
void Histogram::accumulate()
{
    double equ = 0.0;
    int cum = 0;
    for (std::size_t i = 0; i < std::size_t{1} << legalWidth(); ++i) {
        const int h = bins_[i];
        cum = wrapAdd(cum, h);
        switch (param.mode) {
            case 2:
                equ += cum >= wrapMul(param.gainlow, 16) && cum <= wrapMul(param.gainhigh, 16) ? param.gain
                                                                                               : 1.0;
                break;
            case 3:
                equ += std::max(std::min(h, param.limit), 1);
                break;
            case 4:
                equ = cum;
                break;
            default:
                equ = static_cast<double>(i + 1);
        }
        histoEqu_[i] = equ;
    }
}

void Histogram::buildGainTable(int frame)
{
    const std::size_t binCount = std::size_t{1} << legalWidth();
    const double total = histoEqu_[binCount - 1];
    gainTable_[0] = 0;
    // A histogram without weight says nothing about the scene: the curve stays.
    if (total == 0.0)
        return;
    const double exponent = curveExponent(param.gamma);
    for (std::size_t i = 0; i < binCount; ++i) {
        const double share = std::pow(histoEqu_[i] / total, exponent);
        const int value = truncateToInt(std::floor(share * 32768.0 + 0.5));
        int& entry = gainTable_[i + 1];
        entry = frame == lastFrame_ ? value : roundedFilterStep(entry, value, legalShift(param.speed));
    }
}

// Maps evenly spaced samples of the measured range, which refreshes the local gain all over it.
void Histogram::sampleCurve()
{
    const int binCount = 1 << legalWidth();
    const float step = static_cast<float>(wrapAbs(wrapSub(max_, min_))) / static_cast<float>(binCount);
    for (int i = 0; i < binCount; ++i) {
        const float sample = static_cast<float>(i) * step + static_cast<float>(min_);
        transferCurve_[static_cast<std::size_t>(i)] = ProcessPixel(truncateToInt(sample));
    }
}

void Histogram::Update(int frame, int low, int high)
{
    const int binCount = 1 << legalWidth();
    const float range = static_cast<float>(wrapAbs(wrapSub(max_, min_)));
    const auto binOf = [&](int sample) {
        const float share = static_cast<float>(wrapSub(sample, min_)) / range;
        return std::clamp(truncateToInt(share * static_cast<float>(binCount)), 0, binCount - 1);
    };
    const int first = binOf(low);
    const int last = binOf(high);
    if (low < min_)
        bins_[static_cast<std::size_t>(first)] = 1;
    if (high > max_)
        bins_[static_cast<std::size_t>(last)] = 1;
    for (int i = 0; i < binCount; ++i)
        if (i < first || i > last)
            bins_[static_cast<std::size_t>(i)] = 0;
    Update(frame);
}

void Histogram::WriteBinData(int* out) const
{
    if (out == nullptr)
        return;
    const int binCount = 1 << legalWidth();
    for (int i = 0; i < binCount; ++i) {
        *out++ = bins_[static_cast<std::size_t>(i)] & 0xFFFF;
        *out++ = bins_[static_cast<std::size_t>(i)] >> 16;
    }
    for (const int value : {min_, max_, lo_, hi_, pgain_, poffset_})
        *out++ = value;
    for (const int mark : markModeOn)
        *out++ = param.mode != 0 ? mark : 0;
}

void Histogram::ReadBinData(const int* in, int bias)
{
    if (in == nullptr)
        return;
    const int binCount = 1 << legalWidth();
    for (int i = 0; i < binCount; ++i, in += 2)
        bins_[static_cast<std::size_t>(i)] = wrapAdd(in[0], wrapMul(in[1], 65536));
    for (int* value : {&min_, &max_, &lo_, &hi_})
        *value = wrapSub(*in++, bias);
    pgain_ = *in++ >> 1;
    poffset_ = *in >> 1;
}

void Histogram::importAttachmentData(const int* storedBins, short storedMin, short storedMax, short storedLo,
                                     short storedHi, unsigned short storedPgain, unsigned short storedPoffset)
{
    if (storedBins == nullptr)
        return;
    std::copy_n(storedBins, std::size_t{1} << legalWidth(), bins_.begin());
    min_ = storedMin;
    max_ = storedMax;
    lo_ = storedLo;
    hi_ = storedHi;
    pgain_ = storedPgain >> 1;
    poffset_ = storedPoffset >> 1;
}

int Histogram::BinDataRoom() const
{
    return std::max(hstCmod_->BinDataSize(), 2 * (1 << maxWidth) + 8);
}

int Histogram::legalWidth() const
{
    return std::clamp(param.width, 0, maxWidth);
}

HistogramScale Histogram::currentScale() const
{
    return {lo_, pgain_, wrapAdd(poffset_, param.offset), maxWidth - legalWidth()};
}
