// kopa-emu: sets up, inspects and injects faults into the emulated host of the driver libraries.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "emu/control_fields.hpp"
#include "emu/op_table.hpp"
#include "emu/state.hpp"

using namespace kopa_emu;

namespace
{

constexpr int kUsageError = 2;

const char kHelp[] =
    "usage: kopa-emu <command> [arguments]\n"
    "\n"
    "Controls the emulated host behind libdrvkopa_host.so and libkelvar_hal.so. State lives in\n"
    "$KOPA_EMU_DIR (default /tmp/kopa-emu).\n"
    "\n"
    "  init --devices N [--pcie] [--phy-ids A,B,...]\n"
    "                          fresh host with N devices (0..16); --pcie gives PCIe cards (board\n"
    "                          0x0150, each device its own gateway group), otherwise a server\n"
    "                          board (groups by physical id 0-3 and 4-15); --phy-ids sets the\n"
    "                          physical id of each logical id (default: the same number)\n"
    "  show [logic_id]         the state of every present device, or of one\n"
    "  get <logic_id> <field>  one value\n"
    "  set <logic_id> <field> <value>\n"
    "                          change one value (numbers in decimal or 0x hex; gateway and the\n"
    "                          tables routes, arp, rules, ip-routes, peers and processes take\n"
    "                          \"none\" to clear;\n"
    "                          lldp/firmware text takes the escapes \\n\n"
    "                          \\r \\t \\b \\e \\\\ and \\xHH)\n"
    "                          optical readings are in degrees C, V, mA and mW (bias and\n"
    "                          power: one value for every lane or four, comma-separated);\n"
    "                          peers takes \"<address> reachable [rtt_us]\", \"<address>\n"
    "                          unreachable\" or \"<address> lossy <loss%> [rtt_us]\" and\n"
    "                          processes \"<pid> <memory_mb> <name>\", one entry per set\n"
    "  wipe <logic_id>|--all   what a device reset does: every setting of the device (or of\n"
    "                          every device) back to its default; presence, ids, health, board,\n"
    "                          the vNIC, LLDP and firmware texts and TLS records stay\n"
    "  fault add <what> [--op <opcode|name>] [--func <name>] [--piece N] [--after-apply]\n"
    "            [--count N]\n"
    "                          inject a fault; <what> is one of\n"
    "      --result N          firmware result (a refusal without data) of a command; with\n"
    "                          --func the return value of that library function instead\n"
    "      --frag N, --data-len N, --rsp-len N\n"
    "                          alter that field of a reply record (or *rsp_len)\n"
    "      --short N           the reply keeps only its first N payload bytes (0..2000)\n"
    "      --garble            the reply's payload becomes non-zero pseudo-random bytes\n"
    "      --delay-ms N        the call sleeps N ms (state unlocked) before answering\n"
    "                          --op: only commands of that operation; --func: a library\n"
    "                          function (with --result or --delay-ms; --op and --piece only for\n"
    "                          kopa_cmd_get_network_device_info, the channel call itself);\n"
    "                          --piece: the N-th reply record of a command, counting the\n"
    "                          replies to the sent packets, then the fetched pieces (default:\n"
    "                          the reply carrying the answer; --result the first packet;\n"
    "                          --func and --delay-ms every call); --after-apply: --result,\n"
    "                          --func and --delay-ms act once the command or function has\n"
    "                          done its work; --count: uses before the fault expires\n"
    "  fault clear             remove every fault\n"
    "  fault list              one fault per line: kind target value remaining (-1: always)\n"
    "                          [op=OPCODE] [piece=N] [after-apply]\n"
    "  journal [--on|--off|--clear]\n"
    "                          record channel calls (off by default), or print the records\n"
    "  log-level N             driver-log level 0..7 (default 3: errors)\n"
    "\n"
    "Fields: ";

int fail(const std::string &message)
{
    fprintf(stderr, "kopa-emu: %s\n", message.c_str());
    return kUsageError;
}

bool parse_logic_id(std::string_view text, uint32_t &id)
{
    return parse_u32(text, id) && id < KOPA_MAX_DEVICES;
}

int cmd_init(const std::vector<std::string_view> &args)
{
    InitOptions options;
    bool have_devices = false;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string_view a = args[i];
        if (a == "--pcie") {
            options.pcie = true;
        } else if (a == "--devices" && i + 1 < args.size()) {
            if (!parse_u32(args[++i], options.devices) || options.devices > KOPA_MAX_DEVICES) {
                return fail("--devices takes a number from 0 to 16");
            }
            have_devices = true;
        } else if (a == "--phy-ids" && i + 1 < args.size()) {
            std::string list(args[++i]);
            size_t pos = 0;
            while (pos <= list.size()) {
                size_t end = list.find(',', pos);
                if (end == std::string::npos)
                    end = list.size();
                uint32_t id = 0;
                if (!parse_u32(std::string_view(list).substr(pos, end - pos), id)) {
                    return fail("--phy-ids takes a comma-separated list of numbers");
                }
                options.phy_ids.push_back(id);
                pos = end + 1;
            }
        } else {
            return fail("init: unknown or incomplete option '" + std::string(a) + "'");
        }
    }
    if (!have_devices && !options.phy_ids.empty())
        options.devices = static_cast<uint32_t>(options.phy_ids.size());
    if (!options.phy_ids.empty() && options.phy_ids.size() != options.devices) {
        return fail("--phy-ids must list one id per device");
    }
    if (int rc = init_host(state_dir(), options); rc != 0) {
        return fail("cannot initialise " + state_dir() + ": " + strerror(-rc));
    }
    return 0;
}

