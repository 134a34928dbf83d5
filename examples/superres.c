// SPDX-License-Identifier: Apache-2.0
/*
 * What a host in C writes to get one sharp image from five thermal frames.
 *
 *   superres_c                                           a made-up burst, results are only printed
 *   superres_c OUT.pfm                                   the same, and the image is written
 *   superres_c OUT.pfm RAW WIDTH HEIGHT [SCALE OFFSET]   the first five frames of a headerless recording of
 *                                                        16-bit little-endian counts;
 *                                                        degrees = counts * SCALE + OFFSET (1 and 0)
 */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "enhancement/superresolution/SuperResolutionCAdapter.h"

enum
{
    FRAME_COUNT = 5
};

static const char* meaning(int code)
{
    switch (code) {
        case SuperResolution_success:
            return "success";
        case SuperResolution_fallbackPixel:
            return "a bad pixel took a fallback value";
        case SuperResolution_poorFrame:
            return "half or more of a frame could not be registered";
        case SuperResolution_noStructure:
            return "the frame has not enough structure";
        case SuperResolution_tooFewFrames:
            return "fewer than five frames";
        case SuperResolution_noCorner:
            return "no corner could be tracked";
        case SuperResolution_failure:
            return "bad argument or exception";
        default:
            return "unknown code";
    }
}

/* Codes that leave no image to use; the others are success or warnings. */
static int is_failure(int code)
{
    return code == SuperResolution_tooFewFrames || code == SuperResolution_noCorner ||
           code == SuperResolution_failure;
}

static void report(const char* call, int code)
{
    printf("%-14s %4d  %s\n", call, code, meaning(code));
    if (code == SuperResolution_noStructure || code == SuperResolution_tooFewFrames ||
        code == SuperResolution_failure) {
        char message[200];
        SuperResolution_getErrorMessage(message, (int)sizeof message);
        message[sizeof message - 1] = '\0'; /* a long text fills the buffer without an end */
        printf("%-14s       \"%s\"\n", "", message);
    }
}

/* A warm plate with slanted bars and rings on a cool wall, in degrees Celsius. */
static double scene(double x, double y)
{
    const double radius = hypot(x - 70.0, y - 60.0);
    double degrees = 20.0 + 0.02 * x + 0.01 * y;
    if (x > 18.3 + 0.1 * y && x < 128.7 - 0.05 * y && y > 14.6 && y < 104.2)
        degrees += 8.0;
    if (radius < 30.0)
        degrees += 2.5 * sin(radius * 1.7);
    if (y > 20.0 && y < 32.0 && fmod(x + 0.3 * y, 3.1) < 1.4 && x > 30.0 && x < 120.0)
        degrees += 4.0;
    return degrees;
}

/* A pixel measures the mean over its area. Positive shifts move the scene to the right and down. */
static void make_frame(float* frame, int width, int height, double shift_x, double shift_y)
{
    enum
    {
        SAMPLES = 4
    };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double sum = 0.0;
            for (int j = 0; j < SAMPLES; ++j)
                for (int i = 0; i < SAMPLES; ++i)
                    sum += scene(x + (i + 0.5) / SAMPLES - shift_x, y + (j + 0.5) / SAMPLES - shift_y);
            frame[y * width + x] = (float)(sum / (SAMPLES * SAMPLES));
        }
    }
}

static int read_frame(float* frame, int pixels, FILE* file, float scale, float offset)
{
    for (int i = 0; i < pixels; ++i) {
        unsigned char bytes[2];
        if (fread(bytes, 1, sizeof bytes, file) != sizeof bytes)
            return 0;
        frame[i] = (float)(bytes[0] | bytes[1] << 8) * scale + offset;
    }
    return 1;
}

static void put_little_endian(float value, FILE* file)
{
    union {
        float value;
        uint32_t bits;
    } pixel = {value};
    for (int shift = 0; shift < 32; shift += 8)
        fputc((int)(pixel.bits >> shift & 0xFFU), file);
}

