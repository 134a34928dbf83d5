// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <limits>
#include <opencv2/core.hpp>

#include "apps/vxkit/vectors/VectorSet.h"
#include "core/base/PointF.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/SrIntRegistration.h"
#include "support/Random.h"

namespace vxapp {

namespace {

using halvor::vx::Fixpoint;
using halvor::vx::SrIntMinimization;
using halvor::vx::SrIntRegistration;
using vxsupport::Random;

using Image = cv::Mat_<short>;
using Mask = cv::Mat_<signed char>;

constexpr signed char tapExponent = -16;

/// What is drawn for the vectors. Each image has a purpose of its own, so that a new block changes no other.
class Drawer
{
public:
    explicit Drawer(const VectorRequest& request) : request_(request) {}

    cv::Size frame() const { return request_.size; }
    /// The large grid with its margin.
    cv::Size full() const { return {2 * frame().width + 5, 2 * frame().height + 5}; }

    /// Uniform in -amplitude to amplitude, with a few pixels at the ends of 16 bits if wanted.
    Image image(int purpose, cv::Size size, int amplitude, int extremes = 0) const
    {
        Random random = generator(purpose);
        Image result(size);
        for (short& pixel : result)
            pixel = static_cast<short>(random.below(2 * amplitude + 1) - amplitude);
        for (int i = 0; i < extremes; ++i) {
            const int y = random.below(size.height);
            const int x = random.below(size.width);
            result(y, x) = i % 2 == 0 ? std::numeric_limits<short>::max() : std::numeric_limits<short>::min();
        }
        return result;
    }

    /// A slope, an edge and noise, so that weights of all strengths occur.
    Image scene(int purpose, cv::Size size, int amplitude) const
    {
        Image result = image(purpose, size, amplitude / 50);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                result(y, x) = static_cast<short>(result(y, x) + amplitude * x / (2 * size.width) +
                                                  (x + y > size.width ? amplitude / 2 : 0) - amplitude / 2);
        return result;
    }

    Mask mask(int purpose) const
    {
        Random random = generator(purpose);
        Mask result(frame());
        for (signed char& pixel : result)
            pixel = static_cast<signed char>(random.below(8) != 0 ? 1 : 0);
        return result;
    }

    cv::Mat_<unsigned char> gray(int purpose) const
    {
        const Image drawn = scene(purpose, frame(), 200);
        cv::Mat_<unsigned char> result(frame());
        std::transform(drawn.begin(), drawn.end(), result.begin(), [](short pixel) {
            return static_cast<unsigned char>(std::clamp(pixel + 120, 0, 255));
        });
        return result;
    }

    Random generator(int purpose) const
    {
        return Random(request_.seed).split(static_cast<std::uint64_t>(purpose));
    }

private:
    VectorRequest request_;
};

/// Reaches what the solver keeps to itself.
class Solver : public SrIntMinimization
{
public:
    explicit Solver(cv::Size frame)
        : SrIntMinimization(static_cast<short>(frame.width), static_cast<short>(frame.height), 1, 2)
    {}

