/* SPDX-License-Identifier: Apache-2.0 */
#pragma once

#include <stddef.h>
#include <stdint.h>

/**
 * @file
 * VxKit for hosts in C, and for bindings: super-resolution engines, the enhancer chain, its blocks, the filters and the
 * simulator behind opaque handles. C11 and C++; no OpenCV in sight.
 *
 * Objects: vxkit_create() makes an object of a kind for frames of one size, vxkit_release() ends it. An object's
 * settings have names, which vxkit_setting() lists with type, range, default and unit; they are those of the options
 * of the program `vxkit` and of its --config files.
 *
 * Errors: every call that can fail answers with a vxkit_status. The text to it, with what was found and what was
 * expected, is kept for the handle (vxkit_error()) and for the calling thread (vxkit_last_error()). No exception leaves
 * a call, and a failed call changes nothing that it does not say. After VXKIT_OUT_OF_MEMORY every handle may be used on;
 * where vxkit_process() or vxkit_add_frame() answered with it, or with VXKIT_FAILED, the object is as after vxkit_reset().
 *
 * Handles are numbers in the shape of pointers and are never given out twice: a null, released or foreign one gives
 * VXKIT_BAD_HANDLE and is not followed. Pointers to images, structures and texts can't be checked so: they must
 * be null or valid.
 *
 * Threads: separate handles may be used on separate threads at once. One handle takes one call at a time, from any
 * thread; a second one at the same time gives VXKIT_BUSY and changes nothing. A call itself computes with OpenMP's
 * threads, see vxkit_set_threads(); its result is the same bit for bit for any number of them.
 *
 * Fork: a child inherits the handles and may use them. If the thread that forked had made calls before, its calls in the
 * child compute with one thread, whatever vxkit_set_threads() says, since OpenMP's other threads stayed behind; threads
 * that the child starts have all of them. No other thread may be in a call while a thread forks.
 *
 * Quiet: what the classes behind this interface print elsewhere reaches the callback of vxkit_set_log() alone.
 *
 * Memory: images belong to the caller and are read or written during the call only. Texts that calls return belong to
 * the library.
 *
 * The functions SuperResolution_* stay beside this interface, with contexts and a log of their own.
 */

/** @cond  how the library's functions are marked, of no use to hosts */
#if defined(_WIN32)
#if defined(VXKIT_BUILDING)
#define VXKIT_C_API __declspec(dllexport)
#else
#define VXKIT_C_API __declspec(dllimport)
#endif
#else
#define VXKIT_C_API __attribute__((visibility("default")))
#endif
/* So that a number beyond the names, as hosts in C may pass, is a value in C++ too. */
#ifdef __cplusplus
#define VXKIT_INT_ENUM : int
#else
#define VXKIT_INT_ENUM
#endif
/** @endcond */