/* Portable float map: bottom row first; the negative scale says little-endian. */
static int write_pfm(const char* path, const float* image, int width, int height)
{
    FILE* file = fopen(path, "wb");
    if (file == NULL)
        return 0;
    fprintf(file, "Pf\n%d %d\n-1.0\n", width, height);
    for (int y = height - 1; y >= 0; --y)
        for (int x = 0; x < width; ++x)
            put_little_endian(image[y * width + x], file);
    const int failed = ferror(file);
    return fclose(file) == 0 && !failed;
}

/* Feeds the five frames; gives 0 if one could not be read or was refused. */
static int feed(int context, float* frame, int width, int height, FILE* recording, float scale, float offset)
{
    static const double shifts[FRAME_COUNT][2] = {
        {0.4, -0.3}, {0.0, 0.0}, {-0.45, 0.25}, {1.3, 0.6}, {0.15, -1.55}};
    int usable = 0;
    for (int i = 0; i < FRAME_COUNT; ++i) {
        if (recording == NULL) {
            make_frame(frame, width, height, shifts[i][0], shifts[i][1]);
        } else if (!read_frame(frame, width * height, recording, scale, offset)) {
            fprintf(stderr, "the recording ends before frame %d of %d x %d pixels\n", i + 1, width, height);
            return 0;
        }
        const int code = SuperResolution_addImage(context, frame);
        report("addImage", code);
        usable = !is_failure(code);
    }
    return usable;
}

/* Gives 0 on failure. */
static int fetch(int context, const char* out_path)
{
    int width = 0;
    int height = 0;
    int code = SuperResolution_queryOutputImageSize(context, &width, &height);
    report("query size", code);
    float* image = malloc((size_t)width * (size_t)height * sizeof *image);
    if (is_failure(code) || image == NULL) {
        free(image);
        return 0;
    }
    code = SuperResolution_getSuperresolutionImage(context, image);
    report("get image", code);

    float low = image[0];
    float high = image[0];
    for (int i = 1; i < width * height; ++i) {
        low = fminf(low, image[i]);
        high = fmaxf(high, image[i]);
    }
    printf("image          %d x %d, %.2f to %.2f\n", width, height, (double)low, (double)high);
    int done = !is_failure(code);
    if (done && out_path != NULL) {
        done = write_pfm(out_path, image, width, height);
        if (!done)
            fprintf(stderr, "can't write \"%s\"\n", out_path);
    }
    free(image);
    return done;
}

static int run(const char* out_path, FILE* recording, int width, int height, float scale, float offset)
{
    const int context = SuperResolution_init(width, height);
    if (context < 0) {
        report("init", SuperResolution_failure);
        return EXIT_FAILURE;
    }
    SuperResolution_setCameraAndLensType(context, "k322 FOV25");

    float* frame = malloc((size_t)width * (size_t)height * sizeof *frame);
    const int done = frame != NULL && feed(context, frame, width, height, recording, scale, offset) &&
                     fetch(context, out_path);
    free(frame);
    SuperResolution_release(context);
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv)
{
    const char* out_path = argc > 1 ? argv[1] : NULL;
    if (argc <= 2)
        return run(out_path, NULL, 160, 120, 1.0F, 0.0F);
    if (argc != 5 && argc != 7) {
        fprintf(stderr, "usage: %s [OUT.pfm [RAW WIDTH HEIGHT [SCALE OFFSET]]]\n", argv[0]);
        return 2;
    }

    const long width = strtol(argv[3], NULL, 10);
    const long height = strtol(argv[4], NULL, 10);
    if (width < 1 || width > 10000 || height < 1 || height > 10000) {
        fprintf(stderr, "expected a width and a height of 1 to 10000, got \"%s\" and \"%s\"\n", argv[3],
                argv[4]);
        return 2;
    }
    FILE* recording = fopen(argv[2], "rb");
    if (recording == NULL) {
        fprintf(stderr, "can't read \"%s\"\n", argv[2]);
        return 2;
    }
    const float scale = argc == 7 ? strtof(argv[5], NULL) : 1.0F;
    const float offset = argc == 7 ? strtof(argv[6], NULL) : 0.0F;
    const int status = run(out_path, recording, (int)width, (int)height, scale, offset);
    fclose(recording);
    return status;
}
