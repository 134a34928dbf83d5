#include "enhancement/histogram.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "core/base/WrapArithmetic.h"
#include "enhancement/HistogramScale.h"
#include "enhancement/ParameterFile.h"
#include "enhancement/PixelConversion.h"
#include "enhancement/RecursiveFilter.h"

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
    : bins(tableSize),
      gainTable(tableSize),
      transferCurve(tableSize),
      localGain(tableSize),
      histoEqu(tableSize),
      pgain(256 << (maxWidth - param.width)),
      cols(frameCols),
      rows(frameRows),
      pixelCount(cols * rows),
      hstCmod(std::make_unique<HstCmod>(cols, rows, 1, 1, 1, 1 << param.range, param.poffdis, param.rangedis))
{
    param.gainlow = rankOf(pixelCount, 1);
    param.gainhigh = rankOf(pixelCount, 999);
    for (int i = 0; i <= 1 << param.width; ++i) {
        gainTable[static_cast<std::size_t>(i)] = i << (maxWidth - param.width);
        localGain[static_cast<std::size_t>(i)] = 1.0;
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
        hstCmod->MeasureFrame(in);
        hstCmod->GetBinData(binData);
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
    std::fill_n(bins.begin(), binCount, 0);
    min = 32767;
    max = -32768;
    hasInvalidPixels = false;
    const HistogramScale scale = currentScale();
    const int toSixteenths = std::max(0, 11 - legalWidth());
    const int lastSplit = param.tridis == 0 ? binCount - 1 : 0;
    int position[chunkSize];
    for (int start = 0; start < pixelCount; start += chunkSize) {
        const int n = std::min(chunkSize, pixelCount - start);
        scaleSamples(scale, in + start, position, n);
        for (int i = 0; i < n; ++i) {
            const int pixel = in[start + i];
            if (pixel == 32767 || pixel == -32768) {
                hasInvalidPixels = true;
            } else {
                max = std::max(max, pixel);
                min = std::min(min, pixel);
            }
            const int bin = scale.bin(position[i]);
            const int share = bin < lastSplit ? scale.frac(position[i]) >> toSixteenths : 0;
            bins[static_cast<std::size_t>(bin)] += 16 - share;
            bins[static_cast<std::size_t>(bin) + 1] += share;
        }
    }
}

void Histogram::filterRange(int frame)
{
    if (frame == lastFrame) {
        hi = max;
        lo = min;
        return;
    }
    lastFrame = frame;
    const int expansionSpeed = std::max(0, legalShift(param.speed) - 4);
    if (min < lo) {
        speedLow = expansionSpeed;
        holdLow = expansionHold;
        lo = roundedFilterStep(lo, min, speedLow);
    }
    if (max > hi) {
        speedHigh = expansionSpeed;
        holdHigh = expansionHold;
        hi = roundedFilterStep(hi, max, speedHigh);
    }
    if (holdLow == 0)
        lo = roundedFilterStep(lo, min, legalShift(param.speed));
    else
        --holdLow;
    if (holdHigh == 0)
        hi = roundedFilterStep(hi, max, legalShift(param.speed));
    else
        --holdHigh;
}

void Histogram::computeGain()
{
    const int range = wrapAdd(wrapSub(hi, lo), 1);
    rangeUsed = std::max(powerOfTwo(param.range), range);
    if (param.rangedis == 0)
        pgain = std::clamp(truncateToInt(std::floor(8388608.0 / rangeUsed + 0.5)), 256, 65536);
    else
        pgain = 1 << (23 - legalWidth());
    poffset = 0;
    if (param.poffdis == 0) {
        const int spread = wrapAdd(wrapMul(range, pgain), 128) >> 8;
        poffset = std::clamp(wrapSub(32769, spread) >> 1, 0, 16383);
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
        const int h = bins[i];
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
        histoEqu[i] = equ;
    }
}

void Histogram::buildGainTable(int frame)
{
    const std::size_t binCount = std::size_t{1} << legalWidth();
    const double total = histoEqu[binCount - 1];
    gainTable[0] = 0;
    // A histogram without weight says nothing about the scene: the curve stays.
    if (total == 0.0)
        return;
    const double exponent = curveExponent(param.gamma);
    for (std::size_t i = 0; i < binCount; ++i) {
        const double share = std::pow(histoEqu[i] / total, exponent);
        const int value = truncateToInt(std::floor(share * 32768.0 + 0.5));
        int& entry = gainTable[i + 1];
        entry = frame == lastFrame ? value : roundedFilterStep(entry, value, legalShift(param.speed));
    }
}

// Maps evenly spaced samples of the measured range, which refreshes the local gain all over it.
void Histogram::sampleCurve()
{
    const int binCount = 1 << legalWidth();
    const float step = static_cast<float>(wrapAbs(wrapSub(max, min))) / static_cast<float>(binCount);
    for (int i = 0; i < binCount; ++i) {
        const float sample = static_cast<float>(i) * step + static_cast<float>(min);
        transferCurve[static_cast<std::size_t>(i)] = ProcessPixel(truncateToInt(sample));
    }
}

void Histogram::Update(int frame, int low, int high)
{
    const int binCount = 1 << legalWidth();
    const float range = static_cast<float>(wrapAbs(wrapSub(max, min)));
    const auto binOf = [&](int sample) {
        const float share = static_cast<float>(wrapSub(sample, min)) / range;
        return std::clamp(truncateToInt(share * static_cast<float>(binCount)), 0, binCount - 1);
    };
    const int first = binOf(low);
    const int last = binOf(high);
    if (low < min)
        bins[static_cast<std::size_t>(first)] = 1;
    if (high > max)
        bins[static_cast<std::size_t>(last)] = 1;
    for (int i = 0; i < binCount; ++i)
        if (i < first || i > last)
            bins[static_cast<std::size_t>(i)] = 0;
    Update(frame);
}

void Histogram::WriteBinData(int* out) const
{
    if (out == nullptr)
        return;
    const int binCount = 1 << legalWidth();
    for (int i = 0; i < binCount; ++i) {
        *out++ = bins[static_cast<std::size_t>(i)] & 0xFFFF;
        *out++ = bins[static_cast<std::size_t>(i)] >> 16;
    }
    for (const int value : {min, max, lo, hi, pgain, poffset})
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
        bins[static_cast<std::size_t>(i)] = wrapAdd(in[0], wrapMul(in[1], 65536));
    for (int* value : {&min, &max, &lo, &hi})
        *value = wrapSub(*in++, bias);
    pgain = *in++ >> 1;
    poffset = *in >> 1;
}

void Histogram::importAttachmentData(const int* storedBins, short storedMin, short storedMax, short storedLo,
                                     short storedHi, unsigned short storedPgain, unsigned short storedPoffset)
{
    if (storedBins == nullptr)
        return;
    std::copy_n(storedBins, std::size_t{1} << legalWidth(), bins.begin());
    min = storedMin;
    max = storedMax;
    lo = storedLo;
    hi = storedHi;
    pgain = storedPgain >> 1;
    poffset = storedPoffset >> 1;
}

int Histogram::BinDataRoom() const
{
    return std::max(hstCmod->BinDataSize(), 2 * (1 << maxWidth) + 8);
}

int Histogram::legalWidth() const
{
    return std::clamp(param.width, 0, maxWidth);
}

HistogramScale Histogram::currentScale() const
{
    return {lo, pgain, wrapAdd(poffset, param.offset), maxWidth - legalWidth()};
}
