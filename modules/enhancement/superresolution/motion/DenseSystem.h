// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace halvor::vx {

/// A small symmetric system, positive definite where it can be solved.
template <std::size_t capacity>
struct DenseSystem
{
    explicit DenseSystem(std::size_t unknowns) : size(unknowns) {}

    /// Replaces the right side by the solution (Cholesky).
    /// @return false if the matrix is singular to working precision, or holds what is not finite
    bool solve()
    {
        constexpr double leastPivot = 1e-12;  // against the diagonal
        for (std::size_t i = 0; i < size; ++i) {
            const double diagonal = matrix[i][i];
            for (std::size_t j = 0; j <= i; ++j) {
                double sum = matrix[i][j];
                for (std::size_t k = 0; k < j; ++k)
                    sum -= matrix[i][k] * matrix[j][k];
                if (j < i)
                    matrix[i][j] = sum / matrix[j][j];
                else if (sum > leastPivot * diagonal && std::isfinite(sum))
                    matrix[i][i] = std::sqrt(sum);
                else
                    return false;
            }
        }
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t k = 0; k < i; ++k)
                right[i] -= matrix[i][k] * right[k];
            right[i] /= matrix[i][i];
        }
        for (std::size_t i = size; i-- > 0;) {
            for (std::size_t k = i + 1; k < size; ++k)
                right[i] -= matrix[k][i] * right[k];
            right[i] /= matrix[i][i];
        }
        return true;
    }

    std::size_t size;
    std::array<std::array<double, capacity>, capacity> matrix{};
    std::array<double, capacity> right{};
};

}  // namespace halvor::vx
