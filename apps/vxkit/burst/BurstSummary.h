// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

#include "apps/vxkit/burst/BurstEngine.h"
#include "apps/vxkit/output/Output.h"

namespace vxapp {

/// One line of what the engine of local motion tells of a result; empty where it tells nothing.
///
/// @param unit  of the noise in the answer, which is in that of the results
std::string motionText(const BurstAnswer& answer, Unit unit);

/// What came of a run: how many results with which codes, and the frames that had little or no part in them.
class BurstSummary
{
public:
    explicit BurstSummary(int frameHeight) : frameHeight_(frameHeight) {}

    /// @param number     of the newest frame
    /// @param reference  place of the reference in the window, counted back from the newest
    void add(int number, const BurstAnswer& answer, int reference);
    /// A result was replaced by a plain enlargement.
    void addFilled() { ++filled_; }

    int results() const { return results_; }
    int filled() const { return filled_; }
    /// Several lines for people.
    std::string text() const;

private:
    struct Neglected
    {
        int windows = 0;
        std::string reason;  // of the first
    };

    std::string reasonFor(const BurstAnswer& answer, std::size_t place) const;

    int frameHeight_;
    int results_ = 0;
    int filled_ = 0;
    std::map<int, int> codes_;
    std::map<int, Neglected> neglected_;  // by frame number
};

}  // namespace vxapp
