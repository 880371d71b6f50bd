// Mapping of the system's absolute paths onto the test root of a test build.
#include "base/paths.hpp"

#ifdef VORN_TEST_PATHS
#include <cstdlib>
#endif

std::string sys_path(const std::string &abs)
{
#ifdef VORN_TEST_PATHS
    const char *root = std::getenv("VORN_TEST_ROOT");
    std::string prefix = (root != nullptr && root[0] != '\0') ? root : "/tmp/vorn-test-root";
    return prefix + abs;
#else
    return abs;
#endif
}
