// The TLS module's entry point (tls/tls_module.hpp): the only symbol vorn_tls.so exports.
#include "tls/tls_module.hpp"

#include <cstdio>

#include "base/identity.hpp"
#include "base/result.hpp"
#include "base/text.hpp"
#include "tls/tool_tls.hpp"

extern "C" __attribute__((visibility("default"))) int32_t
vorn_tls_module_run(const VornTlsModuleCall *call)
{
    if (call == nullptr || call->abi != kVornTlsModuleAbi ||
        call->info_size != sizeof(cmd_parse_info)) {
        (void)fputs("The TLS module does not belong to this vorn_tool.\n", stderr);
        return kErrExec;
    }
    // The module has its own copy of the identity that every run-log line carries.
    if (!copy_text(g_vorn_usr_name, call->usr_name != nullptr ? call->usr_name : "") ||
        !copy_text(g_vorn_usr_ip, call->usr_ip != nullptr ? call->usr_ip : ""))
        return kErrSysCopy;
    return tool_tls_cmd_execute(call->argc, call->argv, call->info);
}
