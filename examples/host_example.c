/*
 * A minimal host: opens a virtual K5 and K5C on each link type through
 * QUORIN, reports what the library learnt about each camera, then grabs
 * live frames at 8 and 16 bits, records and downloads a few frames, and
 * writes them as PNG files into the current folder.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quorin/quorin.h"
#include "vcam/vcam.h"

#ifdef QUORIN_EXAMPLE_PNG
#include <png.h>
#endif

static const char *callName(uint32_t call)
{
    static const char *names[] = {"Open", "Close", "Send", "Receive", "Reset",
                                  "armTransfer", "awaitTransfer", "Transact", "TransactData"};
    return call < VCAM_CALL_COUNT ? names[call] : "?";
}

/* Prints the host calls the camera saw. */
static void printTrace(const VcamCamera *cam, size_t limit)
{
    size_t n = vcam_trace_size(cam);
    for (size_t i = 0; i < n && i < limit; ++i) {
        VcamTraceEntry e;
        vcam_trace_entry(cam, i, &e);
        printf("    %-13s %7u bytes -> %s", callName(e.call), e.length, e.result ? "ok" : "failed");
        if (e.hasCommand)
            printf("   command %u (%u, %u)", e.command.code, e.command.p1, e.command.p2);
        printf("\n");
    }
    if (n > limit)
        printf("    ... %zu more calls\n", n - limit);
}

static int report(uint32_t dev)
{
    char name[256];
    int32_t err = 0;
    uint32_t firmware = 0, number = 0, unused = 0, count = 0;
    static uint32_t defects[QUORIN_MAX_LIST_ENTRIES];
    int ok = DEV_GetDeviceName(dev, 0, name, &err);
    ok &= DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_FIRMWARE, 0, &firmware, &unused, &err);
    ok &= DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_CAMERA_NUMBER, 0, &number, &unused, &err);
    ok &= DEV_GetList(dev, 0, QUORIN_LIST_DEFECTS, 0, defects, &count, &err);
    if (!ok) {
        printf("  could not read the camera: error %d\n", err);
        return 0;
    }
    printf("  %s, firmware %u, camera number %u, %u defect pixels\n", name, firmware, number, count);
    return 1;
}

/* Writes an 8- or 16-bit grey or colour image; the first demosaic layout
 * (the default) stores each colour pixel blue, green, red. */
static void writePng(const char *path, const void *pixels, uint32_t w, uint32_t h, int colour, int sixteenBit)
{
#ifdef QUORIN_EXAMPLE_PNG
    FILE *f = fopen(path, "wb");
    if (f == NULL)
        return;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        fclose(f);
        return;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, w, h, sixteenBit ? 16 : 8, colour ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (colour)
        png_set_bgr(png);
    if (sixteenBit) {
        png_set_swap(png); /* the library's values are little-endian */
        /* 10-bit values: shift up so that the file spans the 16-bit range */
        png_color_8 sig = {10, 10, 10, 10, 0};
        png_set_shift(png, &sig);
    }
    size_t rowBytes = (size_t)w * (colour ? 3 : 1) * (sixteenBit ? 2 : 1);
    for (uint32_t y = 0; y < h; ++y)
        png_write_row(png, (png_const_bytep)pixels + y * rowBytes);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    fclose(f);
    printf("  wrote %s\n", path);
#else
    (void)path, (void)pixels, (void)w, (void)h, (void)colour, (void)sixteenBit;
#endif
}

double exampleSeconds(void); /* wall_clock.cpp */

static double seconds(void)
{
    return exampleSeconds();
}

