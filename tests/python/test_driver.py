"""Opening a camera through a host link-driver library: a small driver
compiled here that hands out a virtual camera's InterfaceTable through
quorin_interface(), the convention the command-line tool uses too."""

import os
import shutil
import subprocess

import pytest

import quorin

from conftest import SOURCE_DIR

DRIVER_SOURCE = r"""
#include "vcam/vcam.h"

/* A monochrome virtual camera on link type 3, answering host argument 0x5A07. */
const InterfaceTable *quorin_interface(void)
{
    static VcamCamera *cam;
    if (cam == 0) {
        VcamConfig cfg;
        vcam_default_config(&cfg, VCAM_K5, 3);
        cfg.hostArg = 0x5A07;
        cfg.cameraNumber = 77;
        cam = vcam_create(&cfg);
    }
    return cam ? vcam_interface(cam) : 0;
}

int not_a_driver(void) { return 0; }
"""


def compile_library(tmp_path, lib, name, source):
    compiler = os.environ.get("QUORIN_TEST_CC") or shutil.which("cc")
    if not compiler:
        pytest.skip("no C compiler to build a test driver")
    src = tmp_path / (name + ".c")
    src.write_text(source)
    out = tmp_path / (name + ".so")
    lib.vcam  # the driver links to the virtual camera library the binding uses
    libdir = os.path.dirname(os.path.realpath(lib.vcam_path))
    subprocess.run([compiler, "-shared", "-fPIC", "-o", str(out), str(src),
                    "-I", str(SOURCE_DIR / "include"), "-I", str(SOURCE_DIR / "vcam" / "include"),
                    "-L", libdir, "-l:" + os.path.basename(lib.vcam_path), "-Wl,-rpath," + libdir],
                   check=True, capture_output=True)
    return out


@pytest.fixture(scope="module")
def driver(lib, tmp_path_factory):
    return compile_library(tmp_path_factory.mktemp("driver"), lib, "driver", DRIVER_SOURCE)


def test_camera_through_a_link_driver(driver):
    with quorin.open(driver=str(driver), host_arg=0x5A07) as cam:
        assert cam.virtual is None
        assert cam.model == "K5" and cam.get("camera-number") == 77
        assert cam.grab(bits=16).shape == (1024, 1024)
        assert cam.download(frames=[1, 1], bits=8).shape == (2, 1024, 1024)
        assert cam.get("camera-mode") == quorin.MODE_LIVE


def test_driver_failures(driver, tmp_path):
    # no camera answers this host argument: the driver's Open fails
    with pytest.raises(quorin.QuorinError) as caught:
        quorin.open(driver=str(driver), host_arg=0x5A08)
    assert caught.value.code == 0x7002 and "virtual link" in caught.value.meaning
    with pytest.raises(quorin.DriverError, match="cannot load"):
        quorin.open(driver=str(tmp_path / "missing.so"))
    empty = compile_library(tmp_path, quorin.library(), "empty", "int not_a_driver(void) { return 0; }\n")
    with pytest.raises(quorin.DriverError, match="does not export quorin_interface"):
        quorin.open(driver=str(empty))
