/* A minimal host: opens a virtual K5C, grabs one 8-bit frame and closes.
 * Built against an installed QUORIN, once with CMake and once with
 * pkg-config. */
#include <quorin/quorin.h>
#include <vcam/vcam.h>

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    int32_t err = 0;
    uint32_t dev = 0, resolution = 0, place = 0, unused = 0;
    VcamConfig cfg;
    vcam_default_config(&cfg, VCAM_K5C, 3);
    VcamCamera *cam = vcam_create(&cfg);
    if (cam == NULL || !DEV_Init(&err) ||
        !DEV_OpenDevice(cfg.linkType, vcam_interface(cam), vcam_host_arg(cam), &dev, &err)) {
        fprintf(stderr, "open failed: %d\n", (int)err);
        return 1;
    }
    if (!DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &resolution, &unused, &err) ||
        !DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_VALUE_73, 0, &place, &unused, &err)) {
        fprintf(stderr, "capability read failed: %d\n", (int)err);
        return 1;
    }
    const size_t w = resolution >> 16, h = resolution & 0xFFFF;
    unsigned char *frame = malloc(w * h * 3);
    if (frame == NULL || !DEV_TransferLiveImage(dev, 0, 8, frame, &err)) {
        fprintf(stderr, "transfer failed: %d\n", (int)err);
        return 1;
    }
    unsigned long sum = 0;
    for (size_t i = 0; i < w * h * 3; ++i)
        sum += frame[i];
    printf("frame %zux%zu, mean %lu\n", w, h, sum / (w * h * 3));
    free(frame);
    DEV_CloseDevice(dev, &err);
    DEV_Exit(&err);
    vcam_destroy(cam);
    return sum > 0 ? 0 : 1;
}
