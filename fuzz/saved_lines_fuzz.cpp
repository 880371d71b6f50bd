// Fuzzes the parsers of saved command lines on arbitrary configuration files: the walk over
// saved route lines (replay, clear, prune outside a segment) and the replay of saved ARP
// entries, policy rules and policy routes. The device calls go to a scripted firmware that
// accepts everything (tests/device/fake_firmware), which keeps every request it was sent.
//
// Input: one byte picks the device (its logical and physical id), eight more the segment of
// the prune, the rest is the configuration file.
//
// Besides the sanitizers:
// - every route the replay sends is one saved line of the device, in the very form the tool
//   writes it ("route_address_A_netmask_M_P=gateway_G", up to a zero byte);
// - every ARP entry, rule and route sent has its fields in range, and its address stands in a
//   saved line of the device;
// - a prune or a clear only ever removes lines; after a prune the replay sends no route whose
//   gateway lies outside the segment, after a clear none at all.
#include <arpa/inet.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "commands/replay.hpp"
#include "commands/route_store.hpp"
#include "config/store.hpp"
#include "fuzz/fuzz_support.hpp"
#include "tests/device/fake_firmware.hpp"

namespace
{

std::string g_conf;

/// The lines of the file as the store reads them, each cut at a zero byte and its newline.
std::vector<std::string> pieces_of(const std::string &text)
{
    std::vector<std::string> out;
    (void)cfg_for_each_piece(text, [&](std::string_view piece) {
        std::string_view t(piece.data(), strnlen(piece.data(), piece.size()));
        if (!t.empty() && t.back() == '\n')
            t.remove_suffix(1);
        out.emplace_back(t);
        return 0;
    });
    return out;
}

bool has_line(const std::string &text, const std::string &line)
{
    for (const std::string &p : pieces_of(text))
        if (p == line)
            return true;
    return false;
}

std::string quad(uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    (void)inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

template <typename T> std::vector<T> sent(uint32_t opcode)
{
    std::vector<T> out;
    for (const ds_req &req : fake_firmware().requests) {
        if (req.opcode != opcode || req.direction != KOPA_DIR_SEND)
            continue;
        T rec;
        memcpy(&rec, req.info, sizeof rec);
        out.push_back(rec);
    }
    return out;
}

/// Replays the saved routes of `dev`; returns the routes sent.
std::vector<kopa_route_record> replay_routes(DevRef dev, int32_t *ret)
{
    fake_firmware().reset();
    *ret = tool_read_vorn_conf_handle_action(dev, RouteAction::kReplay, 0, 0);
    return sent<kopa_route_record>(KOPA_OP_add_route_table);
}

void check_replayed(DevRef dev, const std::string &text, const kopa_route_record &r)
{
    const std::string line = "route_address_" + quad(r.destination) + "_netmask_" +
                             quad(r.netmask) + "_" + std::to_string(dev.phy_id) + "=gateway_" +
                             quad(r.gateway);
    if (!has_line(text, line))
        fuzz_fault("saved_lines_fuzz", "replayed a route that is no saved line of the device",
                   line);
}

// Lines may go, never come or change: the new file is the old one with some lines left out.
void check_only_removed(const std::string &before, const std::string &after)
{
    const std::vector<std::string> old = pieces_of(before), now = pieces_of(after);
    size_t i = 0;
    for (const std::string &line : now) {
        while (i < old.size() && old[i] != line)
            ++i;
        if (i == old.size())
            fuzz_fault("saved_lines_fuzz", "a walk added or changed a line", line);
        ++i;
    }
}

// Whether a saved line beginning with `key` holds the pair `word` `value` (words as the replay
// splits them: at blanks, tabs and carriage returns).
bool in_lines_of(const std::string &text, const std::string &key, const std::string &word,
                 const std::string &value)
{
    for (const std::string &p : pieces_of(text)) {
        if (!p.starts_with(key))
            continue;
        std::vector<std::string> words;
        std::string w;
        for (char c : p.substr(key.size()) + " ") {
            if (c == ' ' || c == '\t' || c == '\r') {
                if (!w.empty())
                    words.push_back(w);
                w.clear();
            } else {
                w += c;
            }
        }
        for (size_t i = 0; i + 1 < words.size(); ++i)
            if (words[i] == word && words[i + 1] == value)
                return true;
    }
    return false;
}

void check_policy(DevRef dev, const std::string &text)
{
    const std::string id = std::to_string(dev.logic_id);
    fake_firmware().reset();
    (void)tool_cfg_replay_now(tool_cfg_ip_rule_recovery, dev);
    for (const kopa_ip_rule_record &r : sent<kopa_ip_rule_record>(KOPA_OP_add_ip_rule)) {
        if (r.dir > 1 || r.mask_bits > 32 || r.table > 255)
            fuzz_fault("saved_lines_fuzz", "rule out of range", quad(r.ip));
        if (!in_lines_of(text, "ip_rule_" + id + "=", "ip", quad(r.ip)))
            fuzz_fault("saved_lines_fuzz", "rule of no saved line", quad(r.ip));
    }
    fake_firmware().reset();
    (void)tool_cfg_replay_now(tool_cfg_ip_route_recovery, dev);
    for (const kopa_ip_route_record &r : sent<kopa_ip_route_record>(KOPA_OP_add_ip_route)) {
        if (r.mask_bits > 32 || r.table > 255 || r.dev > 7)
            fuzz_fault("saved_lines_fuzz", "policy route out of range", quad(r.ip));
        if (!in_lines_of(text, "ip_route_" + id + "=", "ip", quad(r.ip)) ||
            !in_lines_of(text, "ip_route_" + id + "=", "via", quad(r.via)))
            fuzz_fault("saved_lines_fuzz", "policy route of no saved line", quad(r.ip));
    }
    fake_firmware().reset();
    (void)tool_cfg_replay_now(tool_cfg_arp_recovery, dev);
    for (const kopa_arp_record &r : sent<kopa_arp_record>(KOPA_OP_add_arp_entry)) {
        if (r.dev > 7)
            fuzz_fault("saved_lines_fuzz", "arp entry out of range", quad(r.ip));
        if (!in_lines_of(text, "arp_" + id + "=", "ip", quad(r.ip)))
            fuzz_fault("saved_lines_fuzz", "arp entry of no saved line", quad(r.ip));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    const std::string etc = fuzz_dir() + "/root/etc";
    (void)mkdir(etc.c_str(), 0755);
    g_conf = etc + "/vorn.conf";
    if (g_conf != cfg_conf_path())
        fuzz_fault("saved_lines_fuzz", "configuration path", cfg_conf_path());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzBytes in(data, size);
    const uint8_t d = in.u8();
    // Mostly a device whose logical and physical ids differ, as on a host with a gap.
    const uint32_t logic_id = d % KOPA_MAX_DEVICES;
    const DevRef dev{logic_id, (d >> 4) % 2 == 0 ? logic_id : d % 11u};
    const uint32_t address = in.u32(), netmask = in.u32();
    const std::string text = in.rest();
    if (!fuzz_spill(g_conf, text))
        fuzz_fault("saved_lines_fuzz", "write", g_conf);

    int32_t ret = 0;
    for (const kopa_route_record &r : replay_routes(dev, &ret))
        check_replayed(dev, text, r);
    check_policy(dev, text);

    fake_firmware().reset();
    ret = tool_read_vorn_conf_handle_action(dev, RouteAction::kDelOutsideSegment, address, netmask);
    const std::string pruned = fuzz_slurp(g_conf);
    check_only_removed(text, pruned);
    if (ret == 0) {
        for (const kopa_route_record &r : replay_routes(dev, &ret))
            if ((netmask & (address ^ r.gateway)) != 0)
                fuzz_fault("saved_lines_fuzz", "prune kept a route outside the segment",
                           quad(r.gateway));
    }

    fake_firmware().reset();
    ret = tool_read_vorn_conf_handle_action(dev, RouteAction::kDelete, 0, 0);
    const std::string cleared = fuzz_slurp(g_conf);
    check_only_removed(pruned, cleared);
    if (ret == 0) {
        const std::vector<kopa_route_record> left = replay_routes(dev, &ret);
        if (!left.empty())
            fuzz_fault("saved_lines_fuzz", "clear kept a route", quad(left.front().destination));
    }
    return 0;
}
