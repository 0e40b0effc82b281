/*
 * A minimal host: opens a virtual camera on each link type through QUORIN,
 * prints what the library asked of the link, and closes it again.
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

static void printTrace(const VcamCamera *cam)
{
    size_t n = vcam_trace_size(cam);
    for (size_t i = 0; i < n; ++i) {
        VcamTraceEntry e;
        vcam_trace_entry(cam, i, &e);
        printf("    %-13s %7u bytes -> %s", callName(e.call), e.length, e.result ? "ok" : "failed");
        if (e.hasCommand)
            printf("   command %u (%u, %u)", e.command.code, e.command.p1, e.command.p2);
        printf("\n");
    }
}

int main(void)
{
    static const uint32_t linkTypes[] = {2, 3, 4, 7};
    int32_t err = 0;
    int failures = 0;

    DEV_Init(&err);
    printf("DEV_Init -> %d\n", err);

    for (size_t i = 0; i < sizeof linkTypes / sizeof linkTypes[0]; ++i) {
        VcamConfig cfg;
        vcam_default_config(&cfg, i % 2 ? VCAM_K5C : VCAM_K5, linkTypes[i]);
        VcamCamera *cam = vcam_create(&cfg);
        const InterfaceTable *table = vcam_interface(cam);

        uint32_t deviceNo = 0xFFFFFFFFu;
        int32_t ok = DEV_OpenDevice(table->type, table, vcam_host_arg(cam), &deviceNo, &err);
        printf("\nlink type %u, virtual %s: DEV_OpenDevice -> %d, device %u, error %d\n", linkTypes[i],
               cfg.model == VCAM_K5C ? "K5C" : "K5", ok, deviceNo, err);
        printTrace(cam);
        failures += !ok;

        vcam_trace_clear(cam);
        ok = DEV_CloseDevice(deviceNo, &err);
        printf("  DEV_CloseDevice -> %d, error %d\n", ok, err);
        printTrace(cam);
        failures += !ok;
        vcam_destroy(cam);
    }

    DEV_Exit(&err);
    printf("\nDEV_Exit -> %d\n", err);
    return failures ? 1 : 0;
}
