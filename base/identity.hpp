// Who runs the tool: the user name and client address that stand in every run-log line. The
// entry point finds them once at start (main/identity.hpp); every layer reads them here.
#pragma once

#include <cstddef>

inline constexpr size_t kIdentityLen = 32; ///< size of each identity string, terminator included

/// The user name found at start (at most 31 characters; empty before it is found).
extern char g_vorn_usr_name[kIdentityLen];
/// The client address found at start (at most 31 characters).
extern char g_vorn_usr_ip[kIdentityLen];

inline const char *vorn_get_g_usr_name()
{
    return g_vorn_usr_name;
}
inline const char *vorn_get_g_usr_ip()
{
    return g_vorn_usr_ip;
}
