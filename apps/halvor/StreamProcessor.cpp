// SPDX-License-Identifier: Apache-2.0
#include "apps/halvor/StreamProcessor.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "apps/files/RunFiles.h"
#include "apps/halvor/Version.h"

namespace halvorapp {

namespace {

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

// On the standard error stream: the texts on the standard output are those that programs know.
void tellReason(const std::exception& error)
{
    std::fprintf(stderr, "halvor: %s\n", error.what());
}

halvor::vx::NoiseSettings noiseSettings(const Settings& s)
{
    return {s.tnrCGain, s.tnrGlobal, s.tnrAlpha, s.sprThreshold, s.sprMaxFrame, s.sprMaxLine, s.snrGain};
}

}  // namespace

StreamProcessor::StreamProcessor(const char* settingsPath)
    : settings_(usableSettings(settingsPath)),
      pixelCount_(settings_.cols * settings_.rows),
      frameBufferA_(2 * static_cast<std::size_t>(pixelCount_)),
      frameBufferB_(frameBufferA_.size()),
      outputBuffer_(frameBufferA_.size()),
      chain_(settings_.cols, settings_.rows, noiseSettings(settings_),
             {settings_.tnrMode, settings_.sprEnable, settings_.snrMode}, patternDelay)
{
    chain_.makeBinData(settings_.cols);
}

StreamProcessor::~StreamProcessor() = default;

bool StreamProcessor::process(const char* settingsPath, const char* stream)
{
    chain_.histogram->SetParam(settingsPath);
    chain_.peaking->SetParam(settingsPath);
    if (stream != nullptr)
        settings_.fileName = stream;
    frameIndex_ = 0;
    census_ = {};
    if (pixelCount_ == 0) {
        // Nothing is opened, so that an earlier result stays as it is.
        std::fprintf(stderr,
                     "halvor: the settings name no usable sensor size: %s is not processed (-s FILE names "
                     "settings; share/vxkit/halvor.ini is an example)\n",
                     settings_.fileName.empty() ? "the stream" : settings_.fileName.c_str());
        return false;
    }
    if (!openInput() || !openOutput(settingsPath))
        return false;
    std::printf("proc: %d frames ... ", settings_.length);
    bool isWhole = true;
    // The frame that reaches the length is read and dropped: at most length - 1 frames are processed.
    while (isWhole && readFrame() && frameIndex_ < settings_.length) {
        chain_.process(frameIndex_ - 1);
        isWhole = writeFrame();
    }
    isWhole = isWhole && putInPlace();
    outFile_.reset();
    inFile_.reset();
    std::printf("%d processed\n\n", frameIndex_);
    std::fflush(stdout);
    tellHint();
    return isWhole;
}

bool StreamProcessor::openInput()
{
    const std::string& in = settings_.fileName;
    inFile_.reset(std::fopen(in.c_str(), "rb"));  // NOLINT(cppcoreguidelines-owning-memory)
    if (!isReadable(inFile_.get())) {
        std::printf("open: Cannot load %s\n", in.c_str());
        if (in.empty() || in[0] == '-')
            std::fprintf(stderr, "halvor: %s; halvor --help tells about options and settings\n",
                         in.empty() ? "neither the command line nor the settings name a stream"
                                    : (in + " is taken for a stream").c_str());
        return false;
    }
    std::printf("open: %s\n", in.c_str());
    return true;
}

bool StreamProcessor::openOutput(const char* settingsPath)
{
    const std::string name = outputName();
    try {
        vxfiles::RunFiles files;
        files.reads(settings_.fileName);
        files.reads(settingsPath != nullptr ? settingsPath : "");
        files.writes(name, true);
        outFile_ = std::make_unique<vxfiles::OutputFile>(name, true, nullptr, vxfiles::Delivery::streamed);
        outFile_->append("");  // a stream without frames has an empty output
    } catch (const std::runtime_error& error) {
        std::printf("save: Cannot write to %s\n", name.c_str());
        tellReason(error);
        return false;
    }
    std::printf("save: %s\n", name.c_str());
    return true;
}

bool StreamProcessor::putInPlace()
{
    try {
        outFile_->commit();
    } catch (const std::runtime_error& error) {
        std::printf("write: truncated frame %d\n", frameIndex_);
        tellReason(error);
        return false;
    }
    return true;
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
                                                  {chain_.histogram->param.mode, "hist_"},
                                                  {chain_.peaking->param.enabled, "peak_"}};
    for (const auto& [isOn, text] : blocks)
        if (isOn != 0)
            name += text;
    return name + versionText + ").proc";
}

bool StreamProcessor::readCapture(std::vector<unsigned char>& buffer)
{
    const std::size_t bytes = std::fread(buffer.data(), 1, buffer.size(), inFile_.get());
    if (bytes == buffer.size()) {
        ++census_.captures;
        return true;
    }
    census_.isAtEnd = true;
    census_.rest = bytes;
    return false;
}

// On the standard error stream: what stands on the standard output is read by programs.
void StreamProcessor::tellHint() const
{
    StreamCensus census = census_;
    census.frameBytes = frameBufferA_.size();
    census.frames = frameIndex_;
    const std::string hint = hintFor(settings_.fileName, census);
    if (!hint.empty())
        std::fprintf(stderr, "halvor: %s: %s\n", settings_.fileName.c_str(), hint.c_str());
}

bool StreamProcessor::readFrame()
{
    bool isRepeated = false;
    while (!isRepeated) {
        std::vector<unsigned char>& buffer = readToggle == 0 ? frameBufferA_ : frameBufferB_;
        if (!readCapture(buffer))
            return false;
        readToggle = readToggle == 0 ? 1 : 0;
        isRepeated = hasPredecessor_ && frameBufferA_ == frameBufferB_;
        hasPredecessor_ = true;
    }
    const unsigned char* bytes = frameBufferA_.data();
    int* sample = chain_.input->row(0);
    for (int i = 0; i < pixelCount_; ++i, bytes += 2)
        sample[i] = static_cast<signed char>(bytes[1]) * 256 + bytes[0];
    ++frameIndex_;
    return true;
}

bool StreamProcessor::writeFrame()
{
    if (!writeWords(chain_.output->row(0), pixelCount_)) {
        std::printf("write: truncated frame %d\n", frameIndex_);
        return false;
    }
    if (!writeWords(chain_.binData->row(0), chain_.binData->size)) {
        std::printf("write: truncated histo data %d\n", frameIndex_);
        return false;
    }
    return true;
}

// The low 16 bits, written at once, so that a full disk shows with the frame that it cuts off.
bool StreamProcessor::writeWords(const int* words, int count)
{
    const std::size_t bytes = 2 * static_cast<std::size_t>(count);
    outputBuffer_.resize(std::max(outputBuffer_.size(), bytes));
    for (std::size_t i = 0; i < bytes; i += 2) {
        const unsigned word = static_cast<unsigned>(words[i / 2]);
        outputBuffer_[i] = static_cast<unsigned char>(word & 0xFF);
        outputBuffer_[i + 1] = static_cast<unsigned char>(word >> 8 & 0xFF);
    }
    try {
        outFile_->append({reinterpret_cast<const char*>(outputBuffer_.data()), bytes});
    } catch (const std::runtime_error& error) {
        tellReason(error);
        return false;
    }
    return true;
}

}  // namespace halvorapp
