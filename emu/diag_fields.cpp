// The diagnostics fields of kopa-emu: readings in the units an administrator reads them in.
#include "emu/diag_fields.hpp"

#include <arpa/inet.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "emu/control_fields.hpp"
#include "emu/diag_state.hpp"

namespace kopa_emu
{
namespace
{

constexpr uint32_t kDefaultPeerRttUs = 150;

/// An optical reading: its field name, the scale of its record unit and where it lives.
struct OpticalField {
    const char *name;
    double scale; ///< record units per displayed unit
    const char *format;
};

constexpr OpticalField kOptical[] = {
    {"optical-temp", 256.0, "%.2f"},       // degrees C
    {"optical-voltage", 10000.0, "%.4f"},  // V
    {"optical-bias", 500.0, "%.3f"},       // mA, per lane
    {"optical-tx-power", 10000.0, "%.4f"}, // mW, per lane
    {"optical-rx-power", 10000.0, "%.4f"}, // mW, per lane
};

constexpr const char *kPeerStates[] = {"reachable", "unreachable", "lossy"};
constexpr const char *kPerftestStates[] = {"idle", "running", "done", "stopped", "failed"};

const OpticalField *optical_field(std::string_view name)
{
    for (const OpticalField &f : kOptical) {
        if (name == f.name)
            return &f;
    }
    return nullptr;
}

/// The per-lane readings of an optical field, or nullptr for the module-wide ones.
uint16_t *lanes_of(kopa_optical_info &o, std::string_view name)
{
    if (name == "optical-bias")
        return o.bias;
    if (name == "optical-tx-power")
        return o.tx_power;
    if (name == "optical-rx-power")
        return o.rx_power;
    return nullptr;
}

std::vector<std::string> split(std::string_view text, char sep)
{
    std::vector<std::string> parts;
    size_t pos = 0;
    for (;;) {
        const size_t end = text.find(sep, pos);
        parts.emplace_back(text.substr(pos, end == std::string_view::npos ? end : end - pos));
        if (end == std::string_view::npos)
            return parts;
        pos = end + 1;
    }
}

/// A decimal number with optional sign and fraction, scaled to record units within
/// [lo, hi].
bool parse_scaled(const std::string &text, double scale, long lo, long hi, long &out)
{
    if (text.empty() || text[0] == ' ' || text[0] == '+')
        return false;
    errno = 0;
    char *end = nullptr;
    const double v = strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(v))
        return false;
    const long scaled = std::lround(v * scale);
    if (scaled < lo || scaled > hi)
        return false;
    out = scaled;
    return true;
}

std::string scaled_text(long value, double scale, const char *format)
{
    char buf[32];
    snprintf(buf, sizeof buf, format, static_cast<double>(value) / scale);
    return buf;
}

std::string ipv4_text(uint32_t be)
{
    char buf[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &be, buf, sizeof buf);
    return buf;
}

bool set_optical(kopa_optical_info &o, const OpticalField &f, std::string_view value)
{
    uint16_t *lanes = lanes_of(o, f.name);
    if (lanes == nullptr) {
        long v = 0;
        const bool temp = std::string_view(f.name) == "optical-temp";
        if (!parse_scaled(std::string(value), f.scale, temp ? INT16_MIN : 0,
                          temp ? INT16_MAX : UINT16_MAX, v))
            return false;
        if (temp)
            o.temperature = static_cast<int16_t>(v);
        else
            o.voltage = static_cast<uint16_t>(v);
        return true;
    }
    const std::vector<std::string> parts = split(value, ',');
    if (parts.size() != 1 && parts.size() != KOPA_OPTICAL_LANES)
        return false;
    long v[KOPA_OPTICAL_LANES] = {};
    for (uint32_t i = 0; i < KOPA_OPTICAL_LANES; ++i) {
        if (!parse_scaled(parts[parts.size() == 1 ? 0 : i], f.scale, 0, UINT16_MAX, v[i]))
            return false;
    }
    for (uint32_t i = 0; i < KOPA_OPTICAL_LANES; ++i)
        lanes[i] = static_cast<uint16_t>(v[i]);
    return true;
}

std::string get_optical(kopa_optical_info o, const OpticalField &f)
{
    const uint16_t *lanes = lanes_of(o, f.name);
    if (lanes == nullptr) {
        const long v = std::string_view(f.name) == "optical-temp" ? o.temperature : o.voltage;
        return scaled_text(v, f.scale, f.format);
    }
    std::string out;
    for (uint32_t i = 0; i < KOPA_OPTICAL_LANES; ++i) {
        if (i != 0)
            out += ',';
        out += scaled_text(lanes[i], f.scale, f.format);
    }
    return out;
}

/// "<address> reachable [rtt_us]", "<address> unreachable" or "<address> lossy <loss%>
/// [rtt_us]": adds the peer or replaces its entry.
bool set_peer(DeviceState &d, std::string_view value)
{
    const std::vector<std::string> w = split(value, ' ');
    PingPeer peer{0, kPeerReachable, kDefaultPeerRttUs, 0};
    char addr[INET_ADDRSTRLEN] = {};
    if (w.size() < 2 || w[0].size() >= sizeof addr)
        return false;
    memcpy(addr, w[0].data(), w[0].size());
    if (inet_pton(AF_INET, addr, &peer.ip) != 1)
        return false;
    size_t next = 2;
    if (w[1] == "unreachable") {
        peer.state = kPeerUnreachable;
    } else if (w[1] == "lossy") {
        peer.state = kPeerLossy;
        if (w.size() < 3 || !parse_u32(w[2], peer.loss) || peer.loss > 100)
            return false;
        next = 3;
    } else if (w[1] != "reachable") {
        return false;
    }
    if (w.size() > next + 1 || (peer.state == kPeerUnreachable && w.size() > next))
        return false;
    if (w.size() == next + 1 && (!parse_u32(w[next], peer.rtt_us) || peer.rtt_us == 0))
        return false;
    if (PingPeer *old = find_peer(d, peer.ip)) {
        *old = peer;
        return true;
    }
    if (d.peer_count >= kMaxPeers)
        return false;
    d.peers[d.peer_count++] = peer;
    return true;
}

/// "<pid> <memory_mb> <name>": adds a process.
bool add_process(DeviceState &d, std::string_view value)
{
    const std::vector<std::string> w = split(value, ' ');
    kopa_process_record p{};
    if (w.size() != 3 || w[2].empty() || w[2].size() > sizeof p.name || !parse_u32(w[0], p.pid) ||
        !parse_u32(w[1], p.memory_mb) || d.process_count >= kMaxProcesses)
        return false;
    memcpy(p.name, w[2].data(), w[2].size());
    d.processes[d.process_count++] = p;
    return true;
}

} // namespace

