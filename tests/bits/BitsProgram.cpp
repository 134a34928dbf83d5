// SPDX-License-Identifier: Apache-2.0
// Makes a checksum of each result of the engines, the chain and the filters on small simulated recordings.
// Whatever the build and the processor, they must be the same: scripts/test-bits runs this on many.
//
//   bits LIST            compare with a list; status 1 if a line differs
//   bits --write LIST    write the list

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "Checksum.h"
#include "core/imaging/SymmetricFilter.h"
#include "core/registration/CornerFinder.h"
#include "enhancement/ClusterPatternRemover.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/superresolution/SrLocalMotion.h"
#include "enhancement/superresolution/SrSingleFrame.h"
#include "support/CapturedOutput.h"
#include "support/EngineRuns.h"
#include "support/Stream.h"

namespace {

using halvor::vx::ClusterPatternRemover;
using halvor::vx::MARLOImageEnhancer;
using halvor::vx::SpatialNoiseRemover;
using halvor::vx::StaticPatternRemover;
using halvor::vx::TemporalNoiseReduction;
using vxsupport::checkBurst;
using vxsupport::EngineKind;
using vxsupport::SceneKind;
using vxtest::Checksum;

class Lines
{
public:
    void note(const std::string& name, const Checksum& checksum)
    {
        char digits[17];
        std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(checksum.value()));
        lines_.push_back(digits + (" " + name));
    }

    template <typename T>
    void note(const std::string& name, const std::vector<cv::Mat_<T>>& images)
    {
        Checksum checksum;
        for (const cv::Mat_<T>& image : images)
            checksum.add(image);
        note(name, checksum);
    }

    const std::vector<std::string>& lines() const { return lines_; }

private:
    std::vector<std::string> lines_;
};

// ---- super-resolution

void noteRun(const std::string& name, const vxsupport::EngineRun& run, Lines& lines)
{
    Checksum shifts;
    shifts.add(&run.result, sizeof run.result);
    shifts.add(&run.iterations, sizeof run.iterations);
    shifts.add(run.shifts.data(), run.shifts.size() * sizeof(PointF));
    lines.note(name + " shifts", shifts);
    lines.note(name + " masks", run.masks);
    lines.note(name + " image", std::vector<cv::Mat_<float>>{run.image});
}

void noteEngines(const std::string& name, const std::vector<cv::Mat_<float>>& frames,
                 const std::vector<EngineKind>& kinds, Lines& lines)
{
    lines.note(name + " frames", frames);
    for (const EngineKind kind : kinds)
        noteRun(name + " " + std::string(vxsupport::nameOf(kind)), vxsupport::runEngine(kind, frames, 1),
                lines);
}

// Frames that turn and have depth, so that every step of the motion has something to do.
void noteLocalMotion(SceneKind scene, cv::Size size, Lines& lines)
{
    vxsupport::BurstSettings settings;
    settings.scene.kind = scene;
    settings.scene.frame = size;
    settings.turn = 0.01;
    settings.parallax = 1.0;
    settings.seed = 7;
    const std::vector<cv::Mat_<float>> frames = vxsupport::simulateBurst(settings).frames;
    halvor::vx::SrLocalMotion engine(size.width, size.height, 5);
    for (const cv::Mat_<float>& frame : frames)
        engine.addFrame(frame);
    std::vector<cv::Mat_<float>> images(3);
    engine.computeSR(images[0]);
    engine.getEffectiveFrames(images[1]);
    halvor::vx::SrSingleFrame(size.width, size.height).compute(frames.front(), images[2]);
    const std::string name = std::string(vxsupport::nameOf(scene)) + " turned " + std::to_string(size.width);
    lines.note(name + " frames", frames);
    lines.note(name + " local motion, its frames, single frame", images);
}

// Widths that fill the vectors of any processor, and widths that leave every kind of rest.
void noteBursts(Lines& lines)
{
    std::vector<EngineKind> kinds = vxsupport::floatEngineKinds();
    kinds.push_back(EngineKind::fixed);
    noteEngines("facade 64x48", checkBurst(SceneKind::facade, {64, 48}, 1).frames, kinds, lines);
    noteEngines("board 94x66", checkBurst(SceneKind::board, {94, 66}, 2).frames, kinds, lines);
    noteEngines("board 160x120", checkBurst(SceneKind::board, {160, 120}, 3).frames, {EngineKind::fpga},
                lines);
    vxsupport::BurstSettings settings;
    settings.scene.kind = SceneKind::outdoor;
    settings.scene.frame = {70, 53};
    settings.defects = {3, vxsupport::DefectStyle::markers};
    settings.seed = 5;
    noteEngines("outdoor 70x53", vxsupport::simulateBurst(settings).frames, vxsupport::floatEngineKinds(),
                lines);
    noteLocalMotion(SceneKind::board, {96, 64}, lines);
    noteLocalMotion(SceneKind::facade, {70, 53}, lines);
}

// ---- steps of the registrations: where a last bit differs, only a rare burst shows it

template <typename Pixel>
void notePreparation(const std::string& name, const cv::Mat_<Pixel>& image, Lines& lines)
{
    halvor::vx::SymmetricFilter filter(image.size());
    filter.setTaps(halvor::vx::gaussianKernel(5, std::sqrt(3.0)));
    cv::Mat_<Pixel> smoothed;
    filter.run(image, smoothed);
    lines.note(name + " smoothed", std::vector<cv::Mat_<Pixel>>{smoothed});
    halvor::vx::CornerFinder finder(image.size());
    Checksum checksum;
    for (const cv::Mat_<Pixel>& source : {image, smoothed}) {
        std::vector<cv::Point2f> corners;
        finder.find(source, 100, 0.05, 2.0, corners);
        checksum.add(corners.data(), corners.size() * sizeof corners[0]);
    }
    lines.note(name + " corners", checksum);
}

