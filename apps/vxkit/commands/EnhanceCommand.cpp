// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/EnhanceCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "apps/vxkit/arguments/ChainArguments.h"
#include "apps/vxkit/arguments/LookArguments.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultArguments.h"
#include "apps/vxkit/arguments/RunArguments.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/stream/ContactSheet.h"
#include "apps/vxkit/stream/Enhancement.h"
#include "apps/vxkit/stream/FrameRun.h"
#include "apps/vxkit/stream/LookMeasures.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

struct EnhanceOptions
{
    RecordingOptions recording;
    EnhancementOptions enhancement;
    SequenceOptions results;
    ContactSheetOptions sheet;
    bool measures = false;
};

/// One run of the command; its construction checks everything that can be checked without a frame.
class EnhanceRun
{
public:
    explicit EnhanceRun(const EnhanceOptions& options);
    void run();

private:
    RunTimes enhanceAll();
    void deliver(int index);

    EnhanceOptions options_;
    Recording recording_;
    Enhancement enhancement_;
    SampleType resultType_;
    std::unique_ptr<FrameSink> sink_;
    std::optional<ContactSheet> sheet_;
    std::optional<LookMeasures> measures_;
    cv::Mat_<std::uint16_t> input_, counts_;
};

void checkNames(const EnhanceOptions& options)
{
    if (options.results.path.empty() && options.sheet.path.empty() && !options.measures)
        throw UsageError("nowhere to write to; expected -o OUT or --contact-sheet FILE.png");
    // Of a sequence, whose files have numbers, they would be two, but hardly what was meant.
    if (options.results.path == options.sheet.path && !options.sheet.path.empty())
        throw UsageError(options.sheet.path +
                         ": expected different names for the result and its contact sheet");
}

Recording openRecording(const EnhanceOptions& options)
{
    checkNames(options);
    return Recording(options.recording);
}

EnhanceRun::EnhanceRun(const EnhanceOptions& options)
    : options_(options),
      recording_(openRecording(options)),
      enhancement_(recording_, options.enhancement),
      resultType_(enhancement_.isEqualised() ? SampleType::u16
                                             : enhancement_.scale().typeFor(options.results))
{
    checkBadPixelNames(options.enhancement.badPixels, recording_, options.results.force);
    if (options.measures && !enhancement_.isEqualised())
        throw UsageError("--measure: expected frames that are equalised, not --no-hist");
    if (!options.results.path.empty())
        sink_ = openFrameSink(
            options.results, recording_, {recording_.frameSize(), recording_.frameCount(), resultType_},
            enhancement_.isEqualised() ? equalisedRange : vxsupport::ValueRange{0.0F, 0.0F});
    if (options.sheet.path.empty())
        return;
    ContactSheetOptions sheet = options.sheet;
    sheet.colourMap = options.results.colourMap;
    sheet.force = options.results.force;
    sheet_.emplace(sheet, recording_, enhancement_.scale().form());
}

void EnhanceRun::run()
{
    const BadPixelOptions& badPixels = options_.enhancement.badPixels;
    const Survey found = survey(recording_, enhancement_.scale(), badPixels);
    std::cout << enhancement_.scale().description() << '\n'
              << tellBadPixels(found, badPixels, options_.results.force) << '\n';
    enhancement_.settle(found);
    std::cout << settingsText(enhancement_.settings(), enhancement_.tone()) << std::flush;
    if (options_.measures)
        measures_.emplace();
    const RunTimes times = enhanceAll();
    std::cout << speedText(times, recording_.frameSize(), "the chain") << std::endl;
    if (measures_)
        std::cout << measures_->text() << std::flush;
    if (sheet_)
        std::cout << sheet_->write() << std::endl;
    if (sink_)
        std::cout << sink_->finish() << std::endl;
    std::cout << enhancement_.scale().remarks() << std::flush;
}

