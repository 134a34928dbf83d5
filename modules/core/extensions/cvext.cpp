// SPDX-License-Identifier: Apache-2.0
#include "core/extensions/cvext.h"

#include <cmath>
#include <cstdint>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

struct ToInt
{
    float min;
    float max;
    float gain;
    float offset;
    bool offsetFirst;
};

// From here on the conversion to 64 bits has no meaning.
constexpr float limit64 = 0x1p63F;
// Below it every rounded value fits 32 bits.
constexpr float limit32 = 0x1p30F;

// Pixels that the limits refuse leave nothing to convert; all others pass, not-a-number too.
bool isRefused(float p, const ToInt& to)
{
    return p < to.min || p > to.max;
}

VX_KERNEL_BODY float scaled(float p, const ToInt& to)
{
    return to.offsetFirst ? (p + to.offset) * to.gain : p * to.gain + to.offset;
}

VX_KERNEL_BODY float awayFromZero(float q)
{
    return q >= 0.0F ? q + 0.5F : q - 0.5F;
}

// Converts a row of ordinary pixels; false, and nothing of use in the row, if there is another one among
// them.
VX_KERNEL bool convertRow(const float* VX_RESTRICT in, const ToInt& settings, short* VX_RESTRICT out, int n)
{
    const ToInt to = settings;
    int unusual = 0;
    for (int i = 0; i < n; ++i) {
        const float q = scaled(in[i], to);
        const bool isOrdinary = (in[i] >= to.min) & (in[i] <= to.max) & (q > -limit32) & (q < limit32);
        unusual |= !isOrdinary;
        out[i] = static_cast<short>(static_cast<std::int32_t>(isOrdinary ? awayFromZero(q) : 0.0F));
    }
    return unusual == 0;
}

short convertUnusual(float p, const ToInt& to)
{
    const float rounded = awayFromZero(scaled(p, to));
    return std::fabs(rounded) < limit64 ? static_cast<short>(static_cast<std::int64_t>(rounded)) : short{0};
}

VX_KERNEL void toFloatRow(const short* VX_RESTRICT in, float gain, float offset, float* VX_RESTRICT out,
                          int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<float>(in[i]) * gain + offset;
}

}  // namespace

template <typename Int, typename Real>
void convertMatFloatToMatInt(const cv::Mat_<Real>& in, std::type_identity_t<Real> min,
                             std::type_identity_t<Real> max, std::type_identity_t<Real> gain,
                             std::type_identity_t<Real> offset, bool offsetFirst, cv::Mat_<Int>& out)
{
    const ToInt to{min, max, gain, offset, offsetFirst};
    out.create(in.rows, in.cols);
    for (int y = 0; y < in.rows; ++y) {
        const Real* const row = in[y];
        if (convertRow(row, to, out[y], in.cols))
            continue;
        for (int x = 0; x < in.cols; ++x) {
            if (isRefused(row[x], to))
                throw Exception(row[x] < min ? "convertMatFloatToMatInt: value clamped to min"
                                             : "convertMatFloatToMatInt: value clamped to max",
                                VX_WHERE("halvor::vx::convertMatFloatToMatInt"));
            out[y][x] = convertUnusual(row[x], to);
        }
    }
}

template <typename Int, typename Real>
cv::Mat_<Int> convertMatFloatToMatInt(const cv::Mat_<Real>& in, std::type_identity_t<Real> min,
                                      std::type_identity_t<Real> max, std::type_identity_t<Real> gain,
                                      std::type_identity_t<Real> offset, bool offsetFirst)
{
    cv::Mat_<Int> out;
    convertMatFloatToMatInt(in, min, max, gain, offset, offsetFirst, out);
    return out;
}

template <typename Real, typename Int>
void convertMatIntToMatFloat(const cv::Mat_<Int>& in, std::type_identity_t<Int> min,
                             std::type_identity_t<Int> max, std::type_identity_t<Real> gain,
                             std::type_identity_t<Real> offset, cv::Mat_<Real>& out)
{
    out.create(in.rows, in.cols);
    for (int y = 0; y < in.rows; ++y) {
        const Int* const row = in[y];
        for (int x = 0; x < in.cols; ++x)
            if (row[x] < min || row[x] > max)
                throw Exception(row[x] < min ? "convertMatIntToMatFloat: value clamped to min"
                                             : "convertMatIntToMatFloat: value clamped to max",
                                VX_WHERE("halvor::vx::convertMatIntToMatFloat"));
        toFloatRow(row, gain, offset, out[y], in.cols);
    }
}

template <typename Real, typename Int>
cv::Mat_<Real> convertMatIntToMatFloat(const cv::Mat_<Int>& in, std::type_identity_t<Int> min,
                                       std::type_identity_t<Int> max, std::type_identity_t<Real> gain,
                                       std::type_identity_t<Real> offset)
{
    cv::Mat_<Real> out;
    convertMatIntToMatFloat(in, min, max, gain, offset, out);
    return out;
}

template VXKIT_API void convertMatFloatToMatInt(const cv::Mat_<float>&, float, float, float, float, bool,
                                                cv::Mat_<short>&);
template VXKIT_API cv::Mat_<short> convertMatFloatToMatInt<short>(const cv::Mat_<float>&, float, float, float,
                                                                  float, bool);
template VXKIT_API void convertMatIntToMatFloat(const cv::Mat_<short>&, short, short, float, float,
                                                cv::Mat_<float>&);
template VXKIT_API cv::Mat_<float> convertMatIntToMatFloat<float>(const cv::Mat_<short>&, short, short, float,
                                                                  float);

}  // namespace halvor::vx
