// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "support/Burst.h"

namespace vxtest {

/// What the fixed-point solvers are given: a simulated burst in hundredths of a degree whose frames need no
/// whole-pixel move.
struct FixedBurst
{
    FixedBurst(cv::Size size, vxsupport::SceneKind kind, std::size_t count = 5)
    {
        vxsupport::BurstSettings settings;
        settings.scene.kind = kind;
        settings.scene.frame = size;
        settings.shifts = {{0.3F, -0.4F}, {0.0F, 0.0F}, {-0.45F, 0.2F}, {0.2F, 0.45F}, {0.1F, -0.3F}};
        settings.frameCount = static_cast<int>(count);
        settings.shifts.resize(count, {-0.25F, -0.2F});
        const vxsupport::Burst burst = vxsupport::simulateBurst(settings);
        shifts = burst.shifts;
        for (const cv::Mat_<float>& frame : burst.frames) {
            cv::Mat_<short> counts;
            frame.convertTo(counts, CV_16S, 100.0);
            frames.emplace_back();
            counts.convertTo(frames.back(), CV_32F);
            masks.emplace_back(size, std::int8_t{1});
        }
        burst.truth.convertTo(truth, CV_32F, 100.0);
    }

    /// Sets a solver up, runs it and keeps its steps.
    template <typename Solver>
    cv::Mat_<float> solve(Solver& solver)
    {
        const auto count = static_cast<short>(frames.size());
        cv::Mat_<float> result(truth.size());
        solver.generatePsfs(count, shifts.data());
        steps = solver.minimize(count, 1, frames, masks, result);
        return result;
    }

    std::vector<cv::Mat_<float>> frames;
    std::vector<cv::Mat_<signed char>> masks;
    std::vector<PointF> shifts;
    cv::Mat_<float> truth;  // of the second frame
    short steps = 0;
};

}  // namespace vxtest