void notePreparations(Lines& lines)
{
    for (const SceneKind kind : {SceneKind::facade, SceneKind::outdoor}) {
        const cv::Mat_<float> image = checkBurst(kind, {214, 161}, 7).frames[0];
        const std::string name = "preparation " + std::to_string(static_cast<int>(kind));
        notePreparation(name + " float", image, lines);
        cv::Mat_<unsigned char> gray(image.size());
        std::transform(image.begin(), image.end(), gray.begin(),
                       [](float celsius) { return cv::saturate_cast<unsigned char>(celsius * 6.0F); });
        notePreparation(name + " 8 bit", gray, lines);
    }
}

// ---- streams

std::vector<cv::Mat_<short>> recording(cv::Size size, int frames)
{
    constexpr double scale = 0.01;
    vxsupport::StreamSettings settings;
    settings.scene.frame = size;
    settings.frameCount = frames;
    const vxsupport::StreamSimulator stream(settings);
    std::vector<cv::Mat_<short>> result;
    for (int i = 0; i < frames; ++i) {
        cv::Mat_<short> counts(size);
        const cv::Mat_<float> celsius = stream.frame(i);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                counts(y, x) = static_cast<short>(celsius(y, x) / scale);
        result.push_back(counts);
    }
    return result;
}

std::vector<cv::Mat_<short>> copyOf(const std::vector<cv::Mat_<short>>& frames)
{
    std::vector<cv::Mat_<short>> result;
    for (const cv::Mat_<short>& frame : frames)
        result.push_back(frame.clone());
    return result;
}

void noteChain(const std::string& name, const std::vector<cv::Mat_<short>>& frames, int gamma, Lines& lines)
{
    MARLOImageEnhancer enhancer(frames[0].cols, frames[0].rows);
    enhancer.histSetGamma(gamma);
    enhancer.peakSetEnabled(1);
    std::vector<cv::Mat_<short>> results = copyOf(frames);
    Checksum bins;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        enhancer.processFrame(frames[i], results[i]);
        const auto& block = *enhancer.getHistoBinArray();
        bins.add(block.getData(), sizeof(int) * static_cast<std::size_t>(block.rows * block.cols));
    }
    lines.note(name + " chain frames", results);
    lines.note(name + " chain bins", bins);
}

template <typename Filter>
void noteFilter(const std::string& name, const std::vector<cv::Mat_<short>>& frames, Filter filter,
                Lines& lines)
{
    std::vector<cv::Mat_<short>> results = copyOf(frames);
    for (std::size_t i = 0; i < frames.size(); ++i)
        filter.process(frames[i], results[i]);
    lines.note(name, results);
}

void noteCluster(const std::string& name, const std::vector<cv::Mat_<short>>& frames,
                 ClusterPatternRemover::FILTERMODE mode, Lines& lines)
{
    ClusterPatternRemover remover(3, 3, 40.0F, 0.0F, 60.0F);
    remover.setAlphaDamping(0.5F);
    remover.learn(std::vector<cv::Mat>(frames.begin(), frames.end()), mode);
    cv::Mat damping;
    remover.getDamping(damping, false);
    lines.note(name, std::vector<cv::Mat_<float>>{damping});
}

void noteStreams(Lines& lines)
{
    const cv::Size size(94, 61);
    const std::vector<cv::Mat_<short>> frames = recording(size, 12);
    const std::string name = "stream 94x61";
    lines.note(name + " frames", frames);
    noteChain(name, frames, 0, lines);
    noteChain(name + " gamma", frames, -2, lines);
    noteFilter(name + " temporal", frames, TemporalNoiseReduction(3, 20, 60, false), lines);
    noteFilter(name + " spatial", frames, SpatialNoiseRemover(12), lines);
    noteFilter(name + " static", frames, StaticPatternRemover(40, 20, 20), lines);
    noteCluster(name + " cluster median", frames, ClusterPatternRemover::MEDIAN, lines);
    noteCluster(name + " cluster gaussian", frames, ClusterPatternRemover::GAUSSIAN, lines);
}

std::vector<std::string> allLines()
{
    const vxsupport::CapturedOutput dropped;
    Lines lines;
    noteBursts(lines);
    notePreparations(lines);
    noteStreams(lines);
    return lines.lines();
}

// ---- the list

std::vector<std::string> linesOf(const std::string& path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line[0] != '#')
            lines.push_back(line);
    return lines;
}

int compare(const std::vector<std::string>& expected, const std::vector<std::string>& found)
{
    const auto tell = [](const char* what, const auto& lines, const auto& others) {
        int count = 0;
        for (const std::string& line : lines)
            if (std::find(others.begin(), others.end(), line) == others.end() && ++count > 0)
                std::cerr << what << line << '\n';
        return count;
    };
    const int lost = tell("expected ", expected, found);
    const int gained = tell("found    ", found, expected);
    return lost + gained == 0 && !expected.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int write(const std::string& path, const std::vector<std::string>& lines)
{
    std::ofstream file(path);
    file << "# SPDX-License-Identifier: Apache-2.0\n"
            "# Checksums of results, the same for every build and processor. To renew: scripts/test-bits "
            "--renew\n";
    for (const std::string& line : lines)
        file << line << '\n';
    return file.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv)
try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1)
        return compare(linesOf(arguments[0]), allLines());
    if (arguments.size() == 2 && arguments[0] == "--write")
        return write(arguments[1], allLines());
    std::cerr << "usage: bits LIST | bits --write LIST\n";
    return EXIT_FAILURE;
} catch (const std::exception& error) {
    std::cerr << "bits: " << error.what() << '\n';
    return EXIT_FAILURE;
}
