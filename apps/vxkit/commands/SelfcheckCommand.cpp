// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/SelfcheckCommand.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Progress.h"
#include "support/EngineRuns.h"

namespace vxapp {

namespace {

using vxsupport::Disagreement;
using vxsupport::EngineKind;
using vxsupport::EngineRun;
using vxsupport::RunError;

constexpr int reference = 1;
const cv::Size smallestFrame{128, 96};
const cv::Size pipelineFrame{160, 120};

struct SelfcheckOptions
{
    std::string size = "128x96";
    int seeds = 2;
    double tolerance = 1.0;
};

Disagreement scaled(const Disagreement& limits, double factor)
{
    return {limits.shift * factor, limits.masks * factor, limits.image * factor, limits.result * factor,
            limits.iterations * factor};
}

RunError scaled(const RunError& limits, double factor)
{
    return {limits.shift * factor, limits.gain / factor};
}

std::string places(double value, int digits, int width)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << std::setw(width) << value;
    return text.str();
}

std::string row(const std::string& scene, const std::string& seed, const std::string& engines)
{
    std::ostringstream text;
    text << std::left << std::setw(9) << scene << std::right << std::setw(4) << seed << "  " << std::left
         << std::setw(18) << engines;
    return text.str();
}

std::string cells(const Disagreement& found)
{
    return places(found.shift, 5, 10) + places(found.masks * 100.0, 3, 9) + places(found.image, 5, 10) +
           places(found.result, 5, 10) + places(found.iterations, 0, 7);
}

std::string cells(const RunError& found)
{
    return places(found.shift, 5, 10) + places(found.gain, 2, 9);
}

/// What is held against what.
struct Label
{
    std::string scene;
    int seed;
    std::string engines;

    std::string row() const { return vxapp::row(scene, std::to_string(seed), engines); }
};

/// Runs the engines on one burst after the other, and collects what they make of it in two tables.
class Selfcheck
{
public:
    Selfcheck(const SelfcheckOptions& options, Results& results);
    void run();

private:
    void check(vxsupport::SceneKind scene, int seed);
    void checkPipeline(vxsupport::SceneKind scene, int seed);
    ResultRecord& note(const std::string& list, const Label& label, const std::vector<std::string>& excesses);
    void hold(const Label& label, const EngineRun& a, const EngineRun& b, const Disagreement& limits);
    void hold(const Label& label, const EngineRun& run, const vxsupport::Burst& burst,
              const RunError& limits);
    std::string verdict(const std::vector<std::string>& excesses);
    void print() const;

