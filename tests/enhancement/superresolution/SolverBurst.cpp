#include "enhancement/superresolution/SolverBurst.h"

#include <cmath>
#include <random>

#include "enhancement/superresolution/PlainSolver.h"

namespace halvor::vx {

namespace {

float sceneAt(float x, float y)
{
    const float waves = 2.0F * std::sin(0.21F * x) * std::cos(0.13F * y) + 0.02F * x;
    const bool warm = std::fmod(x + 0.4F * y, 23.0F) < 7.0F;
    return 20.0F + waves + (warm ? 3.0F : 0.0F);
}

}  // namespace

std::vector<float*> SolverBurst::framePointers()
{
    std::vector<float*> pointers;
    for (std::size_t k = 0; k < shifts.size(); ++k)
        pointers.push_back(frames.data() + k * frameSize());
    return pointers;
}

std::vector<char*> SolverBurst::maskPointers()
{
    std::vector<char*> pointers;
    for (std::size_t k = 0; k < shifts.size(); ++k)
        pointers.push_back(masks.data() + k * frameSize());
    return pointers;
}

SolverBurst makeSolverBurst(int width, int height, int frames, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> step(-0.5F, 0.5F);
    std::normal_distribution<float> noise(0.0F, 0.05F);
    std::bernoulli_distribution usable(0.93);
    SolverBurst burst{width, height, frames / 2, {}, {}, {}};
    for (int k = 0; k < frames; ++k) {
        const PointF shift = k == burst.reference ? PointF{0.0F, 0.0F} : PointF{step(random), step(random)};
        burst.shifts.push_back(shift);
        for (int r = 0; r < height; ++r)
            for (int c = 0; c < width; ++c) {
                const float x = 2.0F * (static_cast<float>(c) - shift.x);
                const float y = 2.0F * (static_cast<float>(r) - shift.y);
                burst.frames.push_back(sceneAt(x, y) + noise(random));
                burst.masks.push_back(k == burst.reference || usable(random) ? 1 : 0);
            }
    }
    return burst;
}

SolverBurst makeModelBurst(int width, int height, std::vector<float>& truth)
{
    SolverBurst burst{
        width, height, 0, {{0.0F, 0.0F}, {0.5F, 0.0F}, {0.0F, -0.5F}, {-0.45F, 0.4F}, {0.25F, 0.3F}}, {}, {}};
    burst.frames.resize(burst.shifts.size() * burst.frameSize());
    burst.masks.assign(burst.frames.size(), 1);

    plain::Solver model(width, height);
    model.generatePsfs(burst.count(), burst.shifts.data());
    constexpr int margin = 2;
    std::vector<float>& scene = model.U;
    for (int y = 0; y < model.fullHeight; ++y)
        for (int x = 0; x < model.fullWidth; ++x)
            scene[y * model.fullWidth + x] = sceneAt(static_cast<float>(x), static_cast<float>(y));
    for (int k = 0; k < burst.count(); ++k)
        model.conv.validCorrToSparse(scene.data(), model.psfX[k].data(), model.psfY[k].data(),
                                     burst.framePointers()[k]);
    truth.clear();
    for (int y = 0; y < 2 * height; ++y)
        for (int x = 0; x < 2 * width; ++x)
            truth.push_back(scene[(y + margin) * model.fullWidth + x + margin]);
    return burst;
}

}  // namespace halvor::vx
