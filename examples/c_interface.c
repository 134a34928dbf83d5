// SPDX-License-Identifier: Apache-2.0
/*
 * What a host in C writes with the interface for everything: settings listed, a burst made sharp, frames enhanced. It
 * needs no camera, since the library has a simulator.
 *
 *   c_interface            results are only printed
 *   c_interface OUT.pfm    the same, and the image of the burst is written
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "vxkit.h"

enum
{
    WIDTH = 160,
    HEIGHT = 120,
    FACTOR = 2,
    BURST = 5,
    STREAM = 20
};

/* Ends the program where a call failed; the text tells what was found and what was expected. */
static void check(vxkit_status status, const char* call)
{
    if (status == VXKIT_OK)
        return;
    fprintf(stderr, "%s: %s: %s\n", call, vxkit_status_text(status), vxkit_last_error());
    exit(1);
}

static void* room(size_t count, size_t size)
{
    void* memory = calloc(count, size);
    if (memory == NULL) {
        fputs("out of memory\n", stderr);
        exit(1);
    }
    return memory;
}

static void print_log(void* user, vxkit_level level, const char* source, const char* text)
{
    (void)level;
    fprintf(user, "  [%s] %s\n", source, text);
}

static void list_settings(const char* kind)
{
    printf("%s\n", kind);
    for (int i = 0; i < vxkit_setting_count(kind); ++i) {
        vxkit_setting_info setting;
        check(vxkit_setting(kind, i, &setting), "vxkit_setting");
        if (setting.type == VXKIT_TEXT || setting.type == VXKIT_CHOICE)
            printf("  %-20s %s (\"%s\")\n", setting.name, setting.choices, setting.default_text);
        else
            printf("  %-20s %g to %g %s (%g)\n", setting.name, setting.low, setting.high, setting.unit,
                   setting.default_number);
    }
}

/* Portable float map: bottom row first; the negative scale says little-endian, as the machine is. */
static int write_pfm(const char* path, const float* image, int width, int height)
{
    FILE* file = fopen(path, "wb");
    if (file == NULL)
        return 0;
    fprintf(file, "Pf\n%d %d\n-1.0\n", width, height);
    for (int y = height - 1; y >= 0; --y)
        fwrite(image + (size_t)y * (size_t)width, sizeof *image, (size_t)width, file);
    const int wrote = ferror(file) == 0;
    return fclose(file) == 0 && wrote;
}

static void sharpen_burst(const char* out)
{
    float* pixels = room(WIDTH * HEIGHT, sizeof *pixels);
    float* large = room(FACTOR * WIDTH * FACTOR * HEIGHT, sizeof *large);
    const vxkit_image frame = {pixels, WIDTH, HEIGHT, 0, VXKIT_F32};
    const vxkit_image image = {large, FACTOR * WIDTH, FACTOR * HEIGHT, 0, VXKIT_F32};

    vxkit_object* camera = NULL;
    vxkit_object* engine = NULL;
    check(vxkit_create("burst", WIDTH, HEIGHT, &camera), "vxkit_create");
    check(vxkit_create("production", WIDTH, HEIGHT, &engine), "vxkit_create");
    for (int i = 0; i < BURST; ++i) {
        vxkit_burst_report report;
        check(vxkit_simulated_frame(camera, i, &frame), "vxkit_simulated_frame");
        check(vxkit_add_frame(engine, &frame, &report), "vxkit_add_frame");
        if (report.has_image)
            printf("burst: enlarged by %.2f in %d steps\n", report.factor, report.iterations);
    }
    for (int i = 0; i < BURST; ++i) {
        vxkit_frame_report told;
        check(vxkit_frame_report_at(engine, i, &told), "vxkit_frame_report_at");
        printf("  frame %d: shift %+.2f %+.2f, %.0f %% usable\n", i, told.shift_x, told.shift_y,
               100.0 * told.usable);
    }
    check(vxkit_result(engine, "image", &image), "vxkit_result");
    if (out != NULL && !write_pfm(out, large, image.width, image.height)) {
        fprintf(stderr, "%s: can't be written\n", out);
        exit(1);
    }
    check(vxkit_release(engine), "vxkit_release");
    check(vxkit_release(camera), "vxkit_release");
    free(large);
    free(pixels);
}

static void enhance_stream(void)
{
    float* degrees = room(WIDTH * HEIGHT, sizeof *degrees);
    uint16_t* counts = room(WIDTH * HEIGHT, sizeof *counts);
    const vxkit_image measured = {degrees, WIDTH, HEIGHT, 0, VXKIT_F32};
    const vxkit_image frame = {counts, WIDTH, HEIGHT, 0, VXKIT_U16};

    vxkit_object* camera = NULL;
    vxkit_object* enhancer = NULL;
    check(vxkit_create("recording", WIDTH, HEIGHT, &camera), "vxkit_create");
    check(vxkit_set_number(camera, "column-offset", 0.15), "vxkit_set_number");
    check(vxkit_create("enhancer", WIDTH, HEIGHT, &enhancer), "vxkit_create");
    check(vxkit_set_text(enhancer, "hist-mode", "plateau"), "vxkit_set_text");
    check(vxkit_set_number(enhancer, "tnr-alpha", 80), "vxkit_set_number");
    for (int i = 0; i < STREAM; ++i) {
        check(vxkit_simulated_frame(camera, i, &measured), "vxkit_simulated_frame");
        for (int j = 0; j < WIDTH * HEIGHT; ++j)
            counts[j] = (uint16_t)((degrees[j] + 273.15F) * 100.0F);
        check(vxkit_process(enhancer, &frame, &frame), "vxkit_process"); /* in place */
    }
    unsigned lowest = UINT16_MAX;
    unsigned highest = 0;
    for (int j = 0; j < WIDTH * HEIGHT; ++j) {
        lowest = counts[j] < lowest ? counts[j] : lowest;
        highest = counts[j] > highest ? counts[j] : highest;
    }
    printf("enhancer: frame %d has levels %u to %u\n", STREAM - 1, lowest, highest);

    /* A mistake is told, and changes nothing. */
    if (vxkit_set_number(enhancer, "tnr-alpha", 101) != VXKIT_OUT_OF_RANGE)
        exit(1);
    printf("  %s\n", vxkit_error(enhancer));
    check(vxkit_release(enhancer), "vxkit_release");
    check(vxkit_release(camera), "vxkit_release");
    free(counts);
    free(degrees);
}

int main(int argc, char** argv)
{
    if (vxkit_version_number() != VXKIT_VERSION_NUMBER)
        printf("made for %d, runs with %s\n", VXKIT_VERSION_NUMBER, vxkit_version());
    check(vxkit_set_log(print_log, stdout, VXKIT_WARNING), "vxkit_set_log");
    list_settings("production");
    sharpen_burst(argc > 1 ? argv[1] : NULL);
    enhance_stream();
    return 0;
}
