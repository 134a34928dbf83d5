// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace halvor::vx {

/// Sum whose bits do not depend on the number of threads.
///
/// A parallel loop stores one partial sum per row, each row by whichever thread has it; total() then adds the
/// rows in ascending order. Storage is allocated once, at construction.
template <typename Sum>
class RowSums
{
public:
    explicit RowSums(int rows) : sums_(static_cast<std::size_t>(rows)) {}

    Sum& operator[](int row) { return sums_[static_cast<std::size_t>(row)]; }

    /// The rows first to first + count - 1, added in this order.
    Sum total(int first, int count) const
    {
        Sum sum{};
        for (int row = first; row < first + count; ++row)
            sum += sums_[static_cast<std::size_t>(row)];
        return sum;
    }

    Sum total() const { return total(0, static_cast<int>(sums_.size())); }

private:
    std::vector<Sum> sums_;
};

/// Sum of term(i) for i below n, in doubles, over interleaved partial sums: a fixed order that a vectorising
/// compiler can follow without reassociating anything.
///
/// @tparam lanes  number of partial sums; more of them hide the latency of the additions
/// @param term    callable from int to float or double
template <int lanes = 8, typename Term>
inline double laneSum(int n, Term term)
{
    double partial[lanes] = {};
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        for (int lane = 0; lane < lanes; ++lane)
            partial[lane] += static_cast<double>(term(i + lane));
    for (int lane = 0; i < n; ++i, ++lane)
        partial[lane] += static_cast<double>(term(i));
    double sum = 0.0;
    for (const double p : partial)
        sum += p;
    return sum;
}

}  // namespace halvor::vx
