#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plain {

/// The temporal noise reduction pixel by pixel, as a test double of the fast block and of the fast filter.
class Temporal
{
public:
    struct Settings
    {
        int controlGain = 10;
        int globalThreshold = 15;
        int feedbackFactor = 60;
        bool hwUnits = false;
    };

    /// @param bypass  as that of TnrCmod
    Temporal(int cols, int rows, const Settings& settings, int bypass);

    void process(const int* in, int* out);
    void process(const short* in, short* out);

    int alpha() const { return alpha_; }

private:
    template <typename Pixel>
    void run(const Pixel* in, Pixel* out);
    template <typename Pixel>
    Pixel filterPixel(Pixel pixel, int& history, int controlGain, std::int64_t& sum) const;
    void adapt(std::int64_t sum, int threshold, int setting);

    int cols_;
    int rows_;
    const Settings& settings_;
    int bypass_;
    std::vector<int> history_;
    int alpha_ = 0;
    int globalError_ = 0;
    bool firstFrame_ = true;
};

}  // namespace plain