void show_device(Session &s, uint32_t id)
{
    const HostDevice &h = s.host().dev[id];
    printf("device %u: phy_id %u, health %u, board 0x%04x (%s), net health %u\n", id, h.phy_id,
           h.health, h.board_id, is_pcie_board(h.board_id) ? "PCIe card" : "server board",
           h.net_health);
    const char *const kFieldsShown[][2] = {
        {"vnic", "vnic-ip"},
        {"vnic mask", "vnic-mask"},
        {"vnic link", "vnic-link"},
        {"roce", "roce-ip"},
        {"roce mask", "roce-mask"},
        {"gateway", "gateway"},
        {"netdetect", "netdetect"},
        {"mac", "mac"},
        {"link", "link"},
        {"mtu", "mtu"},
        {"udp port", "udp-port"},
        {"cfg status", "cfg-status"},
        {"firmware", "firmware"},
        {"tls switch", "tls-switch"},
        {"tls alarm days", "tls-alarm"},
        {"tls records", "tls-certs"},
        {"static speed", "speed"},
        {"auto adapt", "auto-adapt"},
        {"fec", "fec"},
        {"garp period", "garp-period"},
        {"garp status", "garp-status"},
        {"duplex", "duplex"},
        {"link flaps", "link-flaps"},
        {"optical", "optical-present"},
        {"optical temp", "optical-temp"},
        {"optical rx mW", "optical-rx-power"},
        {"pci gen", "pci-speed"},
        {"pci width", "pci-width"},
        {"perftest", "perftest"},
    };
    for (const auto &row : kFieldsShown) {
        std::string value;
        if (get_field(s, id, row[1], value))
            printf("  %-15s %s\n", row[0], value.c_str());
    }
    const char *const kTablesShown[][2] = {
        {"routes", "routes"},       {"arp", "arp"},     {"ip rules", "rules"},
        {"ip routes", "ip-routes"}, {"peers", "peers"}, {"processes", "processes"},
    };
    for (const auto &row : kTablesShown) {
        std::string lines;
        if (!get_field(s, id, row[1], lines))
            continue;
        printf("  %-15s %s\n", row[0], lines.empty() ? "none" : "");
        size_t pos = 0;
        while (!lines.empty() && pos <= lines.size()) {
            size_t end = lines.find('\n', pos);
            if (end == std::string::npos)
                end = lines.size();
            printf("    %s\n", lines.substr(pos, end - pos).c_str());
            pos = end + 1;
        }
    }
}

int cmd_show(const std::vector<std::string_view> &args)
{
    Session s;
    if (!s.initialised())
        return fail("no emulated host in " + s.dir() + " (run kopa-emu init)");
    if (args.size() > 1)
        return fail("show takes at most one device id");
    if (args.size() == 1) {
        uint32_t id = 0;
        if (!parse_logic_id(args[0], id))
            return fail("invalid device id '" + std::string(args[0]) + "'");
        if (s.check_device(id) != 0)
            return fail("device " + std::string(args[0]) + " is not present");
        show_device(s, id);
        return 0;
    }
    int count = 0;
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i)
        count += s.check_device(i) == 0 ? 1 : 0;
    printf("emulated host in %s: %d device(s)\n", s.dir().c_str(), count);
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        if (s.check_device(i) == 0)
            show_device(s, i);
    }
    return 0;
}

