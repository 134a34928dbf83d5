#pragma once

#include <vector>

#include "PlainHstCmod.h"
#include "enhancement/histogram.h"

namespace plain {

/// The equaliser pixel by pixel, as the double for the fast form. Legal widths, ranges and speeds only.
class Histogram
{
public:
    Histogram(int cols, int rows);

    HistogramParam param;

    void MeasureFrame(int frame, const int* in, int* binData);
    void ProcessFrame(const int* in, int* out);
    int ProcessPixel(int pixel);
    void Update(int frame);
    void Update(int frame, int low, int high);
    void WriteBinData(int* out) const;
    void ReadBinData(const int* in, int bias);

    std::vector<int> bins, gainTable, transferCurve;
    std::vector<double> localGain, histoEqu;
    int pgain, min = 32767, max = -32768, lo = -32768, hi = 32767, rangeUsed = 0, poffset = 0;
    bool hasInvalidPixels = false;
    bool bypass = false;

private:
    struct Scaled
    {
        int bin;
        int frac;
    };
    Scaled scale(int pixel) const;
    void measureSoftware(int frame, const int* in);

    int cols_, rows_;
    int lastFrame_ = 0;
    int holdLow_ = 0, holdHigh_ = 0;
    HstCmod hstCmod_;
};

}  // namespace plain
