// Who runs the tool: the user name and client address that stand in every run-log line.
#pragma once

#include "base/identity.hpp"

/// Looks up the real user's name once at start; 0, -22 when the user has no password record,
/// or the failing copy's code.
int vorn_get_usr_name();

/// Reads the client address from SSH_CLIENT once at start ("127.0.0.1" when unset,
/// "Error IP" or "Invalid IP" when it cannot be used); 0 or an error code.
int vorn_get_usr_ip();