int cmd_get_set(bool set, const std::vector<std::string_view> &args)
{
    if (args.size() != (set ? 3u : 2u)) {
        return fail(set ? "usage: kopa-emu set <logic_id> <field> <value>"
                        : "usage: kopa-emu get <logic_id> <field>");
    }
    uint32_t id = 0;
    if (!parse_logic_id(args[0], id))
        return fail("invalid device id '" + std::string(args[0]) + "'");
    Session s;
    if (!s.initialised())
        return fail("no emulated host in " + s.dir() + " (run kopa-emu init)");
    std::string text;
    if (set ? !set_field(s, id, args[1], args[2], text) : !get_field(s, id, args[1], text))
        return fail(text);
    if (set) {
        if (int rc = s.commit(); rc != 0)
            return fail(std::string("cannot save the state: ") + strerror(-rc));
    } else {
        printf("%s\n", text.c_str());
    }
    return 0;
}

int cmd_wipe(const std::vector<std::string_view> &args)
{
    if (args.size() != 1)
        return fail("usage: kopa-emu wipe <logic_id>|--all");
    Session s;
    if (!s.initialised())
        return fail("no emulated host in " + s.dir() + " (run kopa-emu init)");
    const bool all = args[0] == "--all";
    uint32_t only = 0;
    if (!all && !parse_logic_id(args[0], only))
        return fail("invalid device id '" + std::string(args[0]) + "'");
    if (!all && s.check_device(only) != 0)
        return fail("device " + std::string(args[0]) + " is not present");
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        DeviceState *d = (all || i == only) ? s.device(i) : nullptr;
        if (d == nullptr)
            continue;
        *d = reset_device(*d, i);
        s.mark_device_dirty(i);
    }
    if (int rc = s.commit(); rc != 0)
        return fail(std::string("cannot save the state: ") + strerror(-rc));
    return 0;
}

bool parse_opcode(std::string_view text, uint32_t &opcode)
{
    if (const OpInfo *op = find_op(text)) {
        opcode = op->opcode;
        return true;
    }
    return parse_u32(text, opcode) && find_op(opcode) != nullptr;
}

/// The options that say what a fault forces.
constexpr std::pair<std::string_view, FaultKind> kWhatOptions[] = {
    {"--result", FaultKind::kResult},  {"--frag", FaultKind::kFrag},
    {"--rsp-len", FaultKind::kRspLen}, {"--data-len", FaultKind::kDataLen},
    {"--short", FaultKind::kShort},    {"--garble", FaultKind::kGarble},
    {"--delay-ms", FaultKind::kDelay},
};

/// Checks a parsed `fault add` and settles what --func means: a forced return value with
/// --result, the function delayed with --delay-ms. Returns "" or the complaint.
std::string check_fault(Fault &f, bool have_what, bool have_op)
{
    if (!have_what)
        return "a fault needs --result, --frag, --rsp-len, --data-len, --short, --garble or "
               "--delay-ms";
    const bool channel = f.function.empty() || f.function == kChannelCall;
    const bool reply = f.kind != FaultKind::kResult && f.kind != FaultKind::kDelay;
    if (!f.function.empty() && reply)
        return "--func goes with --result or --delay-ms; reply faults take --op";
    if ((have_op || f.piece != 0) && !channel)
        return "--op and --piece name channel commands: they go with --func only for " +
               std::string(kChannelCall);
    if (f.after_apply && reply)
        return "--after-apply goes with --result, --func or --delay-ms; reply faults always act "
               "on the reply the firmware built";
    if (f.kind == FaultKind::kResult && f.function.empty() && !have_op)
        return "--result needs --op or --func";
    if (f.kind == FaultKind::kResult && !f.function.empty())
        f.kind = FaultKind::kFunction;
    if (f.kind == FaultKind::kDelay && f.function == kChannelCall)
        f.function.clear(); // the channel call is the default target
    if (f.kind == FaultKind::kShort && (f.value < 0 || f.value > KOPA_PKT_PAYLOAD))
        return "--short takes a byte count from 0 to 2000";
    if (f.kind == FaultKind::kDelay && (f.value < 1 || f.value > 600000))
        return "--delay-ms takes a number of milliseconds from 1 to 600000";
    return "";
}

