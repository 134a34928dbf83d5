// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/base/Export.h"

/**
 * @file
 * Flat interface of the float super-resolution engine, for C11 and C++.
 *
 * A context takes frames of one size and makes one image of twice the width and height from the latest five.
 * A frame is an array of width * height single-precision values, row by row without gaps, in degrees Celsius;
 * the result has the same unit. The frames of a burst must show the same scene, displaced against each other
 * by a few pixels and by fractions of a pixel, as a hand-held camera does; the fractions are what the added
 * resolution comes from. A pixel may hold one of the 32-bit patterns 0x81 (over range), 0x82 (under range),
 * 0x84 or 0x85 (invalid) in place of a value: it is repaired.
 *
 * A typical run: init, setCameraAndLensType, five times addImage, queryOutputImageSize,
 * getSuperresolutionImage, and release. More frames may follow the fifth: each replaces the oldest and
 * computes the image anew.
 *
 * Functions answer with a SuperResolution_Code, as an int. Contexts, message and log are process-wide and not
 * locked: call from one thread at a time.
 *
 * After the first use a process must not fork and go on to use the library in the child: OpenMP's threads do
 * not exist there, and the first parallel loop waits for them for ever. Fork before the first use, or let the
 * child start a program (exec).
 *
 * If the environment variable VXKIT_LOG_FILE names a file when a context is opened, calls are logged there,
 * behind what the file holds, and frames and results are written to C:/temp/SrFloat.pfm and
 * C:/temp/SrFloat-Result.pfm if that folder exists.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** Codes of this interface, and of the engine classes behind it. Those of value -4, -5 and -999 leave a text for
 * SuperResolution_getErrorMessage. */
enum SuperResolution_Code
{
    SuperResolution_success = 0,
    /** A bad pixel had too few good neighbours and took a fallback value; the image was computed. */
    SuperResolution_fallbackPixel = -2,
    /** A frame has half or more of its pixels unregistered; the image was computed. */
    SuperResolution_poorFrame = -3,
    /** The frame has not enough structure: its values span less than 2 degrees; it was taken all the same. */
    SuperResolution_noStructure = -4,
    /** Fewer than five frames so far. */
    SuperResolution_tooFewFrames = -5,
    /** No corner of the reference frame could be tracked into a frame; the image is the one from before. */
    SuperResolution_noCorner = -9,
    /** A bad argument or an exception; SuperResolution_getErrorMessage tells which. */
    SuperResolution_failure = -999,

    /* Only engine classes answer with what follows. */

    /** A frame is displaced by more than a tenth of the height; the image was computed. */
    SuperResolution_largeDisplacement = -6,
    /** A frame exceeds the range of the earlier ones; the window was emptied. */
    SuperResolution_windowRestarted = -8,
    /** The frames could not be registered; no image was computed. */
    SuperResolution_registrationFailed = -998
};

/**
 * Opens a context for frames of the given size.
 *
 * The reference frame is the fourth newest (index 3), the point spread that of an unknown camera.
 * Memory grows linearly with width * height; all of it is allocated here.
 *
 * @param width, height  size of a frame in pixels
 * @return the context's number, 0 or more, or -1 after a failure that left a message. The number of a
 *         released context is given out again.
 *
 * For absurd sizes it does not return: what OpenCV or the memory refuses leaves it as a C++ exception
 * (cv::Exception, std::bad_alloc), which ends a program in C. A host that takes sizes from files checks them first.
 * No context is opened then.
 */
VXKIT_API int SuperResolution_init(int width, int height);

/**
 * Tells which camera and lens the frames come from, which sets the width of the sensor's point spread.
 *
 * @param context        an open context; with any other number nothing is set
 * @param cameraAndLens  text with the three digits of a camera model (310, 315, 316, 320, 321, 322, 325, 330)
 *                       and "FOV" followed by the lens's field of view, for example "k325 FOV25". Any other
 *                       text sets the point spread of an unknown camera.
 * @return 0
 */
VXKIT_API int SuperResolution_setCameraAndLensType(int context, const char* cameraAndLens);

/**
 * Adds a frame and, from the fifth one on, computes the large image from the latest five. This is the
 * expensive call.
 *
 * @param irImage  width * height values; copied, so the caller may reuse the memory at once
 * @return a SuperResolution_Code; of several findings the one furthest down this list: -4, -2, -3, -9. After an
 *         exception (-999) while the frame was taken in, it does not count; one while the image was computed
 *         leaves it counted.
 */
VXKIT_API int SuperResolution_addImage(int context, const float* irImage);

/**
 * Tells the size of the large image.
 *
 * Before the fifth frame the image is also computed from the frames that are there, so that
 * SuperResolution_getSuperresolutionImage gives a preview.
 *
 * @param width, height  take the size in pixels, also with a negative code, unless the context is invalid;
 *                       must not be null
 * @return 0; -5 before the fifth frame; -999
 */
VXKIT_API int SuperResolution_queryOutputImageSize(int context, int* width, int* height);

/**
 * Copies the image that was computed last. Before the first computation its values are undefined.
 *
 * @param irMosaic  room for the large image, row by row without gaps; must not be null
 * @return 0; -5 before the fifth frame, with the image copied nevertheless; -999
 */
VXKIT_API int SuperResolution_getSuperresolutionImage(int context, float* irMosaic);

/**
 * Chooses the frame that the large image is aligned with; takes effect with the next frame.
 *
 * @param index  0 (the newest frame) to 4 (the oldest). Any other index leaves this function as a C++
 *               exception of type const char*: a host in C must not pass one.
 * @return 0, or -999 for an invalid context
 */
VXKIT_API int SuperResolution_setReferenceFrame(int context, int index);

/**
 * Copies the text of the last failure of any context; a success does not clear it.
 *
 * @param buffer  takes up to size characters; zero-filled behind the text, but not terminated if the text
 *                fills it
 * @param size    room in the buffer; with 0 or less, nothing is written
 * @return 0
 */
VXKIT_API int SuperResolution_getErrorMessage(char* buffer, int size);

/**
 * Closes a context and frees its memory.
 *
 * @return 0, or -999 for an invalid context
 */
VXKIT_API int SuperResolution_release(int context);

#ifdef __cplusplus
}
#endif
