// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <random>
#include <string>
#include <vector>

// Input for the noise blocks and filters: what a camera delivers, and what it never should.
namespace blocktest {

struct Size
{
    int cols;
    int rows;
};

inline int pixelCount(Size size)
{
    return size.cols * size.rows;
}

/// Single rows and columns, odd sizes, and rows longer than the tiles of the fast forms.
inline const std::vector<Size> smallSizes = {{1, 1}, {1, 9}, {9, 1},  {2, 2},   {3, 2},
                                             {2, 5}, {5, 7}, {17, 6}, {258, 3}, {1031, 2}};

/// Large enough for the fast forms to share it among threads.
inline constexpr Size sharedSize = {1051, 1000};

enum class Scene
{
    calm,      ///< a ramp under column offsets and little noise
    wild,      ///< any 32 bits
    extremes,  ///< the ends of the 16-bit range, with and without a mark
    faint,     ///< a flat scene under a pattern of one or two steps, the same in every frame
    rough,     ///< column offsets that change from row to row, under noise that a high threshold lets through
    steps,     ///< calm, but half of the picture jumps with every other frame
};

inline const std::vector<Scene> allScenes = {Scene::calm,  Scene::wild,  Scene::extremes,
                                             Scene::faint, Scene::rough, Scene::steps};

/// A frame of a stream; the same arguments give the same frame.
inline std::vector<int> makeFrame(Scene scene, Size size, int number)
{
    const int noise = scene == Scene::faint ? 0 : number;
    std::mt19937 random(static_cast<std::uint32_t>(noise * 7919 + size.cols * 31 + size.rows));
    const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    static constexpr int ends[] = {0x8000, 0x7FFF, -0x8000,   0,         -1,
                                   1,      0xFFFF, INT32_MIN, INT32_MAX, static_cast<int>(0x80007FFFU)};
    std::vector<int> frame;
    for (int i = 0; i < pixelCount(size); ++i) {
        const int x = i % size.cols;
        const int y = i / size.cols;
        const int marked = below(50) == 0 ? INT32_MIN : 0;
        const int calm = -3000 + 2 * x + 3 * y + (x * 37 % 23) * 5 + below(9);
        const int jump = number % 2 == 1 && x < size.cols / 2 ? 40000 : 0;
        switch (scene) {
            case Scene::calm:
                frame.push_back(marked | (calm & 0xFFFF));
                break;
            case Scene::wild:
                frame.push_back(static_cast<int>(random()));
                break;
            case Scene::extremes:
                frame.push_back(ends[below(10)]);
                break;
            case Scene::faint:
                frame.push_back(900 + below(3));
                break;
            case Scene::rough:
                frame.push_back(((x + y / 4) % 2 == 0 ? 30 : -30) + below(40));
                break;
            case Scene::steps:
                frame.push_back(calm + jump);
                break;
        }
    }
    return frame;
}

/// The low 16 bits of each pixel, as the filters take them.
inline cv::Mat_<short> asImage(const std::vector<int>& frame, Size size)
{
    cv::Mat_<short> image(size.rows, size.cols);
    std::transform(frame.begin(), frame.end(), image.begin(),
                   [](int pixel) { return static_cast<short>(pixel); });
    return image;
}

inline std::string describe(Scene scene, Size size, int mode, int frame)
{
    return "scene " + std::to_string(static_cast<int>(scene)) + ", " + std::to_string(size.cols) + "x" +
           std::to_string(size.rows) + ", mode " + std::to_string(mode) + ", frame " + std::to_string(frame);
}

}  // namespace blocktest
