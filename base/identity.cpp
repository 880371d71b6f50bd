// The two identity strings of the run.
#include "base/identity.hpp"

char g_vorn_usr_name[kIdentityLen];
char g_vorn_usr_ip[kIdentityLen];
