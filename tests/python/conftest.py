"""Shared fixtures: a private settings folder and virtual cameras.

Opening a virtual camera takes over half a second (the library reads two
calibration images), so the cameras are shared by the tests of a module;
tests that change a setting put it back.
"""

import itertools
import os
import pathlib

import pytest

import quorin

SOURCE_DIR = pathlib.Path(__file__).resolve().parents[2]
HEADER = SOURCE_DIR / "include" / "quorin" / "quorin.h"
VCAM_HEADER = SOURCE_DIR / "vcam" / "include" / "vcam" / "vcam.h"

_camera_numbers = itertools.count(700)


@pytest.fixture(scope="session", autouse=True)
def private_settings(tmp_path_factory):
    """Closing a camera saves its settings and files under the XDG folders:
    keep them out of the user's home."""
    home = tmp_path_factory.mktemp("home")
    saved = {k: os.environ.get(k) for k in ("XDG_CONFIG_HOME", "XDG_DATA_HOME")}
    os.environ["XDG_CONFIG_HOME"] = str(home / "config")
    os.environ["XDG_DATA_HOME"] = str(home / "data")
    yield home
    for key, value in saved.items():
        if value is None:
            os.environ.pop(key, None)
        else:
            os.environ[key] = value


@pytest.fixture(scope="session")
def lib():
    return quorin.library()


def open_virtual(model, **options):
    """A virtual camera with a camera number of its own (settings are kept
    per camera number)."""
    options.setdefault("camera_number", next(_camera_numbers))
    return quorin.open(virtual=model, **options)


@pytest.fixture(scope="module")
def k5(lib):
    with open_virtual("k5") as cam:
        yield cam


@pytest.fixture(scope="module")
def k5c(lib):
    with open_virtual("k5c") as cam:
        yield cam


@pytest.fixture(params=["k5", "k5c"])
def either(request):
    """Each shared camera in turn."""
    return request.getfixturevalue(request.param)