/* Grabs live frames and a few recorded ones from one camera. */
static int grab(uint32_t dev, const char *label, int colour)
{
    int32_t err = 0;
    uint32_t size = 0, unused = 0;
    DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &size, &unused, &err);
    DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_VALUE_73, 0, &unused, &unused, &err);
    uint32_t w = size >> 16, h = size & 0xFFFF;
    size_t bytes = (size_t)w * h * (colour ? 3 : 1) * 2;
    unsigned char *image = malloc(bytes);
    char path[128];

    /* The first frames of the virtual camera's scene are rendered as they
     * are first asked for; time the transfers once they are ready. */
    for (int i = 0; i < 16; ++i)
        DEV_TransferLiveImage(dev, 0, 8, image, &err);
    const int frames = 100;
    double start = seconds();
    for (int i = 0; i < frames; ++i)
        if (!DEV_TransferLiveImage(dev, 0, 8, image, &err)) {
            printf("  live transfer failed: error %d\n", err);
            free(image);
            return 0;
        }
    double took = seconds() - start;
    printf("  %d live %ux%u frames at 8 bits: %.0f frames per second\n", frames, w, h, frames / (took > 0 ? took : 1e-9));
    snprintf(path, sizeof path, "quorin-%s-live-8bit.png", label);
    writePng(path, image, w, h, colour, 0);
    DEV_TransferLiveImage(dev, 0, 16, image, &err);
    snprintf(path, sizeof path, "quorin-%s-live-16bit.png", label);
    writePng(path, image, w, h, colour, 1);

    /* Playback: the camera's memory holds a recording; download three
     * frames. Reading the channel and the picture size in playback fills
     * the library's settings for recorded frames. */
    if (!DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_CAMERA_MODE, 0, 1, 0, &err)) {
        printf("  could not enter playback: error %d\n", err);
        free(image);
        return 0;
    }
    DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_CHANNEL_NUMBER, 0, &unused, &unused, &err);
    DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &size, &unused, &err);
    DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_VALUE_73, 0, &unused, &unused, &err);
    int ok = 1;
    for (uint32_t n = 1; n <= 3 && ok; ++n) {
        ok = DEV_TransferMemImage(dev, 0, n * 10, 8, image, &err);
        snprintf(path, sizeof path, "quorin-%s-recorded-%02u.png", label, n * 10);
        if (ok)
            writePng(path, image, w, h, colour, 0);
    }
    if (ok)
        printf("  downloaded recorded frames 10, 20 and 30\n");
    else
        printf("  download failed: error %d\n", err);

    /* Time stamps of the recorded frames (the recording rate is read in
     * playback first). */
    uint32_t rate = 0, written = 0;
    DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_FRAME_RATE, 0, &rate, &unused, &err);
    unsigned char stamps[3][20];
    for (uint32_t n = 1; n <= 3 && ok; ++n) {
        ok = DEV_GetData(dev, 0, QUORIN_DATA_TIME_STAMPS, n * 10, 1, stamps[n - 1], &written, &err);
        if (ok) {
            uint32_t day, us;
            memcpy(&day, stamps[n - 1], 4);
            memcpy(&us, stamps[n - 1] + 8, 4);
            printf("  frame %2u recorded on day %u at %02u:%02u:%02u.%06u (%u frames per second)\n", n * 10, day,
                   stamps[n - 1][4], stamps[n - 1][5], stamps[n - 1][6], us, rate);
        }
    }
    if (!ok)
        printf("  time stamps failed: error %d\n", err);
    DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_CAMERA_MODE, 0, 0, 0, &err);

    /* A flat-field table from a grabbed 16-bit monochrome frame: the
     * pixel-gain table that evens out the picture's brightness. */
    if (ok && !colour) {
        uint16_t *flat = malloc((size_t)1024 * 1024 * sizeof *flat);
        ok = DEV_TransferLiveImage(dev, 0, 16, image, &err) &&
             DEV_SetData(dev, 0, QUORIN_DATA_FLAT_FIELD, 0, 0, image, 0, &err) &&
             DEV_GetData(dev, 0, QUORIN_DATA_GAIN_TABLES, 2, 0, flat, &written, &err);
        if (ok)
            printf("  flat-field gains: %u at the top-left corner, %u in the centre (997 = neutral)\n", flat[0],
                   flat[512 * 1024 + 512]);
        else
            printf("  flat field failed: error %d\n", err);
        free(flat);
    }
    free(image);
    return ok;
}

int main(void)
{
    static const uint32_t linkTypes[] = {2, 3, 4, 7};
    /* Five flagged pixels on every camera's calibration image. */
    static const uint32_t flagged[] = {10u << 16 | 3, 400u << 16 | 3, 7u << 16 | 500, 1023u << 16 | 1023, 0};
    int32_t err = 0;
    int failures = 0;

    DEV_Init(&err);
    printf("DEV_Init -> %d\n", err);

    for (size_t i = 0; i < sizeof linkTypes / sizeof linkTypes[0]; ++i) {
        for (uint32_t model = VCAM_K5; model <= VCAM_K5C; ++model) {
            VcamConfig cfg;
            vcam_default_config(&cfg, model, linkTypes[i]);
            cfg.cameraNumber = (uint32_t)(10 * i + model + 1);
            cfg.firmwareVersion = model == VCAM_K5C ? 120 : 113;
            cfg.defects = flagged;
            cfg.defectCount = sizeof flagged / sizeof flagged[0];
            VcamCamera *cam = vcam_create(&cfg);
            const InterfaceTable *table = vcam_interface(cam);

            uint32_t dev = 0xFFFFFFFFu;
            int32_t ok = DEV_OpenDevice(table->type, table, vcam_host_arg(cam), &dev, &err);
            printf("\nlink type %u, virtual %s: DEV_OpenDevice -> %d, device %u, error %d\n", linkTypes[i],
                   model == VCAM_K5C ? "K5C" : "K5", ok, dev, err);
            if (i == 0 && model == VCAM_K5)
                printTrace(cam, 24);
            failures += !ok || err != QUORIN_SUCCESS || !report(dev);
            if (linkTypes[i] == 7)
                failures += !grab(dev, model == VCAM_K5C ? "k5c" : "k5", model == VCAM_K5C);

            ok = DEV_CloseDevice(dev, &err);
            printf("  DEV_CloseDevice -> %d, error %d\n", ok, err);
            failures += !ok;
            vcam_destroy(cam);
        }
    }

    DEV_Exit(&err);
    printf("\nDEV_Exit -> %d\n", err);
    return failures ? 1 : 0;
}