    Results& results_;
    cv::Size size_;
    int seeds_;
    Disagreement twinLimits_;
    Disagreement siblingLimits_;
    Disagreement fixedPointLimits_;
    RunError truthLimits_;
    RunError fixedPointTruthLimits_;
    std::ostringstream agreement_;
    std::ostringstream truth_;
    int comparisons_ = 0;
    int exceeded_ = 0;
};

Selfcheck::Selfcheck(const SelfcheckOptions& options, Results& results)
    : results_(results),
      size_(parseSize(options.size)),
      seeds_(options.seeds),
      twinLimits_(scaled(vxsupport::twinLimits, options.tolerance)),
      siblingLimits_(scaled(vxsupport::siblingLimits, options.tolerance)),
      fixedPointLimits_(scaled(vxsupport::fixedPointLimits, options.tolerance)),
      truthLimits_(scaled(vxsupport::truthLimits, options.tolerance)),
      fixedPointTruthLimits_(scaled(vxsupport::fixedPointTruthLimits, options.tolerance))
{
    if (size_.width < smallestFrame.width || size_.height < smallestFrame.height || size_.width % 2 != 0)
        throw UsageError("--size " + options.size + ": expected an even width, and 128x96 pixels or more");
}

void Selfcheck::run()
{
    const auto& scenes = vxsupport::allSceneKinds();
    const int bursts = static_cast<int>(scenes.size()) * seeds_;
    results_.lines() << bursts << " bursts of 5 simulated frames of " << size_.width << "x" << size_.height
                     << std::endl;
    Progress progress(bursts);
    int done = 0;
    for (const vxsupport::SceneKind scene : scenes)
        for (int seed = 1; seed <= seeds_; ++seed) {
            progress.show(++done);
            check(scene, seed);
            checkPipeline(scene, seed);
        }
    progress.clear();
    print();
    if (exceeded_ > 0)
        throw EngineError("selfcheck: " + std::to_string(exceeded_) + " of " + std::to_string(comparisons_) +
                          " comparisons exceed their limits");
}

void Selfcheck::print() const
{
    results_.lines() << "\nDifference of the engines\n"
                     << row("scene", "seed", "engines") << "     shift    masks     image    factor  steps\n"
                     << row("", "", "") << "    pixels        %         K\n"
                     << row("at most", "", "phase-reference") << cells(twinLimits_) << '\n'
                     << row("at most", "", "production-phase") << cells(siblingLimits_) << '\n'
                     << row("at most", "", "fixed-production") << cells(fixedPointLimits_) << '\n'
                     << row("at most", "", "fpga-fixed") << cells(vxsupport::pipelineLimits) << '\n'
                     << agreement_.str() << "\nDistance from the truth; gain over bicubic enlargement\n"
                     << row("scene", "seed", "engine") << "     shift     gain  factor  steps\n"
                     << row("", "", "") << "    pixels       dB\n"
                     << row("at most", "", "") << cells(truthLimits_) << " at least" << '\n'
                     << row("at most", "", "fixed") << cells(fixedPointTruthLimits_) << " at least" << '\n'
                     << truth_.str() << std::endl;
    if (exceeded_ == 0)
        results_.lines() << "selfcheck passed: " << comparisons_ << " comparisons within their limits"
                         << std::endl;
    results_.set("comparisons", comparisons_).set("exceeded", exceeded_);
    results_.print();
}

void Selfcheck::check(vxsupport::SceneKind scene, int seed)
{
    const vxsupport::Burst burst = vxsupport::checkBurst(scene, size_, static_cast<std::uint64_t>(seed));
    std::vector<EngineRun> runs;
    const auto runOf = [&runs](EngineKind kind) -> const EngineRun& {
        return runs[static_cast<std::size_t>(kind)];
    };
    const std::vector<EngineKind> kinds{EngineKind::production, EngineKind::phase, EngineKind::reference,
                                        EngineKind::fixed};
    for (const EngineKind kind : kinds)
        runs.push_back(vxsupport::runEngine(kind, burst.frames, reference));

    const std::string name(vxsupport::nameOf(scene));
    hold({name, seed, "phase-reference"}, runOf(EngineKind::phase), runOf(EngineKind::reference),
         twinLimits_);
    hold({name, seed, "production-phase"}, runOf(EngineKind::production), runOf(EngineKind::phase),
         siblingLimits_);
    hold({name, seed, "fixed-production"}, runOf(EngineKind::fixed), runOf(EngineKind::production),
         fixedPointLimits_);
    for (const EngineKind kind : kinds)
        hold({name, seed, std::string(vxsupport::nameOf(kind))}, runOf(kind), burst,
             vxsupport::isFixedPoint(kind) ? fixedPointTruthLimits_ : truthLimits_);
}

// The pipeline takes frames of one size, whatever that of the others.
void Selfcheck::checkPipeline(vxsupport::SceneKind scene, int seed)
{
    const vxsupport::Burst burst =
        vxsupport::checkBurst(scene, pipelineFrame, static_cast<std::uint64_t>(seed));
    hold({std::string(vxsupport::nameOf(scene)), seed, "fpga-fixed"},
         vxsupport::runEngine(EngineKind::fpga, burst.frames, reference),
         vxsupport::runEngine(EngineKind::fixed, burst.frames, reference), vxsupport::pipelineLimits);
}

ResultRecord& Selfcheck::note(const std::string& list, const Label& label,
                              const std::vector<std::string>& excesses)
{
    return results_.add(list)
        .set("scene", label.scene)
        .set("seed", label.seed)
        .set("engines", label.engines)
        .set("ok", excesses.empty());
}

void Selfcheck::hold(const Label& label, const EngineRun& a, const EngineRun& b, const Disagreement& limits)
{
    const Disagreement found = vxsupport::compareRuns(a, b);
    const std::vector<std::string> excesses = vxsupport::excesses(found, limits);
    agreement_ << label.row() << cells(found) << verdict(excesses) << '\n';
    note("agreement", label, excesses)
        .set("shift", found.shift)
        .set("masks", found.masks)
        .set("image", found.image)
        .set("factor", found.result)
        .set("steps", found.iterations);
}

void Selfcheck::hold(const Label& label, const EngineRun& run, const vxsupport::Burst& burst,
                     const RunError& limits)
{
    const RunError found = vxsupport::compareWithTruth(run, burst, reference);
    const std::vector<std::string> excesses = vxsupport::excesses(found, limits);
    const bool tellsFactor = run.result != 0.0F;
    truth_ << label.row() << cells(found)
           << (tellsFactor ? places(static_cast<double>(run.result), 2, 8) : std::string(7, ' ') + '-')
           << places(run.iterations, 0, 7) << verdict(excesses) << '\n';
    ResultRecord& record = note("truth", label, excesses).set("shift", found.shift).set("gain", found.gain);
    if (tellsFactor)
        record.set("factor", static_cast<double>(run.result));
    record.set("steps", run.iterations);
}

std::string Selfcheck::verdict(const std::vector<std::string>& excesses)
{
    ++comparisons_;
    if (excesses.empty())
        return "  ok";
    ++exceeded_;
    std::string text = "  EXCEEDED";
    for (const std::string& excess : excesses)
        text += (&excess == &excesses.front() ? " " : "; ") + excess;
    return text;
}

const char* const footer =
    R"(The phase engine and its serial twin, the reference engine, differ by the rounding of their sums alone. The
production engine tracks corners instead, and may lie a few hundredths of a pixel beside them. The fixed engine takes
hundredths of a kelvin in 16 bits; the fpga engine computes the same bits as it, held for frames of 160x120. The exit
status is 0 if everything lies within its limits, 1 if not.)";

}  // namespace

void addSelfcheckCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "selfcheck", "Holds the super-resolution engines against each other and the truth");
    auto options = std::make_shared<SelfcheckOptions>();
    command.add_option("--size", options->size, "Size of the frames")
        ->type_name("WIDTHxHEIGHT")
        ->capture_default_str();
    command.add_option("--seeds", options->seeds, "Bursts of each scene")
        ->check(CLI::Range(1, 1000))
        ->type_name("N")
        ->capture_default_str();
    command
        .add_option("--tolerance", options->tolerance,
                    "Factor on all limits; below 1 is stricter than the engines promise")
        ->check(aboveZero())
        ->type_name("X")
        ->capture_default_str();
    command.footer(footer);
    const auto results = addResultsOption(command);
    command.callback([options, results] { Selfcheck(*options, *results).run(); });
}

}  // namespace vxapp
