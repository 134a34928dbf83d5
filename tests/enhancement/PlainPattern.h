#pragma once

#include <vector>

namespace plain {

/// The static pattern removal pixel by pixel, as a test double of the fast block and of the fast filter.
class Pattern
{
public:
    struct Settings
    {
        int threshold = 22;
        int lineLimit = 12;
        int frameLimit = 16;
    };

    /// The form of the block.
    /// @param delay, bypass  as those of SprCmod
    Pattern(int cols, int rows, const Settings& settings, int delay, int bypass);

    /// The form of the filter: line values are stored at once, samples of 32767 pass, and 0.7 of the
    /// threshold is taken in single precision.
    Pattern(int cols, int rows, const Settings& settings);

    void process(const int* in, int* out);
    void process(const short* in, short* out);

private:
    template <typename Pixel>
    void run(const Pixel* in, Pixel* out);
    template <typename Pixel>
    Pixel correctPixel(Pixel pixel, int line, int frame) const;
    template <typename Pixel>
    void learn(const Pixel* in, int x, int y);
    void learnFrame(int& value, int centre, const int (&w3)[9], const int (&w9)[9], const int (&wl)[9]) const;
    int learnedLine(int value, int centre, const int (&w3)[9], const int (&w9)[9]) const;
    void storeLine(int x, int value);
    void flush();
    int& lineAt(int x);

    int cols_;
    int rows_;
    const Settings& settings_;
    int delay_;
    int bypass_;
    bool isFilter_;
    int th07_ = 0;
    bool firstFrame_ = true;
    std::vector<int> line_;
    std::vector<int> frame_;
    int held_[2] = {0, 0};
};

}  // namespace plain