int cmd_fault(const std::vector<std::string_view> &args)
{
    if (args.empty())
        return fail("usage: kopa-emu fault (add ...|clear|list)");
    Session s;
    if (!s.initialised())
        return fail("no emulated host in " + s.dir() + " (run kopa-emu init)");
    if (args[0] == "list" && args.size() == 1) {
        for (const Fault &f : s.faults())
            printf("%s\n", format_fault(f).c_str());
        return 0;
    }
    if (args[0] == "clear" && args.size() == 1) {
        s.faults().clear();
        s.mark_faults_dirty();
        return s.commit() == 0 ? 0 : fail("cannot save the faults");
    }
    if (args[0] != "add")
        return fail("unknown fault command '" + std::string(args[0]) + "'");

    Fault f;
    bool have_what = false, have_op = false;
    for (size_t i = 1; i < args.size(); ++i) {
        std::string_view a = args[i];
        const FaultKind *what = nullptr;
        for (const auto &[name, kind] : kWhatOptions) {
            if (a == name)
                what = &kind;
        }
        if (what != nullptr) {
            if (have_what)
                return fail("give one of --result, --frag, --rsp-len, --data-len, --short, "
                            "--garble, --delay-ms");
            have_what = true;
            f.kind = *what;
            if (*what == FaultKind::kGarble)
                continue; // the one fault without a value
        } else if (a == "--after-apply") {
            f.after_apply = true;
            continue;
        } else if (a != "--op" && a != "--func" && a != "--count" && a != "--piece") {
            return fail("unknown fault option '" + std::string(a) + "'");
        }
        if (i + 1 >= args.size())
            return fail("option '" + std::string(a) + "' needs a value");
        std::string_view v = args[++i];
        int64_t n = 0;
        if (what != nullptr) {
            if (!parse_i64(v, n))
                return fail("invalid number '" + std::string(v) + "' for " + std::string(a));
            f.value = n;
        } else if (a == "--op") {
            if (!parse_opcode(v, f.opcode))
                return fail("unknown operation '" + std::string(v) + "'");
            have_op = true;
        } else if (a == "--func") {
            if (!v.starts_with("kopa_"))
                return fail("--func takes a library function name such as kopa_get_device_health");
            f.function = std::string(v);
        } else if (a == "--count") {
            if (!parse_i64(v, n) || n < 1 || n > 1000000)
                return fail("--count takes a positive number");
            f.remaining = static_cast<int32_t>(n);
        } else { // --piece
            if (!parse_i64(v, n) || n < 1 || n > 1000000)
                return fail("--piece takes a reply position from 1");
            f.piece = static_cast<uint32_t>(n);
        }
    }
    if (std::string err = check_fault(f, have_what, have_op); !err.empty())
        return fail(err);
    s.faults().push_back(f);
    s.mark_faults_dirty();
    return s.commit() == 0 ? 0 : fail("cannot save the faults");
}

int cmd_journal(const std::vector<std::string_view> &args)
{
    const std::string dir = state_dir();
    if (args.size() > 1)
        return fail("usage: kopa-emu journal [--on|--off|--clear]");
    if (args.size() == 1) {
        int rc = 0;
        if (args[0] == "--on")
            rc = set_journal(dir, true);
        else if (args[0] == "--off")
            rc = set_journal(dir, false);
        else if (args[0] == "--clear")
            rc = clear_journal(dir);
        else
            return fail("unknown journal option '" + std::string(args[0]) + "'");
        return rc == 0 ? 0 : fail("cannot change the journal in " + dir + ": " + strerror(-rc));
    }
    for (const JournalRecord &r : read_journal(dir)) {
        const OpInfo *op = find_op(r.opcode);
        printf("dev %u op 0x%x(%s) frag %u dir %u size_in %u size_out %u copy %u tgid %u pid %u"
               " -> ret %d rsp_len %u result %d frag %u data_len %u\n",
               r.logic_id, r.opcode, op != nullptr ? std::string(op->name).c_str() : "?", r.frag,
               r.direction, r.size_in, r.size_out, r.copy_size, r.tgid, r.client_pid, r.ret,
               r.rsp_len, r.result, r.rsp_frag, r.data_len);
    }
    return 0;
}

int cmd_log_level(const std::vector<std::string_view> &args)
{
    uint32_t level = 0;
    if (args.size() != 1 || !parse_u32(args[0], level) || level > 7)
        return fail("log-level takes one number from 0 to 7");
    const std::string dir = state_dir();
    if (int rc = write_log_level(dir, static_cast<int>(level)); rc != 0) {
        return fail("cannot write the log level in " + dir + ": " + strerror(-rc));
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return fail("missing command (see kopa-emu --help)");
    std::string_view cmd = argv[1];
    std::vector<std::string_view> args(argv + 2, argv + argc);
    if (cmd == "--help" || cmd == "-h" || cmd == "help") {
        printf("%s%s\n", kHelp, field_names());
        return 0;
    }
    if (cmd == "init")
        return cmd_init(args);
    if (cmd == "show")
        return cmd_show(args);
    if (cmd == "get")
        return cmd_get_set(false, args);
    if (cmd == "set")
        return cmd_get_set(true, args);
    if (cmd == "wipe")
        return cmd_wipe(args);
    if (cmd == "fault")
        return cmd_fault(args);
    if (cmd == "journal")
        return cmd_journal(args);
    if (cmd == "log-level")
        return cmd_log_level(args);
    return fail("unknown command '" + std::string(cmd) + "' (see kopa-emu --help)");
}