    Image taps(bool horizontal) const { return (horizontal ? psfX_ : psfY_).front(); }
    const Fixpoint& lambda() const { return lambda_; }
    const Fixpoint& epsilon() const { return epsilon_; }
    const Fixpoint& invEpsilon() const { return invEpsilon_; }
    std::array<std::pair<const char*, const Image*>, 4> weights() const
    {
        return {{{"Lr", &Lr_}, {"Ld", &Ld_}, {"Ldl", &Ldl_}, {"Ldr", &Ldr_}}};
    }
};

void addScaling(std::vector<VectorCase>& cases, const Drawer& draw, Solver& solver)
{
    for (const signed char shift : std::array<signed char, 2>{2, -3}) {
        VectorCase block(shift >= 0 ? "normalisation-left" : "normalisation-right");
        const Mask mask = draw.mask(1);
        Image image = draw.image(2, draw.frame(), shift >= 0 ? 7000 : 30000, 4);
        block.setting("mean", short{-411});
        block.setting("shift", shift);
        block.input("image", image);
        block.input("mask", mask);
        solver.computeNormalisation(image, mask, -411, shift);
        block.output("image", image);
        cases.push_back(block);

        VectorCase back(shift >= 0 ? "denormalisation-left" : "denormalisation-right");
        const Image large = draw.image(3, draw.full(), shift >= 0 ? 7000 : 30000, 4);
        Image result(2 * draw.frame().height, 2 * draw.frame().width);
        back.setting("mean", short{-411});
        back.setting("shift", shift);
        back.setting("offset", 2);
        back.input("image", large);
        solver.computeDenormalisation(large, result, -411, shift, 2);
        back.output("image", result);
        cases.push_back(back);
    }
}

void addConvolutions(std::vector<VectorCase>& cases, const Drawer& draw, Solver& solver)
{
    const PointF shift{0.21F, -0.37F};
    solver.generatePsfs(1, &shift);
    const Image rowMask = solver.taps(true);
    const Image colMask = solver.taps(false);

    VectorCase kernel("kernel");
    kernel.setting("psf-sigma", solver.getPsfSigma());
    kernel.setting("shift-x", shift.x);
    kernel.setting("shift-y", shift.y);
    kernel.output("row-taps", rowMask);
    kernel.output("column-taps", colMask);
    cases.push_back(kernel);

    const Image low = draw.image(4, draw.frame(), 16000);
    const Image high = draw.image(5, draw.full(), 16000);
    const Mask mask = draw.mask(6);
    const auto addFull = [&](const char* name, auto form) {
        VectorCase block(name);
        block.setting("shift", tapExponent);
        block.input("image", low);
        block.input("mask", mask);
        block.input("row-taps", rowMask);
        block.input("column-taps", colMask);
        Image result = draw.image(7, draw.full(), 2000);
        block.input("sum", result);
        (solver.*form)(low, rowMask, colMask, mask, result, tapExponent);
        block.output("sum", result);
        cases.push_back(block);
    };
    const auto addValid = [&](const char* name, auto form) {
        VectorCase block(name);
        block.setting("shift", tapExponent);
        block.input("image", high);
        block.input("row-taps", rowMask);
        block.input("column-taps", colMask);
        Image result(draw.frame(), 0);
        (solver.*form)(high, rowMask, colMask, result, tapExponent);
        block.output("image", result);
        cases.push_back(block);
    };
    addFull("full-convolution", &SrIntMinimization::fullConvFromSparse);
    addFull("full-convolution-linewise", &SrIntMinimization::fullConvFromSparseLinewise);
    addValid("valid-correlation", &SrIntMinimization::validCorrToSparse);
    addValid("valid-correlation-linewise", &SrIntMinimization::validCorrToSparseLinewise);
}

void addVariation(std::vector<VectorCase>& cases, const Drawer& draw, Solver& solver)
{
    VectorCase weights("edge-weights");
    const Image scene = draw.scene(8, draw.full(), 6000);
    constexpr signed char exponent = -3;
    weights.setting("weight-tv", solver.getWeightTV());
    const auto number = [&weights](const std::string& name, const Fixpoint& value) {
        weights.setting(name + "-mantissa", value.getMantissa());
        weights.setting(name + "-exponent", value.getExponent());
    };
    number("lambda", solver.lambda());
    number("epsilon", solver.epsilon());
    number("inverse-epsilon", solver.invEpsilon());
    weights.setting("image-exponent", exponent);
    weights.input("image", scene);
    solver.computeLSimplified(scene, solver.epsilon(), solver.invEpsilon(), solver.lambda(), exponent);
    VectorCase apply("total-variation");
    for (const auto& [name, plane] : solver.weights()) {
        weights.output(name, *plane);
        apply.input(name, *plane);
    }
    cases.push_back(weights);

    const Image in = draw.image(9, draw.full(), 16000);
    Image out(draw.full());
    apply.input("image", in);
    solver.applyLSimplified(in, out);
    apply.output("image", out);
    cases.push_back(apply);
}

void addSums(std::vector<VectorCase>& cases, const Drawer& draw, Solver& solver)
{
    const Image first = draw.image(10, draw.full(), 16000, 2);
    const Image second = draw.image(11, draw.full(), 16000, 2);
    for (const signed char shift : std::array<signed char, 2>{1, -4}) {
        VectorCase block(shift >= 0 ? "sum-of-squares-left" : "sum-of-squares-right");
        block.setting("shift", shift);
        block.input("image", first);
        block.output("sum", solver.computeSumSquaredValues(first, shift));
        cases.push_back(block);
    }
    VectorCase product("inner-product");
    product.setting("shift", tapExponent);
    product.input("S", first);
    product.input("Q", second);
    product.output("sum", solver.computeAlpha(first, second, tapExponent));
    cases.push_back(product);

    VectorCase residual("residual");
    residual.setting("shift", short{-2});
    residual.input("R", first);
    residual.input("B", second);
    Image R = first.clone();
    Image S(draw.full());
    const std::int64_t sum = solver.computeRandS(R, second, S, -2);
    residual.output("R", R);
    residual.output("S", S);
    residual.output("sum", sum);
    cases.push_back(residual);
}

// The two forms of an update differ where a value leaves 16 bits, so that both are met with such values.
void addUpdates(std::vector<VectorCase>& cases, const Drawer& draw, Solver& solver)
{
    const Image base = draw.image(12, draw.full(), 30000);
    const Image other = draw.image(13, draw.full(), 30000);
    struct Form
    {
        const char* name;
        short mantissa;
        signed char shift;
        signed char sumShift;  // the left form gives no sum with a negative one
    };
    for (const Form& form : {Form{"left", 3, 1, 2}, Form{"right", 21111, -14, -5}}) {
        const auto start = [&](const char* name, const char* target, const char* source) {
            VectorCase block(std::string(name) + "-" + form.name);
            block.setting("mantissa", form.mantissa);
            block.setting("shift", form.shift);
            block.input(target, base);
            block.input(source, other);
            return block;
        };
        VectorCase estimate = start("update-estimate", "X", "S");
        Image X = base.clone();
        solver.computeU(X, other, form.mantissa, form.shift);
        estimate.output("X", X);
        cases.push_back(estimate);

        VectorCase residual = start("update-residual", "R", "Q");
        residual.setting("sum-shift", form.sumShift);
        Image R = base.clone();
        const std::int64_t sum = solver.computeR(R, other, form.mantissa, form.shift, form.sumShift);
        residual.output("R", R);
        residual.output("sum", sum);
        cases.push_back(residual);

        VectorCase direction = start("update-direction", "S", "R");
        Image S = base.clone();
        solver.computeS(S, other, form.mantissa, form.shift);
        direction.output("S", S);
        cases.push_back(direction);
    }
}

void addFlow(std::vector<VectorCase>& cases, const Drawer& draw)
{
    SrIntRegistration registration(draw.frame().width, draw.frame().height, 2);
    const cv::Mat_<unsigned char> reference = draw.gray(14);
    const cv::Mat_<unsigned char> frame = draw.gray(15);

    VectorCase gradient("gradient-x");
    const Image scene = draw.scene(16, draw.frame(), 500);
    Image dx(draw.frame());
    gradient.input("image", scene);
    registration.computeDiffX_neon(scene, dx);
    gradient.output("gradient", dx);
    cases.push_back(gradient);

    const Image dy = draw.image(17, draw.frame(), 100);
    VectorCase tensor("structure-tensor");
    tensor.input("gradient-x", dx);
    tensor.input("gradient-y", dy);
    std::int64_t xx = 0;
    std::int64_t xy = 0;
    std::int64_t yy = 0;
    registration.computeStructureTensor(dx, dy, xx, xy, yy);
    tensor.output("xx", xx);
    tensor.output("xy", xy);
    tensor.output("yy", yy);
    cases.push_back(tensor);

    VectorCase flow("flow-sums");
    std::int64_t xt = 0;
    std::int64_t yt = 0;
    registration.computeOpticalFlowSumDiffXtYt(reference, frame, dx, dy, xt, yt);
    VectorCase error("error-image");
    for (VectorCase* block : {&flow, &error}) {
        block->input("reference", reference);
        block->input("frame", frame);
        block->input("gradient-x", dx);
        block->input("gradient-y", dy);
    }
    flow.output("xt", xt);
    flow.output("yt", yt);
    cases.push_back(flow);

    Image err(draw.frame(), 0);
    Image band(0, 0);
    Image strip(0, 0);
    const cv::Point_<short> step(1200, -3100);
    error.setting("flow-x", step.x);
    error.setting("flow-y", step.y);
    error.setting("flow-exponent", short{-13});
    error.setting("weight-mantissa", short{20000});
    error.setting("weight-shift", short{-16});
    registration.computeOpticalFlowError(reference, frame, dx, dy, band, strip, 100, err, step, -13, 20000,
                                         -16);
    error.output("error", err);
    cases.push_back(error);
}

// Two frames of a scene that moves by whole and half pixels, through everything that makes a mask.
void addMasks(std::vector<VectorCase>& cases, const Drawer& draw)
{
    const cv::Size size = draw.frame();
    Random random = draw.generator(18);
    Image wide(size.height + 8, size.width + 8);
    for (short& pixel : wide)
        pixel = static_cast<short>(random.below(40));
    for (int block = 0; block < 24; ++block) {
        const int y = random.below(wide.rows - 4);
        const int x = random.below(wide.cols - 4);
        Image patch = wide(cv::Rect(x, y, std::min(9, wide.cols - x), std::min(7, wide.rows - y)));
        cv::add(patch, 200 + random.below(1800), patch);
    }
    const auto view = [&](int y, int x) {
        return Image(wide(cv::Rect(x, y, size.width, size.height)).clone());
    };
    const std::vector<Image> frames = {view(4, 4), view(3, 6)};

    SrIntRegistration registration(size.width, size.height, 2);
    VectorCase block("registration");
    std::vector<cv::Point_<Fixpoint>> sub;
    std::vector<cv::Point_<Fixpoint>> total;
    std::vector<cv::Point_<short>> rounded;
    std::vector<Mask> masks;
    std::vector<Image> moved;
    for (std::size_t count = 1; count <= frames.size(); ++count) {
        block.input("frame", frames[count - 1]);
        registration.prepareFrame(frames[count - 1]);
    }
    registration.doRegistrationVideo(frames, sub, total, rounded, masks, moved);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        block.output("mask", masks[i]);
        block.output("moved", moved[i]);
        block.output("sub-mantissa",
                     Image(1, 2, std::array{sub[i].x.getMantissa(), sub[i].y.getMantissa()}.data()).clone());
        block.output(
            "sub-exponent",
            Image(1, 2, std::array<short, 2>{sub[i].x.getExponent(), sub[i].y.getExponent()}.data()).clone());
        block.output("whole", Image(1, 2, std::array{rounded[i].x, rounded[i].y}.data()).clone());
    }
    cases.push_back(block);
}

}  // namespace

std::vector<VectorCase> fixedPointVectors(const VectorRequest& request)
{
    const Drawer draw(request);
    Solver solver(draw.frame());
    std::vector<VectorCase> cases;
    addScaling(cases, draw, solver);
    addConvolutions(cases, draw, solver);
    addVariation(cases, draw, solver);
    addSums(cases, draw, solver);
    addUpdates(cases, draw, solver);
    addFlow(cases, draw);
    addMasks(cases, draw);
    return cases;
}

}  // namespace vxapp
