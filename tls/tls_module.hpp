// The call from the tool into its TLS module (vorn_tls.so). The module holds the -tls command,
// the envelope and the host store, and is the only part of the tool that links libcrypto: it is
// loaded on the first -tls run, so that no other run maps, relocates and initialises OpenSSL.
#pragma once

#include <cstdint>

#include "cmdline/cmd.hpp"

/// Raised whenever the layout of VornTlsModuleCall or of cmd_parse_info changes.
inline constexpr uint32_t kVornTlsModuleAbi = 1;

/// File name of the module: beside the tool in the build tree, in <libdir>/vorn_tool installed.
inline constexpr const char *kVornTlsModuleName = "vorn_tls.so";

/// Name of the module's one exported function, of type VornTlsModuleEntry.
inline constexpr const char *kVornTlsModuleEntrySym = "vorn_tls_module_run";

extern "C" {

/// One -tls command line, handed over whole.
struct VornTlsModuleCall {
    uint32_t abi;         ///< kVornTlsModuleAbi of the caller
    uint32_t info_size;   ///< sizeof(cmd_parse_info) of the caller
    const char *usr_name; ///< the run's user name, for the run log
    const char *usr_ip;   ///< the run's client address, for the run log
    int argc;             ///< words after "-tls"
    char **argv;
    cmd_parse_info *info;
};

/// Runs tool_tls_cmd_execute; 0 or a tool result code. A call of another ABI is refused with
/// 0x5001 before anything is read.
using VornTlsModuleEntry = int32_t (*)(const VornTlsModuleCall *call);
}
