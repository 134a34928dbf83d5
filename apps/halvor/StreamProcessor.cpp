#include "apps/halvor/StreamProcessor.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "apps/halvor/Version.h"

namespace halvorapp {

namespace {

constexpr int binLines = 4;  // image lines of the binary histogram block
constexpr int patternDelay = 1;
constexpr long long largestFrame = 1LL << 24;  // pixels

// Which buffer takes the next frame: one for the whole process, since the hardware's capture never stops.
int readToggle = 0;

// A frame size that the chain can work with; anything else leaves frames without pixels.
Settings usableSettings(const char* path)
{
    Settings settings;
    const bool isRead = readSettings(path, settings);
    const long long pixels = static_cast<long long>(settings.cols) * settings.rows;
    const bool isUsable = settings.cols > 0 && settings.rows > 0 && pixels <= largestFrame;
    if (!isRead)
        std::printf("main: Cannot read %s\n", path != nullptr ? path : "(null)");
    else if (!isUsable)
        std::printf("main: Cannot use a sensor of %d x %d\n", settings.cols, settings.rows);
    if (!isRead || !isUsable) {
        settings.cols = 0;
        settings.rows = 0;
    }
    return settings;
}

// A folder opens like a file, but the first read fails.
bool isReadable(std::FILE* file)
{
    if (file == nullptr)
        return false;
    std::ungetc(std::fgetc(file), file);
    return std::ferror(file) == 0;
}

int bypassFor(int mode)
{
    return mode == 0 ? 1 : 0;
}

}  // namespace

StreamProcessor::StreamProcessor(const char* settingsPath)
    : settings_(usableSettings(settingsPath)),
      pixelCount(settings_.cols * settings_.rows),
      frameBufferA(2 * static_cast<std::size_t>(pixelCount)),
      frameBufferB(frameBufferA.size()),
      outputBuffer(frameBufferA.size()),
      tnrModule(std::make_unique<TnrCmod>(settings_.cols, settings_.rows, settings_.tnrCGain,
                                          settings_.tnrGlobal, settings_.tnrAlpha,
                                          bypassFor(settings_.tnrMode), 0)),
      sprModule(std::make_unique<SprCmod>(settings_.cols, settings_.rows, settings_.sprThreshold,
                                          settings_.sprMaxLine, settings_.sprMaxFrame, patternDelay,
                                          bypassFor(settings_.sprEnable))),
      snrModule(std::make_unique<SnrCmod>(settings_.cols, settings_.rows, settings_.snrGain,
                                          bypassFor(settings_.snrMode))),
      histogramModule(std::make_unique<Histogram>(settings_.cols, settings_.rows)),
      peakingModule(std::make_unique<Peaking>(settings_.cols, settings_.rows)),
      inputArray(settings_.rows, settings_.cols),
      tnrArray(settings_.rows, settings_.cols),
      sprArray(settings_.rows, settings_.cols),
      snrArray(settings_.rows, settings_.cols),
      histoArray(settings_.rows, settings_.cols),
      histoBinArray(binLines, settings_.cols, histogramModule->BinDataRoom()),
      peakArray(settings_.rows, settings_.cols)
{}

StreamProcessor::~StreamProcessor() = default;

bool StreamProcessor::process(const char* settingsPath, const char* stream)
{
    histogramModule->SetParam(settingsPath);
    peakingModule->SetParam(settingsPath);
    if (stream != nullptr)
        settings_.fileName = stream;
    frameIndex = 0;
    if (!openFiles())
        return false;
    std::printf("proc: %d frames ... ", settings_.length);
    bool isWhole = true;
    // The frame that reaches the length is read and dropped: at most length - 1 frames are processed.
    while (isWhole && readFrame() && frameIndex < settings_.length) {
        coreProc(frameIndex - 1);
        isWhole = writeFrame();
    }
    std::printf("%d processed\n\n", frameIndex);
    return closeFiles() && isWhole;
}

StreamProcessor::File StreamProcessor::openFile(const std::string& name, const char* mode)
{
    return File(std::fopen(name.c_str(), mode));  // NOLINT(cppcoreguidelines-owning-memory)
}

bool StreamProcessor::openFiles()
{
    const std::string& in = settings_.fileName;
    inFile = openFile(in, "rb");
    if (!isReadable(inFile.get())) {
        std::printf("open: Cannot load %s\n", in.c_str());
        return false;
    }
    std::printf("open: %s\n", in.c_str());
    const std::string name = outputName();
    // Without a frame size there is nothing to write: an earlier result stays as it is.
    outFile = pixelCount > 0 ? openFile(name, "wb") : nullptr;
    if (!outFile) {
        std::printf("save: Cannot write to %s\n", name.c_str());
        inFile.reset();
        return false;
    }
    std::printf("save: %s\n", name.c_str());
    return true;
}

// Every frame has been flushed, but some file systems tell of a loss only at the end.
bool StreamProcessor::closeFiles()
{
    inFile.reset();
    const bool isClosed = std::fclose(outFile.release()) == 0;
    if (!isClosed)
        std::printf("write: truncated frame %d\n", frameIndex);
    return isClosed;
}

// The last dot may stand in the name of a folder: the rule is as simple as that.
std::string StreamProcessor::outputName() const
{
    const std::size_t dot = settings_.fileName.rfind('.');
    std::string name = dot != std::string::npos ? settings_.fileName.substr(0, dot) : std::string();
    name += ".(";
    const std::pair<int, const char*> blocks[] = {{settings_.sprEnable, "spr_"},
                                                  {settings_.snrMode, "snr_"},
                                                  {settings_.tnrMode, "tnr_"},
                                                  {histogramModule->param.mode, "hist_"},
                                                  {peakingModule->param.enabled, "peak_"}};
    for (const auto& [isOn, text] : blocks)
        if (isOn != 0)
            name += text;
    return name + versionText + ").proc";
}

bool StreamProcessor::readFrame()
{
    bool isRepeated = false;
    while (!isRepeated) {
        std::vector<unsigned char>& buffer = readToggle == 0 ? frameBufferA : frameBufferB;
        if (std::fread(buffer.data(), 1, buffer.size(), inFile.get()) != buffer.size())
            return false;
        readToggle = readToggle == 0 ? 1 : 0;
        isRepeated = hasPredecessor_ && frameBufferA == frameBufferB;
        hasPredecessor_ = true;
    }
    const unsigned char* bytes = frameBufferA.data();
    int* sample = inputArray.row(0);
    for (int i = 0; i < pixelCount; ++i, bytes += 2)
        sample[i] = static_cast<signed char>(bytes[1]) * 256 + bytes[0];
    ++frameIndex;
    return true;
}

bool StreamProcessor::writeFrame()
{
    if (!writeWords(peakArray.row(0), pixelCount)) {
        std::printf("write: truncated frame %d\n", frameIndex);
        return false;
    }
    if (!writeWords(histoBinArray.row(0), binLines * settings_.cols)) {
        std::printf("write: truncated histo data %d\n", frameIndex);
        return false;
    }
    return true;
}

// The low 16 bits, flushed, so that a full disk shows with the frame that it cuts off.
bool StreamProcessor::writeWords(const int* words, int count)
{
    const std::size_t bytes = 2 * static_cast<std::size_t>(count);
    outputBuffer.resize(std::max(outputBuffer.size(), bytes));
    for (std::size_t i = 0; i < bytes; i += 2) {
        const unsigned word = static_cast<unsigned>(words[i / 2]);
        outputBuffer[i] = static_cast<unsigned char>(word & 0xFF);
        outputBuffer[i + 1] = static_cast<unsigned char>(word >> 8 & 0xFF);
    }
    return std::fwrite(outputBuffer.data(), 1, bytes, outFile.get()) == bytes &&
           std::fflush(outFile.get()) == 0;
}

void StreamProcessor::coreProc(int frame)
{
    halvor::vx::runStages(
        frame, {*tnrModule, *sprModule, *snrModule, *histogramModule, *peakingModule, inputArray, tnrArray,
                sprArray, snrArray, histoArray, histoBinArray, peakArray});
}

}  // namespace halvorapp