#ifdef __cplusplus
extern "C" {
#endif

/** The version of this header; vxkit_version() tells that of the library that is loaded. */
#define VXKIT_VERSION_MAJOR 0
#define VXKIT_VERSION_MINOR 1 /**< see VXKIT_VERSION_MAJOR */
#define VXKIT_VERSION_PATCH 0 /**< see VXKIT_VERSION_MAJOR */
/** The same as one number, to compare. */
#define VXKIT_VERSION_NUMBER (10000 * VXKIT_VERSION_MAJOR + 100 * VXKIT_VERSION_MINOR + VXKIT_VERSION_PATCH)

/** @return the library's version as text, such as "0.1.0" */
VXKIT_C_API const char* vxkit_version(void);
/** @return the library's version as 10000 * major + 100 * minor + patch */
VXKIT_C_API int vxkit_version_number(void);

/** What a call answers. */
typedef enum vxkit_status VXKIT_INT_ENUM
{
    VXKIT_OK = 0,
    VXKIT_BAD_HANDLE = 1,    /**< null, released or foreign, or of a kind that the call does not take */
    VXKIT_NULL_ARGUMENT = 2, /**< a null pointer where something is needed */
    VXKIT_UNKNOWN_NAME = 3,  /**< of a kind, a setting or a result */
    VXKIT_OUT_OF_RANGE = 4,  /**< a setting, an index or a size; also settings that don't go together */
    VXKIT_WRONG_SHAPE = 5, /**< an image of another size; the text tells found and expected width x height */
    VXKIT_WRONG_TYPE = 6,  /**< samples of another type; the text tells found and expected type */
    VXKIT_NOT_READY = 7,   /**< no result yet: too few frames, or nothing learned */
    VXKIT_NO_RESULT = 8,   /**< the frames gave no image; the report's code tells why */
    VXKIT_OUT_OF_MEMORY = 9,
    VXKIT_BUSY = 10,  /**< the handle is in use by another thread */
    VXKIT_FAILED = 11 /**< anything else; the text tells */
} vxkit_status;

/** @return what a status means, in a few words; for a number that is none, "unknown status" */
VXKIT_C_API const char* vxkit_status_text(vxkit_status status);

/** An engine, chain, block, filter or simulator. */
typedef struct vxkit_object vxkit_object;

/** The type of samples. */
typedef enum vxkit_type VXKIT_INT_ENUM
{
    VXKIT_U8 = 0,
    VXKIT_I8 = 1,
    VXKIT_U16 = 2,
    VXKIT_I16 = 3,
    VXKIT_I32 = 4,
    VXKIT_F32 = 5,
    VXKIT_F64 = 6
} vxkit_type;

/** @return "u8", "i8", "u16", "i16", "i32", "f32" or "f64"; for a number that is no type, "unknown type" */
VXKIT_C_API const char* vxkit_type_text(vxkit_type type);

/** A picture in the caller's memory: one channel, row by row from the top. */
typedef struct vxkit_image
{
    void* data;       /**< the first sample of the first row, aligned as its type asks */
    int width;        /**< samples in a row, 1 or more */
    int height;       /**< rows, 1 or more */
    ptrdiff_t stride; /**< bytes from a row to the next, a multiple of a sample's; 0: rows without gaps */
    vxkit_type type;  /**< of all samples */
} vxkit_image;

/* ---- Kinds: what can be made */

/** What an object of a kind does, and so which calls take it. */
typedef enum vxkit_family VXKIT_INT_ENUM
{
    VXKIT_SUPERRES = 0, /**< vxkit_add_frame(), vxkit_frame_report_at(), vxkit_result() */
    VXKIT_FILTER = 1,   /**< vxkit_process(); the chain also vxkit_result(), "cluster" also vxkit_learn() */
    VXKIT_SIMULATOR = 2 /**< vxkit_simulated_frame() and its like */
} vxkit_family;

/** A kind, as vxkit_kind() describes it. */
typedef struct vxkit_kind_info
{
    const char* name;    /**< what vxkit_create() takes */
    vxkit_family family; /**< which calls take its objects */
    const char* summary; /**< one sentence */
    vxkit_type input;    /**< of frames; of a simulator the same as output */
    vxkit_type output;   /**< of results */
} vxkit_kind_info;

/** @return how many kinds there are */
VXKIT_C_API int vxkit_kind_count(void);

/**
 * Describes a kind.
 *
 * Super-resolution: "production" (the engine that runs on cameras: one shift per frame, tracked corners), "phase" (phase
 * correlation), "reference" (its serial twin, which tells a map of quality), "fixed-point" (16 bits), "fixed-point-fpga"
 * (the same with the solver of an FPGA's shape, frames of 160x120 only), "local" (motion that differs over the frame),
 * "single" (the reference frame alone). Filters: "enhancer" (the camera's whole chain), its blocks "tnr", "spr", "snr",
 * "hist" and "peak", and "temporal", "static-pattern", "spatial", "cluster" and "unsharp". Simulators: "burst" and
 * "recording".
 *
 * @param index  0 to vxkit_kind_count() - 1
 * @param info   is filled; its texts live as long as the library
 * @return VXKIT_OK, VXKIT_OUT_OF_RANGE, VXKIT_NULL_ARGUMENT
 */
VXKIT_C_API vxkit_status vxkit_kind(int index, vxkit_kind_info* info);

/* ---- Settings of a kind */

/** What values a setting has. */
typedef enum vxkit_setting_type VXKIT_INT_ENUM
{
    VXKIT_INTEGER = 0,
    VXKIT_NUMBER = 1,
    VXKIT_SWITCH = 2, /**< 0 or 1 */
    VXKIT_CHOICE = 3, /**< one of some names, or its place among them */
    VXKIT_TEXT = 4
} vxkit_setting_type;

/** A setting, as vxkit_setting() describes it. */
typedef struct vxkit_setting_info
{
    const char* name;        /**< what vxkit_set_number() and its like take */
    vxkit_setting_type type; /**< what values it has */
    double
        low; /**< INTEGER, NUMBER: the ends of the range, which belong to it; SWITCH 0 and 1; CHOICE 0 and count - 1 */
    double high;              /**< the upper end, see low */
    double default_number;    /**< NaN where it depends on the frame size, and for TEXT */
    const char* default_text; /**< TEXT and CHOICE; else "" */
    const char* choices;      /**< CHOICE: the names with '|' between them; else "" */
    const char* unit;         /**< "px", "K", "counts", "%", "frames" ...; "" for plain numbers */
    const char* help;         /**< one sentence */
    int at_once; /**< 1: may change at any time and acts with the next frame; 0: before the first frame */
} vxkit_setting_info;

/** @return how many settings a kind has; -1 for null and for an unknown kind, and for want of memory */
VXKIT_C_API int vxkit_setting_count(const char* kind);

/**
 * Describes a setting of a kind.
 *
 * @param index  0 to vxkit_setting_count() - 1
 * @param info   is filled; its texts live as long as the library
 * @return VXKIT_OK, VXKIT_UNKNOWN_NAME (the kind), VXKIT_OUT_OF_RANGE (the index), VXKIT_NULL_ARGUMENT
 */
VXKIT_C_API vxkit_status vxkit_setting(const char* kind, int index, vxkit_setting_info* info);

/* ---- Life */

/**
 * Makes an object for frames of one size, with the default settings.
 *
 * @param width, height  of the frames in pixels: 1 or more, of kinds of super-resolution and simulators at least 8
 *                       (the kind may ask for more; the text tells), at most 2^26 pixels in all
 * @param object         takes the handle; null after a failure, whose text vxkit_last_error() has
 * @return VXKIT_OK, VXKIT_UNKNOWN_NAME, VXKIT_OUT_OF_RANGE, VXKIT_OUT_OF_MEMORY, VXKIT_NULL_ARGUMENT, VXKIT_FAILED
 */
VXKIT_C_API vxkit_status vxkit_create(const char* kind, int width, int height, vxkit_object** object);

/**
 * Ends an object and frees its memory.
 *
 * @return VXKIT_OK; VXKIT_BAD_HANDLE, also for null; VXKIT_BUSY, and then the object lives on
 */
VXKIT_C_API vxkit_status vxkit_release(vxkit_object* object);

/** @return the name of an object's kind; "" for a bad handle */
VXKIT_C_API const char* vxkit_kind_of(const vxkit_object* object);

/**
 * Forgets frames, results and what was learned, and keeps the settings. After it, settings that ask for that may be
 * changed again.
 *
 * @return VXKIT_OK, VXKIT_BAD_HANDLE, VXKIT_BUSY, VXKIT_OUT_OF_RANGE (settings that don't go together),
 *         VXKIT_OUT_OF_MEMORY
 */
VXKIT_C_API vxkit_status vxkit_reset(vxkit_object* object);

/**
 * @return the text of a handle's last failure, at most 1023 bytes; "" if there was none, for a bad handle and for one
 *         that is in use by another thread. Valid until the next call with the handle.
 */
VXKIT_C_API const char* vxkit_error(const vxkit_object* object);

/**
 * @return the text of the calling thread's last failure in any call, at most 1023 bytes; "" if there was none. Valid
 *         until the thread's next call.
 */
VXKIT_C_API const char* vxkit_last_error(void);

/**
 * Changes a setting.
 *
 * @param name   one of the kind's settings
 * @param value  INTEGER (a whole number), NUMBER, SWITCH (0 or 1) or CHOICE (the place among the names)
 * @return VXKIT_OK; VXKIT_UNKNOWN_NAME; VXKIT_OUT_OF_RANGE; VXKIT_WRONG_TYPE for a TEXT; VXKIT_FAILED after the first
 *         frame if the setting is not at_once; VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY
 */
VXKIT_C_API vxkit_status vxkit_set_number(vxkit_object* object, const char* name, double value);

/**
 * Changes a setting by a text: a TEXT, a CHOICE by its name, or the digits of a number, with a '.'. A SWITCH also takes
 * "true", "false", "on" and "off".
 *
 * @return as vxkit_set_number(); VXKIT_OUT_OF_RANGE also for a text that is no number or none of the names
 */
VXKIT_C_API vxkit_status vxkit_set_text(vxkit_object* object, const char* name, const char* value);

/**
 * Tells a setting's value as a number.
 *
 * @return VXKIT_OK, VXKIT_UNKNOWN_NAME, VXKIT_WRONG_TYPE for a TEXT, VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY
 */
VXKIT_C_API vxkit_status vxkit_get_number(const vxkit_object* object, const char* name, double* value);

/**
 * Tells a setting's value as a text: a TEXT, a CHOICE's name, or the digits of a number, which vxkit_set_text() takes
 * back to the same value.
 *
 * @param buffer  takes the text with a zero at its end; may be null if size is 0
 * @param size    room in the buffer in bytes
 * @param needed  takes the bytes that the text and its zero need; may be null
 * @return VXKIT_OK; VXKIT_OUT_OF_RANGE if the buffer is too small and not empty (0 asks for `needed` alone), with
 *         nothing written; VXKIT_UNKNOWN_NAME, VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY
 */
VXKIT_C_API vxkit_status vxkit_get_text(const vxkit_object* object, const char* name, char* buffer,
                                        size_t size, size_t* needed);

/* ---- Frames through filters, blocks and the chain */

/**
 * Filters the next frame of a stream.
 *
 * Frames are VXKIT_U16, counts of 0 to 65535, or VXKIT_I16, signed samples. All of them work on samples in 16 bits,
 * signed; an unsigned count is taken less 32768 and given back plus that. The results of "enhancer", "hist" and "peak"
 * are levels of 0 to 32766, of type VXKIT_U16 or VXKIT_I16 as one likes, while the equaliser is on; without it ("hist"
 * 0, or "mode" off) and of all others they have the frame's type. "peak" takes levels of the equaliser.
 *
 * @param src  of the object's size; a stream keeps to one of the two types
 * @param dst  of that size; may be src, but must not overlap it otherwise
 * @return VXKIT_OK; VXKIT_WRONG_SHAPE, VXKIT_WRONG_TYPE; VXKIT_NOT_READY ("cluster" before it learned);
 *         VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY, VXKIT_OUT_OF_RANGE (settings that don't go together, a bad
 *         stride), VXKIT_OUT_OF_MEMORY, VXKIT_FAILED
 */
VXKIT_C_API vxkit_status vxkit_process(vxkit_object* object, const vxkit_image* src, const vxkit_image* dst);

/**
 * "cluster": learns from frames of a uniform scene by what each pixel is to be multiplied. Learning again starts anew,
 * with the settings as they are.
 *
 * @param frames  count images of the object's size and of one type, VXKIT_U16 or VXKIT_I16
 * @param count   2 or more
 * @return VXKIT_OK; VXKIT_OUT_OF_RANGE for fewer frames; else as vxkit_process()
 */
VXKIT_C_API vxkit_status vxkit_learn(vxkit_object* object, const vxkit_image* frames, int count);

/**
 * "cluster": learns from the mean and the standard deviation in time of each pixel, in counts.
 *
 * @param mean, deviation  of the object's size, VXKIT_F32, finite
 */
VXKIT_C_API vxkit_status vxkit_learn_statistics(vxkit_object* object, const vxkit_image* mean,
                                                const vxkit_image* deviation);

/* ---- Super-resolution */

/** What vxkit_add_frame() tells of the frame and of the image that it gave. */
typedef struct vxkit_burst_report
{
    int code;       /**< 0, or what was found about the frame or the image: vxkit_code_text() */
    int has_image;  /**< 1: a new image was computed with this frame */
    int iterations; /**< steps of the solver; -1 where not told */
    double factor;  /**< the enlargement that was achieved, up to 2; NaN where not told */
    int frames;     /**< frames that vxkit_frame_report_at() tells of; 0 where not told */
} vxkit_burst_report;

/**
 * @return what a report's code means, in a few words. Codes are those of SuperResolution_Code
 *         (enhancement/superresolution/SuperResolutionCAdapter.h); for a number that is none, "failure"
 */
VXKIT_C_API const char* vxkit_code_text(int code);

/** What the last image tells of a frame of the window. */
typedef struct vxkit_frame_report
{
    double
        shift_x; /**< displacement against the reference in pixels of the frames; positive: the scene further right */
    double shift_y; /**< positive: further down */
    double usable;  /**< share of the pixels that were used, or their mean weight, 0 to 1 */
} vxkit_frame_report;

/**
 * Adds a frame and, from "window" frames on, computes the image from the latest ones. The frame is copied.
 *
 * @param frame   of the object's size: degrees Celsius in VXKIT_F32. A pixel may hold one of the 32-bit patterns 0x81,
 *                0x82, 0x84 and 0x85, which mark it as bad, and is repaired, as are all outside of -274 to 5000: raw
 *                counts are to be turned into degrees, or to be divided by 16. A frame without any pixel within is
 *                refused. The engines in fixed point take signed counts, VXKIT_I16. Each takes the other types too if
 *                all values are whole numbers or fit exactly.
 * @param report  is filled with VXKIT_OK and VXKIT_NO_RESULT; may be null
 * @return VXKIT_OK with an image, a warning, or while the window fills; VXKIT_NO_RESULT if the engine failed on the frame,
 *         with the report filled; VXKIT_OUT_OF_RANGE for values that the engine's type does not hold and for settings
 *         that don't go together; VXKIT_WRONG_SHAPE, VXKIT_WRONG_TYPE, VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY,
 *         VXKIT_OUT_OF_MEMORY, VXKIT_FAILED
 */
VXKIT_C_API vxkit_status vxkit_add_frame(vxkit_object* object, const vxkit_image* frame,
                                         vxkit_burst_report* report);

/**
 * "reference": gives each pixel its line from raw counts to radiance, by two flat scenes that fill the view. Frames are
 * then signed counts, as of the engines in fixed point, and the image is radiance. It holds over a reset; four null
 * pointers take it back. A pixel with equal counts in both scenes, or with a gain or offset of 1000 or more, takes the
 * mean line of its neighbours.
 *
 * @param counts_a, counts_b      of the object's size: whole counts of -32768 to 32767, VXKIT_I16 or of another type
 * @param radiance_a, radiance_b  of that size, VXKIT_F32: -274 to 5000
 * @return VXKIT_OK; VXKIT_OUT_OF_RANGE for other values, and where more than a tenth of the pixels get no line; VXKIT_FAILED
 *         after the first frame; VXKIT_NULL_ARGUMENT if one is null and not all; VXKIT_WRONG_SHAPE, VXKIT_WRONG_TYPE,
 *         VXKIT_BAD_HANDLE, VXKIT_BUSY, VXKIT_OUT_OF_MEMORY
 */
VXKIT_C_API vxkit_status vxkit_calibrate(vxkit_object* object, const vxkit_image* counts_a,
                                         const vxkit_image* radiance_a, const vxkit_image* counts_b,
                                         const vxkit_image* radiance_b);

/**
 * Tells of one frame of the window that the last image was made of.
 *
 * @param index  0 (the oldest) to the report's frames - 1
 * @return VXKIT_OK; VXKIT_NOT_READY before the first image; VXKIT_OUT_OF_RANGE; VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT,
 *         VXKIT_BUSY
 */
VXKIT_C_API vxkit_status vxkit_frame_report_at(const vxkit_object* object, int index,
                                               vxkit_frame_report* report);

/* ---- Named results */

/**
 * Tells the size and type of a result, with data null and stride 0.
 *
 * Super-resolution: "image" (VXKIT_F32, twice the width and height, in the frames' unit), "confidence" ("local": how many
 * frames count at each pixel of the reference), "quality" ("reference": how well the burst lies). "enhancer":
 * "after-temporal", "after-pattern", "after-spatial" and "after-histogram" (VXKIT_I32, samples behind the blocks).
 * "cluster": "damping" (VXKIT_F32, what frames are multiplied by). "burst": "truth" (VXKIT_F32, twice the size, degrees
 * Celsius).
 *
 * @return VXKIT_OK, VXKIT_UNKNOWN_NAME, VXKIT_NOT_READY, VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY
 */
VXKIT_C_API vxkit_status vxkit_result_shape(const vxkit_object* object, const char* name, vxkit_image* shape);

/**
 * Copies a result.
 *
 * @param dst  of the size and type that vxkit_result_shape() tells
 * @return VXKIT_OK, VXKIT_WRONG_SHAPE, VXKIT_WRONG_TYPE, and as vxkit_result_shape()
 */
VXKIT_C_API vxkit_status vxkit_result(const vxkit_object* object, const char* name, const vxkit_image* dst);

/* ---- Simulator */

/**
 * Writes a frame of the simulated recording. The same settings give the same bits on every machine.
 *
 * @param index  0 to the setting "frames" - 1
 * @param dst    of the object's size, VXKIT_F32: degrees Celsius, but for marked defects
 * @return VXKIT_OK, VXKIT_OUT_OF_RANGE (the index, or settings that don't go together), VXKIT_WRONG_SHAPE,
 *         VXKIT_WRONG_TYPE, VXKIT_BAD_HANDLE, VXKIT_NULL_ARGUMENT, VXKIT_BUSY, VXKIT_OUT_OF_MEMORY
 */
VXKIT_C_API vxkit_status vxkit_simulated_frame(vxkit_object* object, int index, const vxkit_image* dst);

/**
 * "recording": the same frame as an ideal sensor would see it, without noise, pattern and defects. "burst" has
 * the result "truth" in its place, and answers VXKIT_UNKNOWN_NAME.
 */
VXKIT_C_API vxkit_status vxkit_simulated_ideal(vxkit_object* object, int index, const vxkit_image* dst);

/**
 * Tells how far the scene lies from where it is in the reference frame of a burst, or in frame 0 of a recording.
 *
 * @param x, y  take pixels of the frames; positive: further right, further down
 */
VXKIT_C_API vxkit_status vxkit_simulated_shift(vxkit_object* object, int index, double* x, double* y);

/* ---- Log and threads */

/** How much a line of the log matters: a larger level means finer detail. */
typedef enum vxkit_level VXKIT_INT_ENUM
{
    VXKIT_ERROR = 0,
    VXKIT_WARNING = 1,
    VXKIT_INFO = 2,
    VXKIT_DEBUG = 3
} vxkit_level;

/**
 * Takes one line of the log, on the thread whose call it belongs to and before that call returns. It must not call this
 * interface with the handle of that call, and must not leave by an exception or longjmp.
 *
 * @param user    as it was set
 * @param source  what speaks, such as "output" or "exception"
 * @param text    without a line end; valid during the call
 */
typedef void (*vxkit_log)(void* user, vxkit_level level, const char* source, const char* text);

/**
 * Sets the process's callback for the log; at first there is none, and all is quiet. Failures of calls come as
 * VXKIT_ERROR, exceptions inside as VXKIT_WARNING, what classes print as VXKIT_INFO and their traces as VXKIT_DEBUG. Calls
 * that run on other threads may still use the callback from before. Engines trace, and are slower for it, that were
 * opened (vxkit_create(), vxkit_reset()) while the callback wanted VXKIT_DEBUG.
 *
 * @param log   null for quiet
 * @param most  the finest level that is wanted
 * @return VXKIT_OK; VXKIT_OUT_OF_RANGE for a number that is no level
 */
VXKIT_C_API vxkit_status vxkit_set_log(vxkit_log log, void* user, vxkit_level most);

/**
 * Sets with how many threads the calls of this thread compute. It holds inside this interface's calls alone: other
 * OpenMP regions of the program keep theirs.
 *
 * @param threads  1 to 1024; 0 for OpenMP's own choice (OMP_NUM_THREADS, or the processors), which is so at first
 * @return VXKIT_OK, VXKIT_OUT_OF_RANGE
 */
VXKIT_C_API vxkit_status vxkit_set_threads(int threads);

/**
 * Does a host's own work with the C++ classes as the calls of this interface are done: what classes print goes to the log
 * alone, and the work has the threads of vxkit_set_threads().
 *
 * @param work  is called once, on this thread, before the call returns; no exception may leave it
 * @param user  is handed to it
 * @return VXKIT_OK, VXKIT_NULL_ARGUMENT
 */
VXKIT_C_API vxkit_status vxkit_run(void (*work)(void* user), void* user);

#ifdef __cplusplus
}
#endif
