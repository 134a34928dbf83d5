// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace halvor::vx {

/// A symmetric, positive definite system whose matrix is 0 but for a band around its diagonal. All memory is
/// allocated by the constructor.
class BandedSystem
{
public:
    /// @param reach  largest difference of row and column
    BandedSystem(int unknowns, int reach);

    void clear();
    /// Adds to the entry of a row and a column, of which the column is the smaller one or the same.
    void add(int row, int column, double value) { at(row, column) += value; }
    double& right(int row) { return right_[static_cast<std::size_t>(row)]; }

    /// Replaces the right side by the solution (Cholesky). The matrix is used up.
    /// @return false if the matrix is not positive definite
    bool solve();

private:
    double* column(int index) { return &matrix_[static_cast<std::size_t>(index) * pitch_]; }
    double& at(int row, int index) { return column(index)[row - index]; }

    int unknowns_;
    int reach_;
    std::size_t pitch_;
    std::vector<double> matrix_;  // by columns, from the diagonal down
    std::vector<double> right_;
};

}  // namespace halvor::vx
