/* A link driver for the element's tests: one virtual K5 on link type 7 at
 * host argument 0x2A07, whose trace and faults a test that loads the same
 * file reaches through quorin_gst_test_camera(). */
#include "quorin/quorin.h"
#include "vcam/vcam.h"

#define TEST_DRIVER_EXPORT __attribute__((visibility("default")))

TEST_DRIVER_EXPORT VcamCamera *quorin_gst_test_camera(void)
{
    static VcamCamera *camera;
    if (camera == NULL) {
        VcamConfig cfg;
        vcam_default_config(&cfg, VCAM_K5, 7);
        cfg.hostArg = 0x2A07u;
        camera = vcam_create(&cfg);
    }
    return camera;
}

TEST_DRIVER_EXPORT const InterfaceTable *quorin_interface(void)
{
    VcamCamera *camera = quorin_gst_test_camera();
    return camera != NULL ? vcam_interface(camera) : NULL;
}
