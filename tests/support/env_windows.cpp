#include <cstdlib>
#include <string>

namespace testing_support {

void setVar(const char *name, const std::string &value)
{
    _putenv_s(name, value.c_str());
}

void unsetVar(const char *name)
{
    _putenv_s(name, "");
}

} // namespace testing_support
