#include "support/PictureMeasures.h"

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace vxsupport {

namespace {

cv::Rect innerRect(const cv::Mat& image, int margin)
{
    return {margin, margin, image.cols - 2 * margin, image.rows - 2 * margin};
}

}  // namespace

double psnr(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin)
{
    if (image.size() != reference.size())
        throw std::invalid_argument("psnr: the images have different sizes");
    const cv::Rect inner = innerRect(reference, margin);
    if (margin < 0 || inner.width <= 0 || inner.height <= 0)
        throw std::invalid_argument("psnr: the margin leaves no pixels");

    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(reference(inner), &low, &high);
    const double squares = cv::norm(image(inner), reference(inner), cv::NORM_L2SQR);
    if (squares == 0.0)
        return std::numeric_limits<double>::infinity();
    const double meanSquare = squares / static_cast<double>(inner.area());
    return 10.0 * std::log10((high - low) * (high - low) / meanSquare);
}

}  // namespace vxsupport
