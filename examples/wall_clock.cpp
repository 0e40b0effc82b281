// Wall-clock seconds for the C example (C99 has no portable monotonic clock).
#include <chrono>

extern "C" double exampleSeconds(void)
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}
