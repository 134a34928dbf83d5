// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "apps/files/OutputFile.h"
#include "apps/halvor/Settings.h"
#include "apps/halvor/StreamHints.h"
#include "enhancement/EnhancerChain.h"

namespace halvorapp {

/// Runs the enhancer chain over raw recordings, as the reference against which the hardware is compared.
///
/// A recording is a headerless sequence of frames of 16-bit little-endian two's complement samples. Each
/// frame stands in it at least twice: a frame counts when it repeats its predecessor, so that a torn one is
/// passed over. The output holds for each frame the low 16 bits of the peaking image and four image lines of
/// the binary histogram block, little-endian too.
///
/// The blocks keep what they have learned from one recording to the next.
class StreamProcessor
{
public:
    /// Prints a message when the settings can't be read or name no sensor size to work with; no recording
    /// yields a frame then.
    explicit StreamProcessor(const char* settingsPath);
    StreamProcessor(const StreamProcessor&) = delete;
    StreamProcessor& operator=(const StreamProcessor&) = delete;
    ~StreamProcessor();

    /// Processes one recording and prints how it went.
    ///
    /// @param settingsPath  for the equaliser's and the peaking block's sections
    /// @param stream        the recording; null for the one that the settings name
    /// An earlier output is replaced when the new one is whole, and stays if that fails.
    /// @return false when a file could not be opened or not be written whole
    bool process(const char* settingsPath, const char* stream);

private:
    struct CloseFile  // of File, the owner
    {
        void operator()(std::FILE* file) const
        {
            std::fclose(file);  // NOLINT(cppcoreguidelines-owning-memory)
        }
    };
    using File = std::unique_ptr<std::FILE, CloseFile>;

    bool openInput();
    bool openOutput(const char* settingsPath);
    bool putInPlace();
    std::string outputName() const;
    bool readFrame();
    bool readCapture(std::vector<unsigned char>& buffer);
    void tellHint() const;
    bool writeFrame();
    bool writeWords(const int* words, int count);

    Settings settings_;
    int pixelCount_;
    int frameIndex_ = 0;
    StreamCensus census_;
    std::vector<unsigned char> frameBufferA_;
    std::vector<unsigned char> frameBufferB_;
    std::vector<unsigned char> outputBuffer_;
    bool hasPredecessor_ = false;
    File inFile_;
    std::unique_ptr<vxfiles::OutputFile> outFile_;
    halvor::vx::EnhancerChain chain_;
};

}  // namespace halvorapp
