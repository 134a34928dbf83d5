// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "core/base/Exception.h"

/// Image buffer of the enhancer chain: row after row without a gap, so that `cols` is the stride.
///
/// The elements are either the object's own, zero at first, or foreign memory that it only looks at. Own
/// elements are reference counted: a header from image() keeps them alive after the Matrix is gone.
///
/// @tparam Element     type of a pixel
/// @tparam descriptor  element descriptor; the chain knows one value, see halvor::vx::ChainMatrix
template <typename Element, int descriptor>
class Matrix
{
public:
    Matrix() = default;

    /// Allocates the elements, and at least `room` of them where a block writes more than the image shows.
    /// @throws halvor::vx::Exception, like all constructors, when an int can't count the elements
    Matrix(int rowCount, int colCount, int room = 0)
        : size(elementCount(1, rowCount, colCount)),
          rows(rowCount),
          cols(colCount),
          owns(1),
          storage_(1, std::max({size, room, 1}), Element{})
    {
        restoreData();
    }

    /// Looks at foreign memory.
    Matrix(Element* elements, int rowCount, int colCount)
        : data(elements), size(elementCount(1, rowCount, colCount)), rows(rowCount), cols(colCount)
    {}

    /// Looks at foreign memory of planeCount images, with a view of each in `planes`.
    Matrix(Element* elements, int planeCount, int rowCount, int colCount)
        : data(elements), size(elementCount(planeCount, rowCount, colCount)), rows(rowCount), cols(colCount)
    {
        const std::ptrdiff_t planeSize = static_cast<std::ptrdiff_t>(rowCount) * colCount;
        for (int plane = 0; plane < planeCount; ++plane) {
            views_.push_back(std::make_unique<Matrix>(elements + plane * planeSize, rowCount, colCount));
            viewPointers_.push_back(views_.back().get());
        }
        planes = viewPointers_.data();
    }

    Matrix(const Matrix&) = delete;
    Matrix& operator=(const Matrix&) = delete;
    Matrix(Matrix&&) = delete;
    Matrix& operator=(Matrix&&) = delete;
    ~Matrix() = default;

    /// @param r  0 to rows - 1; not checked
    Element* row(int r) { return data + static_cast<std::ptrdiff_t>(r) * cols; }
    const Element* row(int r) const { return data + static_cast<std::ptrdiff_t>(r) * cols; }
    /// @param r, c  within rows and cols; not checked
    Element* at(int r, int c) { return row(r) + c; }
    const Element* at(int r, int c) const { return row(r) + c; }

    /// The first element: own or foreign memory, whichever is looked at.
    Element* getData() const { return data; }

    /// Looks at foreign memory of the same shape from now on; own elements stay allocated.
    void setData(Element* elements)
    {
        borrowed_.release();
        data = elements;
    }

    /// Like setData, and keeps the image's memory alive as long as it is looked at.
    ///
    /// @param image  of this shape, without padding between rows
    void borrow(const cv::Mat_<Element>& image)
    {
        borrowed_ = image;
        data = borrowed_[0];
    }

    /// Goes back to the own elements after setData or borrow.
    void restoreData()
    {
        borrowed_.release();
        data = storage_[0];
    }

    /// Header of rows by cols on the elements, which shares the ownership of own elements.
    cv::Mat_<Element> image() const
    {
        if (size == 0)
            return cv::Mat_<Element>(rows, cols);
        if (storage_.empty() || data != storage_[0])
            return cv::Mat_<Element>(rows, cols, data);
        return storage_.colRange(0, size).reshape(0, rows);
    }

    Element* data = nullptr;        ///< what is looked at; null for an empty object
    int size = 0;                   ///< number of elements
    std::array<int, 2> reserved{};  ///< read by nothing
    int rows = 0;                   ///< of an image; with several planes, of each
    int cols = 0;                   ///< elements from a row to the next
    int owns = 0;                   ///< 1 when the object allocated elements itself
    Matrix** planes = nullptr;      ///< a view of each image, or null for a single one

private:
    static int elementCount(long long planeCount, int rowCount, int colCount)
    {
        constexpr long long most = std::numeric_limits<int>::max();
        const long long lines = planeCount * rowCount;
        if (lines > most || lines * colCount > most)
            throw halvor::vx::Exception(std::to_string(lines) + " rows of " + std::to_string(colCount) +
                                            " elements are more than an int counts",
                                        VX_WHERE("Matrix::elementCount"));
        return static_cast<int>(lines * colCount);
    }

    cv::Mat_<Element> storage_;
    cv::Mat_<Element> borrowed_;
    std::vector<std::unique_ptr<Matrix>> views_;
    std::vector<Matrix*> viewPointers_;
};

namespace halvor::vx {

/// The integer image between two blocks of the chain: a sample in the low 16 bits, a mark in bit 31.
using ChainMatrix = Matrix<int, -2147483616>;

}  // namespace halvor::vx
