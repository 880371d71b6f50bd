// The named device fields of `kopa-emu get` / `kopa-emu set`.
#include "emu/control_fields.hpp"
#include "emu/diag_fields.hpp"
#include "emu/diag_state.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

namespace kopa_emu
{
namespace
{

enum class Type { kU32, kHex, kIpv4, kMac, kText, kGateway, kRoutes, kArp, kRules, kIpRoutes };

/// Where a field lives: the host table (identity, health) or the device file (network state).
struct Field {
    const char *name;
    Type type;
    bool host;
    bool writable;
    uint32_t HostDevice::*host_member;
    uint32_t DeviceState::*dev_member;
};

constexpr Field kFields[] = {
    {"present", Type::kU32, true, true, &HostDevice::present, nullptr},
    {"phy-id", Type::kU32, true, true, &HostDevice::phy_id, nullptr},
    {"health", Type::kU32, true, true, &HostDevice::health, nullptr},
    {"board-id", Type::kHex, true, true, &HostDevice::board_id, nullptr},
    {"net-health", Type::kU32, true, true, &HostDevice::net_health, nullptr},
    {"vnic-ip", Type::kIpv4, false, true, nullptr, nullptr},
    {"vnic-mask", Type::kIpv4, false, true, nullptr, nullptr},
    {"vnic-link", Type::kU32, false, true, nullptr, &DeviceState::vnic_link},
    {"roce-ip", Type::kIpv4, false, true, nullptr, nullptr},
    {"roce-mask", Type::kIpv4, false, true, nullptr, nullptr},
    {"netdetect", Type::kIpv4, false, true, nullptr, &DeviceState::netdetect},
    {"gateway", Type::kGateway, false, true, nullptr, nullptr},
    {"mac", Type::kMac, false, true, nullptr, nullptr},
    {"link", Type::kU32, false, true, nullptr, &DeviceState::link},
    {"mtu", Type::kU32, false, true, nullptr, &DeviceState::mtu},
    {"udp-port", Type::kU32, false, true, nullptr, &DeviceState::udp_port},
    {"cfg-status", Type::kU32, false, true, nullptr, &DeviceState::cfg_status},
    {"routes", Type::kRoutes, false, true, nullptr, nullptr},
    {"lldp", Type::kText, false, true, nullptr, nullptr},
    {"firmware", Type::kText, false, true, nullptr, nullptr},
    {"tls-switch", Type::kU32, false, true, nullptr, &DeviceState::tls_switch},
    {"tls-alarm", Type::kU32, false, true, nullptr, &DeviceState::tls_alarm_days},
    {"tls-certs", Type::kU32, false, false, nullptr, &DeviceState::cert_count},
    {"arp", Type::kArp, false, true, nullptr, nullptr},
    {"rules", Type::kRules, false, true, nullptr, nullptr},
    {"ip-routes", Type::kIpRoutes, false, true, nullptr, nullptr},
    {"speed", Type::kU32, false, true, nullptr, &DeviceState::static_speed},
    {"auto-adapt", Type::kU32, false, true, nullptr, &DeviceState::auto_adapt},
    {"fec", Type::kU32, false, true, nullptr, &DeviceState::fec_mode},
    {"garp-period", Type::kU32, false, true, nullptr, &DeviceState::garp_period},
    {"garp-status", Type::kU32, false, true, nullptr, &DeviceState::garp_status},
};

const Field *find_field(std::string_view name)
{
    for (const Field &f : kFields) {
        if (name == f.name)
            return &f;
    }
    return nullptr;
}

uint32_t *ipv4_slot(DeviceState &d, std::string_view name)
{
    if (name == "vnic-ip")
        return &d.vnic.address;
    if (name == "vnic-mask")
        return &d.vnic.netmask;
    if (name == "roce-ip")
        return &d.roce.address;
    if (name == "roce-mask")
        return &d.roce.netmask;
    return &d.netdetect;
}

std::string ipv4_text(uint32_t be)
{
    char buf[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &be, buf, sizeof buf);
    return buf;
}

bool parse_ipv4(std::string_view text, uint32_t &be)
{
    char buf[INET_ADDRSTRLEN] = {};
    if (text.size() >= sizeof buf)
        return false;
    memcpy(buf, text.data(), text.size());
    return inet_pton(AF_INET, buf, &be) == 1;
}

bool parse_mac(std::string_view text, uint8_t (&mac)[6])
{
    unsigned v[6];
    char tail = 0;
    std::string s(text);
    if (text.size() != 17 || sscanf(s.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &v[0], &v[1], &v[2],
                                    &v[3], &v[4], &v[5], &tail) != 6) {
        return false;
    }
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<uint8_t>(v[i]);
    return true;
}

/// Text with C-like escapes turned into the characters they name, so that a shell argument
/// can carry several lines or the control characters a misbehaving firmware might send:
/// \n \r \t \b \e (ESC) \\ and \xHH. Any other backslash stays as it is. False for \x00,
/// which a zero-terminated text cannot hold.
bool unescape(std::string_view text, std::string &out)
{
    static constexpr std::pair<char, char> kNamed[] = {
        {'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'b', '\b'}, {'e', '\x1b'}, {'\\', '\\'},
    };
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char c = text[i + 1];
        const auto named = std::find_if(std::begin(kNamed), std::end(kNamed),
                                        [c](const auto &e) { return e.first == c; });
        if (named != std::end(kNamed)) {
            out += named->second;
            ++i;
        } else if (c == 'x' && i + 3 < text.size() &&
                   isxdigit(static_cast<unsigned char>(text[i + 2])) &&
                   isxdigit(static_cast<unsigned char>(text[i + 3]))) {
            const char hex[3] = {text[i + 2], text[i + 3], '\0'};
            const auto byte = static_cast<char>(strtoul(hex, nullptr, 16));
            if (byte == 0)
                return false;
            out += byte;
            i += 3;
        } else {
            out += text[i];
        }
    }
    return true;
}

std::string mac_text(const uint8_t *mac)
{
    char buf[24];
    snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return buf;
}

/// One line per entry, without a final newline.
template <typename T, typename Line> std::string lines_of(const T *table, uint32_t count, Line line)
{
    std::string out;
    for (uint32_t i = 0; i < count; ++i) {
        if (i != 0)
            out += '\n';
        out += line(table[i]);
    }
    return out;
}

std::string table_text(const DeviceState &d, Type type)
{
    switch (type) {
    case Type::kRoutes:
        return lines_of(d.routes, d.route_count, [](const kopa_route_record &r) {
            return ipv4_text(r.destination) + " " + ipv4_text(r.netmask) + " " +
                   ipv4_text(r.gateway);
        });
    case Type::kArp:
        return lines_of(d.arp, d.arp_count, [](const kopa_arp_record &r) {
            return "eth" + std::to_string(r.dev) + " " + ipv4_text(r.ip) + " " + mac_text(r.mac);
        });
    case Type::kRules:
        return lines_of(d.rules, d.rule_count, [](const kopa_ip_rule_record &r) {
            return std::string(r.dir == 0 ? "from " : "to ") + ipv4_text(r.ip) + "/" +
                   std::to_string(r.mask_bits) + " table " + std::to_string(r.table);
        });
    default:
        return lines_of(d.ip_routes, d.ip_route_count, [](const kopa_ip_route_record &r) {
            return ipv4_text(r.ip) + "/" + std::to_string(r.mask_bits) + " via " +
                   ipv4_text(r.via) + " dev eth" + std::to_string(r.dev) + " table " +
                   std::to_string(r.table);
        });
    }
}

/// Empties a table; tables fill only through the device.
void clear_table(DeviceState &d, Type type)
{
    switch (type) {
    case Type::kRoutes:
        d.route_count = 0;
        memset(d.routes, 0, sizeof d.routes);
        break;
    case Type::kArp:
        d.arp_count = 0;
        memset(d.arp, 0, sizeof d.arp);
        break;
    case Type::kRules:
        d.rule_count = 0;
        memset(d.rules, 0, sizeof d.rules);
        break;
    default:
        d.ip_route_count = 0;
        memset(d.ip_routes, 0, sizeof d.ip_routes);
        break;
    }
}

bool is_table(Type type)
{
    return type == Type::kRoutes || type == Type::kArp || type == Type::kRules ||
           type == Type::kIpRoutes;
}

} // namespace

const char *field_names()
{
    static const std::string names =
        std::string("present phy-id health board-id net-health vnic-ip vnic-mask vnic-link "
                    "roce-ip roce-mask netdetect gateway mac link mtu udp-port cfg-status routes "
                    "lldp firmware tls-switch tls-alarm tls-certs arp rules ip-routes speed "
                    "auto-adapt fec garp-period garp-status ") +
        diag_field_names();
    return names.c_str();
}

bool parse_u32(std::string_view text, uint32_t &out)
{
    int64_t v = 0;
    if (!parse_i64(text, v) || v < 0 || v > 0xFFFFFFFFll)
        return false;
    out = static_cast<uint32_t>(v);
    return true;
}

bool parse_i64(std::string_view text, int64_t &out)
{
    if (text.empty() || text.size() > 20)
        return false;
    std::string s(text);
    errno = 0;
    char *end = nullptr;
    long long v = strtoll(s.c_str(), &end, 0);
    if (errno != 0 || end == s.c_str() || *end != '\0' || s[0] == ' ' || s[0] == '+')
        return false;
    out = v;
    return true;
}

bool get_field(Session &session, uint32_t logic_id, std::string_view name, std::string &out)
{
    const Field *f = find_field(name);
    if (f == nullptr && is_diag_field(name)) {
        const DeviceState *d = logic_id < KOPA_MAX_DEVICES ? session.device(logic_id) : nullptr;
        if (d == nullptr) {
            out = "device " + std::to_string(logic_id) + " is not present";
            return false;
        }
        return get_diag_field(*d, name, out);
    }
    if (f == nullptr) {
        out = "unknown field '" + std::string(name) + "'";
        return false;
    }
    if (logic_id >= KOPA_MAX_DEVICES) {
        out = "device id out of range 0..15";
        return false;
    }
    char buf[64];
    if (f->host) {
        uint32_t v = session.host().dev[logic_id].*(f->host_member);
        snprintf(buf, sizeof buf, f->type == Type::kHex ? "0x%04x" : "%u", v);
        out = buf;
        return true;
    }
    DeviceState *d = session.device(logic_id);
    if (d == nullptr) {
        out = "device " + std::to_string(logic_id) + " is not present";
        return false;
    }
    switch (f->type) {
    case Type::kIpv4:
        out = ipv4_text(*ipv4_slot(*d, name));
        break;
    case Type::kGateway:
        out = d->has_gateway ? ipv4_text(d->gateway) : "none";
        break;
    case Type::kMac:
        out = mac_text(d->mac);
        break;
    case Type::kText:
        out = name == "lldp" ? d->lldp : d->firmware;
        break;
    default:
        out = is_table(f->type) ? table_text(*d, f->type) : std::to_string(d->*(f->dev_member));
        break;
    }
    return true;
}

bool set_field(Session &session, uint32_t logic_id, std::string_view name, std::string_view value,
               std::string &err)
{
    const Field *f = find_field(name);
    if (f == nullptr && is_diag_field(name)) {
        DeviceState *d = logic_id < KOPA_MAX_DEVICES ? session.device(logic_id) : nullptr;
        if (d == nullptr) {
            err = "device " + std::to_string(logic_id) + " is not present";
            return false;
        }
        if (!set_diag_field(*d, name, value, err))
            return false;
        session.mark_device_dirty(logic_id);
        return true;
    }
    if (f == nullptr) {
        err = "unknown field '" + std::string(name) + "'";
        return false;
    }
    if (!f->writable) {
        err = "field '" + std::string(name) + "' is read-only";
        return false;
    }
    if (logic_id >= KOPA_MAX_DEVICES) {
        err = "device id out of range 0..15";
        return false;
    }
    const std::string bad = "invalid value '" + std::string(value) + "' for " + std::string(name);
    uint32_t num = 0;
    if (f->host) {
        if (!parse_u32(value, num)) {
            err = bad;
            return false;
        }
        session.host().dev[logic_id].*(f->host_member) = num;
        session.mark_host_dirty();
        if (name == "present" && num != 0)
            session.device(logic_id); // make its file if missing
        return true;
    }
    DeviceState *d = session.device(logic_id);
    if (d == nullptr) {
        err = "device " + std::to_string(logic_id) + " is not present";
        return false;
    }
    bool ok = true;
    switch (f->type) {
    case Type::kIpv4:
        ok = parse_ipv4(value, *ipv4_slot(*d, name));
        break;
    case Type::kGateway:
        if (value == "none") {
            d->has_gateway = 0;
            d->gateway = 0;
            d->gateway_seq = 0;
        } else if ((ok = parse_ipv4(value, d->gateway))) {
            uint64_t newest = 0;
            for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
                if (const DeviceState *peer = session.device(i))
                    newest = std::max(newest, peer->gateway_seq);
            }
            d->has_gateway = 1;
            d->gateway_seq = newest + 1;
        }
        break;
    case Type::kMac:
        ok = parse_mac(value, d->mac);
        break;
    case Type::kText: {
        std::string text;
        char *dst = name == "lldp" ? d->lldp : d->firmware;
        size_t cap = name == "lldp" ? sizeof d->lldp : sizeof d->firmware;
        ok = unescape(value, text) && text.size() < cap;
        if (ok)
            snprintf(dst, cap, "%s", text.c_str());
        break;
    }
    default:
        if (is_table(f->type)) {
            // Tables fill through the device; here they can only be emptied.
            ok = value == "none";
            if (ok)
                clear_table(*d, f->type);
        } else {
            ok = parse_u32(value, num);
            if (ok && name == "link")
                note_link_change(*d, num); // the counters stop or start, a drop is a flap
            if (ok)
                d->*(f->dev_member) = num;
        }
        break;
    }
    if (!ok) {
        err = bad;
        return false;
    }
    session.mark_device_dirty(logic_id);
    return true;
}

} // namespace kopa_emu
