#include "support/temp_env.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace testing_support {

namespace fs = std::filesystem;

// env_posix.cpp / env_windows.cpp
void setVar(const char *name, const std::string &value);
void unsetVar(const char *name);


TempHome::TempHome()
{
    std::random_device rd;
    path_ = (fs::temp_directory_path() / ("quorin-test-" + std::to_string(rd()))).string();
    fs::create_directories(path_);
    if (const char *v = std::getenv("XDG_CONFIG_HOME")) {
        hadConfig_ = true;
        oldConfig_ = v;
    }
    if (const char *v = std::getenv("XDG_DATA_HOME")) {
        hadData_ = true;
        oldData_ = v;
    }
    setVar("XDG_CONFIG_HOME", path_ + "/config");
    setVar("XDG_DATA_HOME", path_ + "/data");
}

TempHome::~TempHome()
{
    if (hadConfig_)
        setVar("XDG_CONFIG_HOME", oldConfig_);
    else
        unsetVar("XDG_CONFIG_HOME");
    if (hadData_)
        setVar("XDG_DATA_HOME", oldData_);
    else
        unsetVar("XDG_DATA_HOME");
    std::error_code ec;
    fs::remove_all(path_, ec);
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool fileExists(const std::string &path)
{
    std::error_code ec;
    return fs::exists(path, ec);
}

VirtualCamera::VirtualCamera(std::uint32_t model, std::uint32_t linkType)
{
    VcamConfig cfg;
    vcam_default_config(&cfg, model, linkType);
    cam_ = vcam_create(&cfg);
}

VirtualCamera::VirtualCamera(const VcamConfig &config) : cam_(vcam_create(&config)) {}

VirtualCamera::~VirtualCamera()
{
    vcam_destroy(cam_);
}

} // namespace testing_support
