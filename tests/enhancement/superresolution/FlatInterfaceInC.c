/* Compiled as C11: the header's promise to hosts in C, with each function's exact type. */
#include "enhancement/superresolution/FlatInterfaceInC.h"

#include "enhancement/superresolution/SuperResolutionCAdapter.h"

int addAndFetchInC(const float* frames, int width, int height, int count, float* image)
{
    int (*const init)(int, int) = SuperResolution_init;
    int (*const setCamera)(int, const char*) = SuperResolution_setCameraAndLensType;
    int (*const addImage)(int, const float*) = SuperResolution_addImage;
    int (*const querySize)(int, int*, int*) = SuperResolution_queryOutputImageSize;
    int (*const getImage)(int, float*) = SuperResolution_getSuperresolutionImage;
    int (*const setReference)(int, int) = SuperResolution_setReferenceFrame;
    int (*const getMessage)(char*, int) = SuperResolution_getErrorMessage;
    int (*const release)(int) = SuperResolution_release;

    char message[8];
    int outWidth = 0;
    int outHeight = 0;
    const int context = init(width, height);
    int worst = setCamera(context, "k322 FOV25") + setReference(context, 3) + getMessage(message, 8);
    for (int i = 0; i < count; ++i) {
        const int code = addImage(context, frames + i * width * height);
        worst = code < worst ? code : worst;
    }
    if (querySize(context, &outWidth, &outHeight) == 0 && outWidth == 2 * width && outHeight == 2 * height)
        worst += getImage(context, image);
    else
        worst = -1;
    return worst + release(context);
}
