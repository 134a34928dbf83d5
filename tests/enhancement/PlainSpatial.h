#pragma once

namespace plain {

/// The spatial noise removal pixel by pixel, as a test double of the fast block and of the fast filter.
class Spatial
{
public:
    /// @param bypass  as that of SnrCmod
    Spatial(int cols, int rows, const int& gain, int bypass);

    void process(const int* in, int* out) const;
    void process(const short* in, short* out) const;

private:
    template <typename Pixel>
    Pixel processPixel(const Pixel* in, int x, int y) const;
    template <typename Pixel>
    void window3x3(const Pixel* in, int x, int y, int window[9]) const;
    int detailGain(int variance) const;

    int cols_;
    int rows_;
    const int& gain_;
    int bypass_;
};

}  // namespace plain
