// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "enhancement/histogram.h"

/// Room for the binary block of any width.
inline constexpr int binRoom = 70000;

inline HistogramParam hardwareBranch(int mode)
{
    HistogramParam param;
    param.mode = mode;
    param.hw = 1;
    param.gainlow = 2;
    param.gainhigh = 150;
    return param;
}

/// A step of one sample is a step of one bin, counted from the smallest one.
class EqualiserScale : public testing::Test
{
protected:
    void SetUp() override
    {
        equaliser_.param.rangedis = 1;
        equaliser_.param.poffdis = 1;
        measure({0, 0, 3, 255});
    }
    void measure(const std::vector<int>& frame)
    {
        equaliser_.MeasureFrame(0, frame.data(), nullptr);
        equaliser_.MeasureFrame(0, frame.data(), nullptr);
    }
    std::vector<int> bins(int first, int count)
    {
        return {equaliser_.getBins() + first, equaliser_.getBins() + first + count};
    }

    Histogram equaliser_{4, 1};
};
