// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>

namespace vxsupport {

/// One row of cells to paint on. Positions are in pixels of the small frame.
struct CellRow
{
    float* values;
    int count;
    double left;  ///< x of the first cell's left edge
    double y;     ///< y of the cells' centres
};

/// One item of a scene's list: paints its part of one row of cells.
class SceneLayer
{
public:
    virtual ~SceneLayer() = default;
    virtual void paintRow(const CellRow& row) const = 0;
    virtual cv::Rect2d bounds() const = 0;
};

}  // namespace vxsupport
