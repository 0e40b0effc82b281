#include <cstdlib>
#include <string>

namespace testing_support {

void setVar(const char *name, const std::string &value)
{
    setenv(name, value.c_str(), 1);
}

void unsetVar(const char *name)
{
    unsetenv(name);
}

} // namespace testing_support