RunTimes EnhanceRun::enhanceAll()
{
    const QuietStandardOutput quiet;
    if (enhancement_.runsTwice())
        forEachFrame(
            recording_, enhancement_.scale(),
            [&](const cv::Mat_<short>& samples) { enhancement_.measure(samples); }, [](int) {});
    return forEachFrame(
        recording_, enhancement_.scale(),
        [&](const cv::Mat_<short>& samples) {
            if (measures_)
                toCounts(samples, SampleForm::unsignedCounts, input_);
            enhancement_.enhance(samples);
        },
        [&](int index) { deliver(index); });
}

void EnhanceRun::deliver(int index)
{
    if (sheet_)
        sheet_->add(index, enhancement_.chain());
    if (!enhancement_.isEqualised()) {
        if (sink_)
            sink_->add(enhancement_.scale().toFile(enhancement_.enhanced(), resultType_));
        return;
    }
    // What is equalised counts from 0 on, whatever the input did.
    toCounts(enhancement_.enhanced(), SampleForm::signedSamples, counts_);
    if (measures_)
        measures_->add(input_, counts_, topLevel);
    if (sink_)
        sink_->add(counts_);
}

const char* const footer = R"(Looks:
  A look chooses the settings of the noise blocks by the recording's own noise, and spreads the frames over the
  display by a curve of its own, in place of the chain's equaliser: from the 1st to the 99th percentile, so far
  equalised as the look says, smoothed over time and led along when the level of the whole picture drifts. The
  recording runs through the chain twice for it. An option of the equaliser (--hist-...) leaves that to the
  chain's equaliser, one of another block wins over the look's value. "device" is the chain with its own defaults.

Results:
  Equalised frames are 0 to 32766. With --no-hist frames stay in the units of the input: .tif and .npy
  hold them as floats where the input or --scale has degrees; other files hold counts, whose scale is told.
  Every block but peaking and spatial noise reduction learns from frame to frame, so that the first frames of a
  recording are enhanced less well. The equaliser builds the curve of a frame from those before it; the first
  gets a straight one.

Settings files:
  INI form with the sections [TNR_Parameter], [SPR_Parameter], [SNR_Parameter], [Histogram_Parameter] and
  [Peaking_Parameter], as the program halvor reads them. A block that the file does not switch on or off, and a
  setting that it does not name, is as halvor has it: peaking, for example, is off. [Main_Window] names halvor's
  own stream and is not read. The keys range, rangedis and poffdis have no effect in the chain.

Examples:
  vxkit enhance recording.raw --size 160x120 -o enhanced.avi --contact-sheet stages.png
  vxkit enhance recording.raw --size 160x120 --look strong -o strong.tif --write-bad-pixels map.png
  vxkit enhance frame-*.png -o enhanced.png --tnr-alpha 80 --hist-gamma -3 --no-peak
  vxkit enhance recording.tif --settings camera.ini --hist-mode linear -o enhanced.raw)";

}  // namespace

void addEnhanceCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "enhance",
        "Runs the camera's enhancer chain over a recording: noise, pattern, equalisation, peaking");
    auto options = std::make_shared<EnhanceOptions>();
    addRecordingOptions(command, options->recording);
    addScaleOptions(command, options->enhancement.scale);
    addSequenceOptions(command, options->results);
    addContactSheetOptions(command, options->sheet);
    addChainOptions(command, options->enhancement.chain);
    addReachOption(command, options->enhancement.reach);
    addBadPixelOptions(command, options->enhancement.badPixels);
    command.add_flag(
        "--measure", options->measures,
        "Also (or, without -o, only) print how the display is used: the share of its levels "
        "between\nthe 1st and the 99th percentile (mean and least), standard deviation and largest "
        "jump of the\nmedian from frame to frame in 256 levels, clipped pixels; beside those of the "
        "input, each\nframe stretched between these percentiles");
    command.footer(footer);
    command.callback([options, &command] {
        options->recording.files = filesReadBy(command);
        EnhanceRun(*options).run();
    });
}

}  // namespace vxapp
