/*
 * A minimal host: opens a virtual K5 and K5C on each link type through
 * QUORIN, reports what the library learnt about each camera, shows the link
 * traffic of opening one of them, and closes them again.
 */
#include <stdio.h>

#include "quorin/quorin.h"
#include "vcam/vcam.h"

static const char *callName(uint32_t call)
{
    static const char *names[] = {"Open", "Close", "Send", "Receive", "Reset",
                                  "armTransfer", "awaitTransfer", "Transact", "TransactData"};
    return call < VCAM_CALL_COUNT ? names[call] : "?";
}

/* Prints the host calls the camera saw, folding repeated commands. */
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
