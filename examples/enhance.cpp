// SPDX-License-Identifier: Apache-2.0
// What a C++ host writes to enhance a live 16-bit stream.
//
//   enhance                            a made-up stream, results are only printed
//   enhance WIDTH HEIGHT < IN > OUT    headerless frames of 16-bit little-endian two's complement
//                                      samples; the enhanced frames are 0 to 32766
//
// The chain prints one line per frame on the standard output. A host that writes frames there sends the lines
// elsewhere, as writeStream() does.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "enhancement/MARLOImageEnhancer.h"

namespace {

using Clock = std::chrono::steady_clock;

// A warm disc that moves over a ramp, with the stripes of a detector and temporal noise. Thermal cameras
// count from 0 to 65535; the chain takes two's complement samples, so that 32768 is taken off.
cv::Mat_<short> madeUpFrame(int width, int height, int number)
{
    static std::uint32_t seed = 1;
    cv::Mat_<short> frame(height, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            seed = seed * 1664525U + 1013904223U;
            const int noise = static_cast<int>(seed >> 28) - 8;
            const int stripe = x * 37 % 23 - 11;
            const int dx = x - (width / 4 + number % (width / 2));
            const int dy = y - height / 2;
            const int warm = dx * dx + dy * dy < height * height / 36 ? 600 : 0;
            frame(y, x) = static_cast<short>(30000 + 2 * y + warm + stripe + noise - 32768);
        }
    }
    return frame;
}

int enhanceMadeUpStream()
{
    constexpr int width = 320;
    constexpr int height = 240;
    constexpr int frames = 60;
    halvor::vx::MARLOImageEnhancer enhancer(width, height);
    enhancer.histSetGamma(-2);  // lifts the dark end a little

    cv::Mat_<short> result;
    std::uint32_t checksum = 0;
    Clock::duration busy{};
    for (int number = 0; number < frames; ++number) {
        const cv::Mat_<short> frame = madeUpFrame(width, height, number);
        const Clock::time_point start = Clock::now();
        enhancer.processFrame(frame, result);
        busy += Clock::now() - start;
        for (const short pixel : result)
            checksum = checksum * 31U + static_cast<std::uint16_t>(pixel);
    }
    const auto [darkest, brightest] = std::minmax_element(result.begin(), result.end());
    std::printf("%d frames of %dx%d, %.0f frames per second\n", frames, width, height,
                frames / std::chrono::duration<double>(busy).count());
    std::printf("last frame from %d to %d, checksum %08x\n", *darkest, *brightest, checksum);
    return *brightest > *darkest ? EXIT_SUCCESS : EXIT_FAILURE;
}

// Frames go out where the program was told to write; what the chain prints goes to the error stream.
int writeStream(int width, int height)
{
    const int target = dup(STDOUT_FILENO);
    std::FILE* out = target >= 0 ? fdopen(target, "wb") : nullptr;
    if (out == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        std::fputs("enhance: cannot open the output\n", stderr);
        return EXIT_FAILURE;
    }
    halvor::vx::MARLOImageEnhancer enhancer(width, height);
    cv::Mat_<short> frame(height, width);
    const std::size_t pixels = frame.total();
    int count = 0;
    bool written = true;
    while (written && std::fread(frame[0], sizeof(short), pixels, stdin) == pixels) {
        enhancer.processFrame(frame, frame);
        written = std::fwrite(frame[0], sizeof(short), pixels, out) == pixels;
        ++count;
    }
    written = std::fclose(out) == 0 && written;
    std::fprintf(stderr, written ? "%d frames\n" : "enhance: frame %d could not be written\n", count);
    return written ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 1)
        return enhanceMadeUpStream();
    const int width = argc == 3 ? std::atoi(argv[1]) : 0;
    const int height = argc == 3 ? std::atoi(argv[2]) : 0;
    if (width < 2 || height < 1 || width > 16384 || height > 16384) {
        std::fputs("usage: enhance [WIDTH HEIGHT < IN > OUT]\n", stderr);
        return EXIT_FAILURE;
    }
    return writeStream(width, height);
}
