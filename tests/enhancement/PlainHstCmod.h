#pragma once

namespace plain {

/// The histogram measuring block pixel by pixel, as the double for the fast form.
class HstCmod
{
public:
    HstCmod(int cols, int rows, int speedUp, int speedDown, int holdFrames, int minRange, int offsetDisable,
            int rangeDisable);
    void MeasureFrame(const int* in);
    void GetBinData(int* out);

private:
    int bins_[256] = {};
    int min_ = 0, max_ = 0, lo_ = 0, hi_ = 0, gain_ = 0, offset_ = 0;
    int cols_, rows_;
    int holdLow_ = 0, holdHigh_ = 0;
    int speedUp_, speedDown_, holdFrames_, minRange_, offsetDisable_, rangeDisable_;
    int binSize_;
    bool firstFrame_ = true, firstRead_ = true;
};

}  // namespace plain