const char *diag_field_names()
{
    return "duplex link-flaps link-change optical-present optical-temp optical-voltage "
           "optical-bias optical-tx-power optical-rx-power pci-speed pci-width peers processes "
           "perftest";
}

bool is_diag_field(std::string_view name)
{
    const std::vector<std::string> names = split(diag_field_names(), ' ');
    for (const std::string &n : names) {
        if (name == n)
            return true;
    }
    return false;
}

bool get_diag_field(const DeviceState &d, std::string_view name, std::string &out)
{
    if (const OpticalField *f = optical_field(name)) {
        out = get_optical(d.optical, *f);
    } else if (name == "duplex") {
        out = std::to_string(d.duplex);
    } else if (name == "link-flaps") {
        out = std::to_string(d.link_flaps);
    } else if (name == "link-change") {
        out = std::to_string(d.link_change);
    } else if (name == "optical-present") {
        out = std::to_string(d.optical.present);
    } else if (name == "pci-speed") {
        out = std::to_string(d.pci_speed);
    } else if (name == "pci-width") {
        out = std::to_string(d.pci_width);
    } else if (name == "peers") {
        out.clear();
        for (uint32_t i = 0; i < d.peer_count && i < kMaxPeers; ++i) {
            const PingPeer &p = d.peers[i];
            if (i != 0)
                out += '\n';
            out += ipv4_text(p.ip);
            out += ' ';
            out += kPeerStates[p.state % std::size(kPeerStates)];
            if (p.state == kPeerLossy) {
                out += ' ';
                out += std::to_string(p.loss);
            }
            if (p.state != kPeerUnreachable) {
                out += ' ';
                out += std::to_string(p.rtt_us);
            }
        }
    } else if (name == "processes") {
        out.clear();
        for (uint32_t i = 0; i < d.process_count && i < kMaxProcesses; ++i) {
            const kopa_process_record &p = d.processes[i];
            if (i != 0)
                out += '\n';
            out += std::to_string(p.pid);
            out += ' ';
            out += std::to_string(p.memory_mb);
            out += ' ';
            out.append(p.name, strnlen(p.name, sizeof p.name));
        }
    } else if (name == "perftest") {
        const PerftestState &t = d.perftest;
        out = std::string(kPerftestStates[t.state % std::size(kPerftestStates)]) + " " +
              std::to_string(t.done) + "/" + std::to_string(t.iterations);
    } else {
        return false;
    }
    return true;
}

bool set_diag_field(DeviceState &d, std::string_view name, std::string_view value, std::string &err)
{
    bool ok = true;
    uint32_t num = 0;
    int64_t wide = 0;
    if (const OpticalField *f = optical_field(name)) {
        ok = set_optical(d.optical, *f, value);
    } else if (name == "duplex" || name == "optical-present") {
        ok = parse_u32(value, num) && num <= 1;
        if (ok && name == "duplex")
            d.duplex = num;
        else if (ok)
            d.optical.present = static_cast<uint8_t>(num);
    } else if (name == "link-flaps") {
        ok = parse_u32(value, d.link_flaps);
    } else if (name == "link-change") {
        ok = parse_i64(value, wide) && wide >= 0;
        if (ok)
            d.link_change = static_cast<uint64_t>(wide);
    } else if (name == "pci-speed") {
        ok = parse_u32(value, num) && num >= 1 && num <= 6;
        if (ok)
            d.pci_speed = num;
    } else if (name == "pci-width") {
        ok = parse_u32(value, num) && num >= 1 && num <= 32;
        if (ok)
            d.pci_width = num;
    } else if (name == "peers") {
        if (value == "none") {
            d.peer_count = 0;
            memset(d.peers, 0, sizeof d.peers);
        } else {
            ok = set_peer(d, value);
        }
    } else if (name == "processes") {
        if (value == "none") {
            d.process_count = 0;
            memset(d.processes, 0, sizeof d.processes);
        } else {
            ok = add_process(d, value);
        }
    } else {
        err = "field '" + std::string(name) + "' is read-only";
        return false;
    }
    if (!ok)
        err = "invalid value '" + std::string(value) + "' for " + std::string(name);
    return ok;
}

} // namespace kopa_emu
