// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "fuzz/FuzzInput.h"

// The functions of the flat interface in any order, on several contexts of small sizes.
namespace {

constexpr int mostCalls = 40;
constexpr int mostFrames = 12;
constexpr int largestSide = 48;
constexpr std::array<int, 6> absurdSides{0, -1, -160, -2147483647 - 1, 1, 2};

struct Context
{
    int number;
    cv::Size size;
};

void requireCode(int code)
{
    constexpr std::array codes{SuperResolution_success,      SuperResolution_fallbackPixel,
                               SuperResolution_poorFrame,    SuperResolution_noStructure,
                               SuperResolution_tooFewFrames, SuperResolution_noCorner,
                               SuperResolution_failure};
    vxfuzz::require(std::find(codes.begin(), codes.end(), code) != codes.end(),
                    "a function answers with one of its codes");
}

class FlatRun
{
public:
    explicit FlatRun(vxfuzz::Numbers numbers) : numbers_(numbers) {}
    ~FlatRun()
    {
        for (const Context& context : contexts_)
            SuperResolution_release(context.number);
    }
    FlatRun(const FlatRun&) = delete;
    FlatRun& operator=(const FlatRun&) = delete;

    void run()
    {
        open();
        for (int call = 0; call < mostCalls && !numbers_.isAtEnd(); ++call)
            callOne();
    }

private:
    void callOne()
    {
        switch (numbers_.upTo(11)) {
            case 0:
                return open();
            case 1:
                return setCamera();
            case 2:
                return setReference();
            case 3:
                return readSize();
            case 4:
                return readImage();
            case 5:
                return readMessage();
            case 6:
                return release();
            default:
                return add();
        }
    }

    // Now and then a number that may belong to no context.
    int anyContext()
    {
        const int choice = numbers_.upTo(15);
        if (choice == 15 || contexts_.empty())
            return numbers_.setting();
        return contexts_[static_cast<std::size_t>(choice) % contexts_.size()].number;
    }

    const Context* known(int number) const
    {
        const auto found = std::find_if(contexts_.begin(), contexts_.end(),
                                        [number](const Context& c) { return c.number == number; });
        return found != contexts_.end() ? &*found : nullptr;
    }

    int side()
    {
        const int choice = numbers_.byte();
        return choice < 240 ? 1 + choice % largestSide
                            : absurdSides.at(static_cast<std::size_t>(choice) % absurdSides.size());
    }

    void open()
    {
        const cv::Size size{side(), side()};  // in this order
        if (contexts_.size() >= 4)
            return;
        const int number = SuperResolution_init(size.width, size.height);
        vxfuzz::require(number < 0 || (size.width >= 0 && size.height >= 0), "a context has a size");
        if (number >= 0)
            contexts_.push_back({number, size});
    }

    void setCamera()
    {
        std::string text;
        for (int length = numbers_.upTo(20); length > 0; --length)
            text.push_back(static_cast<char>(numbers_.byte()));
        if (numbers_.upTo(1) == 0)
            text = "k325 FOV" + std::to_string(numbers_.setting());
        SuperResolution_setCameraAndLensType(anyContext(), text.c_str());
    }

    void setReference()
    {
        const int index = numbers_.upTo(3) == 0 ? numbers_.setting() : numbers_.upTo(4);
        try {
            requireCode(SuperResolution_setReferenceFrame(anyContext(), index));
        } catch (const char*) {
            vxfuzz::require(index < 0 || index > 4, "an index from 0 to 4 is taken");
        }
    }

    void add()
    {
        const int number = anyContext();
        const Context* context = known(number);
        if (++frames_ > mostFrames)
            return;
        const cv::Mat_<float> frame =
            numbers_.frame(context != nullptr ? context->size : cv::Size(largestSide, largestSide));
        requireCode(SuperResolution_addImage(number, frame.ptr<float>()));
    }

    void readSize()
    {
        const int number = anyContext();
        const Context* context = known(number);
        int width = -7;
        int height = -7;
        const int code = SuperResolution_queryOutputImageSize(number, &width, &height);
        requireCode(code);
        if (context != nullptr && code != SuperResolution_failure)
            vxfuzz::require(width == 2 * context->size.width && height == 2 * context->size.height,
                            "the large image has twice the size");
    }

    void readImage()
    {
        const int number = anyContext();
        const Context* context = known(number);
        const cv::Size size = context != nullptr ? context->size : cv::Size(largestSide, largestSide);
        std::vector<float> image(static_cast<std::size_t>(4 * size.area()));
        requireCode(SuperResolution_getSuperresolutionImage(number, image.data()));
    }

    void readMessage()
    {
        const int room = numbers_.upTo(80);
        std::vector<char> text(static_cast<std::size_t>(room) + 1, 'x');
        SuperResolution_getErrorMessage(text.data(), numbers_.upTo(7) == 0 ? -room : room);
        vxfuzz::require(text.back() == 'x', "a message stays within its buffer");
    }

    void release()
    {
        const int number = anyContext();
        const bool isOpen = known(number) != nullptr;
        vxfuzz::require((SuperResolution_release(number) == SuperResolution_success) == isOpen,
                        "an open context can be released, and no other one");
        std::erase_if(contexts_, [number](const Context& context) { return context.number == number; });
    }

    vxfuzz::Numbers numbers_;
    std::vector<Context> contexts_;
    int frames_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FlatRun(vxfuzz::Numbers(vxfuzz::textOf(data, size))).run();
    return 0;
}
