// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/EnhanceCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "apps/vxkit/arguments/ChainArguments.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultArguments.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/stream/ChainSettings.h"
#include "apps/vxkit/stream/ContactSheet.h"
#include "apps/vxkit/stream/FrameRun.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

struct EnhanceOptions
{
    RecordingOptions recording;
    SampleForm form = SampleForm::unsignedCounts;
    ChainOptions chain;
    SequenceOptions results;
    ContactSheetOptions sheet;
};

/// One run of the command; its construction checks everything that can be checked without a frame.
class EnhanceRun
{
public:
    explicit EnhanceRun(const EnhanceOptions& options);
    void run();

private:
    bool isEqualised() const { return settings_.histMode != 0; }
    void deliver(int index);

    SampleForm form_;
    Recording recording_;
    ChainSettings settings_;
    std::unique_ptr<FrameSink> sink_;
    std::optional<ContactSheet> sheet_;
    halvor::vx::MARLOImageEnhancer chain_;
    cv::Mat_<short> enhanced_;
    cv::Mat_<std::uint16_t> counts_;
};

void checkNames(const EnhanceOptions& options)
{
    if (options.results.path.empty() && options.sheet.path.empty())
        throw UsageError("nowhere to write to; expected -o OUT or --contact-sheet FILE.png");
    if (options.results.path == options.sheet.path)
        throw UsageError(options.sheet.path +
                         ": expected different names for the result and its contact sheet");
}

Recording openRecording(const EnhanceOptions& options)
{
    checkNames(options);
    Recording recording(options.recording);
    if (recording.frameSize().width < 2)
        throw UsageError(recording.nameOf(0) + ": the chain needs frames of at least two columns");
    return recording;
}

EnhanceRun::EnhanceRun(const EnhanceOptions& options)
    : form_(options.form),
      recording_(openRecording(options)),
      settings_(chainSettings(options.chain, recording_.frameSize())),
      chain_(openChain(settings_, recording_.frameSize()))
{
    if (!options.results.path.empty())
        sink_ = openFrameSink(options.results, recording_,
                              isEqualised() ? equalisedRange : vxsupport::ValueRange{0.0F, 0.0F});
    if (options.sheet.path.empty())
        return;
    ContactSheetOptions sheet = options.sheet;
    sheet.colourMap = options.results.colourMap;
    sheet.force = options.results.force;
    sheet_.emplace(sheet, recording_, form_);
}

void EnhanceRun::run()
{
    const cv::Size size = recording_.frameSize();
    std::cout << settingsText(settings_) << std::flush;
    RunTimes times;
    {
        const QuietStandardOutput quiet;
        times = forEachFrame(
            recording_, form_,
            [this](const cv::Mat_<short>& frame) { chain_.processFrame(frame, enhanced_); },
            [this](int index) { deliver(index); });
    }
    std::cout << speedText(times, size, "the chain") << std::endl;
    if (sheet_)
        std::cout << sheet_->write() << std::endl;
    if (sink_)
        std::cout << sink_->finish() << std::endl;
}

void EnhanceRun::deliver(int index)
{
    if (sheet_)
        sheet_->add(index, chain_);
    if (!sink_)
        return;
    // What is equalised counts from 0 on, whatever the input did.
    toCounts(enhanced_, isEqualised() ? SampleForm::signedSamples : form_, counts_);
    sink_->add(counts_);
}

const char* const footer = R"(Results:
  Equalised frames are 0 to 32766. With --no-hist frames stay in the units of the input.
  Every block but peaking and spatial noise reduction learns from frame to frame, so that the first frames of a
  recording are enhanced less well. The curve of a frame is built from those before it; the first gets a
  straight one.

Settings files:
  INI form with the sections [TNR_Parameter], [SPR_Parameter], [SNR_Parameter], [Histogram_Parameter] and
  [Peaking_Parameter], as the program halvor reads them. A block that the file does not switch on or off, and a
  setting that it does not name, is as halvor has it: peaking, for example, is off. [Main_Window] names halvor's
  own stream and is not read. The keys range, rangedis and poffdis have no effect in the chain.

Examples:
  vxkit enhance recording.raw --size 160x120 -o enhanced.avi --contact-sheet stages.png
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
    addSampleOption(command, options->form);
    addSequenceOptions(command, options->results);
    addContactSheetOptions(command, options->sheet);
    addChainOptions(command, options->chain);
    command.footer(footer);
    command.callback([options] { EnhanceRun(*options).run(); });
}

}  // namespace vxapp
