/*
 * A host link driver for the command-line tool's tests, loaded by
 * `quorin --camera driver:PATH`. quorin_interface() creates one virtual
 * camera and returns its interface table with Open and Close wrapped, so
 * that every use of the driver is written to the file named by
 * QUORIN_TEST_DRIVER_LOG: a test can tell whether the tool touched the
 * camera at all, and whether it closed it.
 *
 * The camera answers the host argument 0x2A07 (camera number 7) only;
 * QUORIN_TEST_DRIVER_MODEL (k5 or k5c, default k5) and
 * QUORIN_TEST_DRIVER_LINK (default 3) choose the model and link type.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quorin/quorin.h"
#include "vcam/vcam.h"

#if defined(__GNUC__)
#define TEST_DRIVER_EXPORT __attribute__((visibility("default")))
#else
#define TEST_DRIVER_EXPORT
#endif

#define TEST_DRIVER_HOST_ARG 0x2A07u

static VcamCamera *g_camera;
static InterfaceTable g_table;
static QuorinOpenFn g_open;
static QuorinCloseFn g_close;

static void logLine(const char *text)
{
    const char *path = getenv("QUORIN_TEST_DRIVER_LOG");
    if (path == NULL || path[0] == '\0')
        return;
    FILE *f = fopen(path, "a");
    if (f == NULL)
        return;
    fprintf(f, "%s\n", text);
    fclose(f);
}

static int32_t loggedOpen(uint32_t hostArg, uint32_t *outHandle, int32_t *err)
{
    int32_t ok = g_open(hostArg, outHandle, err);
    char text[64];
    snprintf(text, sizeof text, "open %u %s", hostArg, ok ? "ok" : "failed");
    logLine(text);
    return ok;
}

static int32_t loggedClose(uint32_t handle, int32_t *err)
{
    logLine("close");
    return g_close(handle, err);
}

TEST_DRIVER_EXPORT const InterfaceTable *quorin_interface(void)
{
    if (g_camera == NULL) {
        const char *model = getenv("QUORIN_TEST_DRIVER_MODEL");
        const char *link = getenv("QUORIN_TEST_DRIVER_LINK");
        VcamConfig cfg;
        vcam_default_config(&cfg, model != NULL && strcmp(model, "k5c") == 0 ? VCAM_K5C : VCAM_K5,
                            link != NULL ? (uint32_t)atoi(link) : 3u);
        cfg.hostArg = TEST_DRIVER_HOST_ARG;
        cfg.cameraNumber = TEST_DRIVER_HOST_ARG & 0xFF;
        g_camera = vcam_create(&cfg);
        if (g_camera == NULL)
            return NULL;
        g_table = *vcam_interface(g_camera);
        g_open = g_table.Open;
        g_close = g_table.Close;
        g_table.Open = loggedOpen;
        g_table.Close = loggedClose;
    }
    logLine("interface");
    return &g_table;
}
