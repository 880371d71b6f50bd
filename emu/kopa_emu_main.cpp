// kopa-emu: sets up, inspects and injects faults into the emulated host of the driver libraries.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
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
    "                          change one value (numbers in decimal or 0x hex; gateway and routes\n"
    "                          take \"none\" to clear; \\n in lldp/firmware text is a newline)\n"
    "  fault add (--op <opcode|name> | --func <name>) --result N [--count N]\n"
    "                          force a firmware result for an opcode, or a return value for a\n"
    "                          library function (e.g. kopa_get_device_health)\n"
    "  fault add (--frag N | --rsp-len N | --data-len N) [--op <opcode|name>] [--count N]\n"
    "                          alter the first reply piece of the next commands\n"
    "  fault clear             remove every fault\n"
    "  fault list              one fault per line: kind target value remaining (-1: always)\n"
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
    };
    for (const auto &row : kFieldsShown) {
        std::string value;
        if (get_field(s, id, row[1], value))
            printf("  %-15s %s\n", row[0], value.c_str());
    }
    std::string routes;
    if (get_field(s, id, "routes", routes)) {
        printf("  %-15s %s\n", "routes", routes.empty() ? "none" : "");
        size_t pos = 0;
        while (!routes.empty() && pos <= routes.size()) {
            size_t end = routes.find('\n', pos);
            if (end == std::string::npos)
                end = routes.size();
            printf("    %s\n", routes.substr(pos, end - pos).c_str());
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

bool parse_opcode(std::string_view text, uint32_t &opcode)
{
    if (const OpInfo *op = find_op(text)) {
        opcode = op->opcode;
        return true;
    }
    return parse_u32(text, opcode) && find_op(opcode) != nullptr;
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
    bool have_kind = false, have_value = false, have_op = false;
    for (size_t i = 1; i < args.size(); ++i) {
        std::string_view a = args[i];
        if (i + 1 >= args.size())
            return fail("option '" + std::string(a) + "' needs a value");
        std::string_view v = args[++i];
        int64_t n = 0;
        if (a == "--op") {
            if (!parse_opcode(v, f.opcode))
                return fail("unknown operation '" + std::string(v) + "'");
            have_op = true;
        } else if (a == "--func") {
            if (!v.starts_with("kopa_"))
                return fail("--func takes a library function name such as kopa_get_device_health");
            f.function = std::string(v);
            f.kind = FaultKind::kFunction;
            have_kind = true;
        } else if (a == "--count") {
            if (!parse_i64(v, n) || n < 1 || n > 1000000)
                return fail("--count takes a positive number");
            f.remaining = static_cast<int32_t>(n);
        } else if (a == "--result" || a == "--frag" || a == "--rsp-len" || a == "--data-len") {
            if (!parse_i64(v, n))
                return fail("invalid number '" + std::string(v) + "' for " + std::string(a));
            if (have_value)
                return fail("give one of --result, --frag, --rsp-len, --data-len");
            f.value = n;
            have_value = true;
            if (a == "--frag")
                f.kind = FaultKind::kFrag;
            if (a == "--rsp-len")
                f.kind = FaultKind::kRspLen;
            if (a == "--data-len")
                f.kind = FaultKind::kDataLen;
        } else {
            return fail("unknown fault option '" + std::string(a) + "'");
        }
    }
    if (!have_value)
        return fail("a fault needs --result, --frag, --rsp-len or --data-len");
    if (f.kind == FaultKind::kFunction && have_op)
        return fail("give --op or --func, not both");
    if (f.kind == FaultKind::kResult && !have_op && !have_kind)
        return fail("--result needs --op or --func");
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
    if (cmd == "fault")
        return cmd_fault(args);
    if (cmd == "journal")
        return cmd_journal(args);
    if (cmd == "log-level")
        return cmd_log_level(args);
    return fail("unknown command '" + std::string(cmd) + "' (see kopa-emu --help)");
}
