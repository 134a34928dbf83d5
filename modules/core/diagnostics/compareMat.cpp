// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/compareMat.h"

#include <cmath>
#include <sstream>

namespace halvor::vx {

namespace {

struct Differences
{
    long count = 0;
    double largest = 0.0;
    cv::Point first{-1, -1};
};

bool differs(double a, double b, double tolerance)
{
    if (a == b || (std::isnan(a) && std::isnan(b)))
        return false;
    return !(std::abs(a - b) <= tolerance);
}

Differences findDifferences(const cv::Mat_<double>& a, const cv::Mat_<double>& b, double tolerance)
{
    Differences found;
    for (int y = 0; y < a.rows; ++y) {
        for (int x = 0; x < a.cols; ++x) {
            if (!differs(a(y, x), b(y, x), tolerance))
                continue;
            if (found.count++ == 0)
                found.first = {x, y};
            const double difference = std::abs(a(y, x) - b(y, x));
            if (!(difference <= found.largest))
                found.largest = difference;
        }
    }
    return found;
}

}  // namespace

bool compareMat(DebugChannel* channel, const cv::Mat& a, const cv::Mat& b, const std::string& nameA,
                const std::string& nameB, float tolerance)
{
    constexpr int level = 2;
    std::ostringstream report;
    if (a.size() != b.size() || a.channels() != 1 || b.channels() != 1) {
        report << nameA << " (" << a.cols << "x" << a.rows << "x" << a.channels() << ") and " << nameB << " ("
               << b.cols << "x" << b.rows << "x" << b.channels() << ") have different shapes";
    } else {
        cv::Mat_<double> wideA;
        cv::Mat_<double> wideB;
        a.convertTo(wideA, CV_64F);
        b.convertTo(wideB, CV_64F);
        const Differences found = findDifferences(wideA, wideB, static_cast<double>(tolerance));
        if (found.count == 0)
            return true;
        report << nameA << " and " << nameB << " differ by more than " << tolerance << " at " << found.count
               << " pixels, first at (" << found.first.x << ", " << found.first.y << "), by up to "
               << found.largest;
    }
    if (channel != nullptr)
        channel->send(report.str(), level);
    return false;
}

}  // namespace halvor::vx
