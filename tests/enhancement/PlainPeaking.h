#pragma once

#include "enhancement/peaking.h"

namespace plain {

/// The sharpener pixel by pixel, as the double for the fast form.
class Peaking
{
public:
    Peaking(int cols, int rows) : cols_(cols), rows_(rows) {}

    PeakingParam param;

    void ProcessFrame(const int* in, int* out, const double* localGain) const;

private:
    int cols_;
    int rows_;
};

}  // namespace plain
