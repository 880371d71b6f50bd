// Defaults and bookkeeping of the diagnostics state of an emulated device.
#include "emu/diag_state.hpp"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace kopa_emu
{
namespace
{

/// A text field of the optical record: blank-padded, not terminated.
template <size_t N> void pad(char (&field)[N], const char *text)
{
    memset(field, ' ', N);
    memcpy(field, text, strnlen(text, N));
}

/// A healthy 200G short-reach module reading mid-range, with the usual thresholds.
kopa_optical_info default_optical(uint32_t logic_id)
{
    kopa_optical_info o{};
    o.present = 1;
    o.identifier = 0x11; // QSFP28 and later (SFF-8636)
    o.lanes = KOPA_OPTICAL_LANES;
    pad(o.vendor, "EMU OPTICS");
    pad(o.part_number, "EMU-200G-SR4");
    char serial[17];
    snprintf(serial, sizeof serial, "EMU2311%06u", logic_id);
    pad(o.serial, serial);
    o.temperature = 38 * 256 + 128; // 38.5 C
    o.voltage = 33000;              // 3.3 V
    for (uint32_t i = 0; i < KOPA_OPTICAL_LANES; ++i) {
        o.bias[i] = static_cast<uint16_t>(3750 + i * 25);      // 7.5 mA and up
        o.tx_power[i] = static_cast<uint16_t>(8000 - i * 100); // 0.8 mW and down
        o.rx_power[i] = static_cast<uint16_t>(7500 - i * 150); // 0.75 mW and down
    }
    o.temperature_limits = {75 * 256, 70 * 256, 0, -5 * 256};
    o.voltage_limits = {36300, 34650, 31350, 29700}; // 3.63 / 3.465 / 3.135 / 2.97 V
    o.bias_limits = {7500, 6000, 1000, 500};         // 15 / 12 / 2 / 1 mA
    o.tx_power_limits = {30000, 25000, 2000, 1000};  // 3 / 2.5 / 0.2 / 0.1 mW
    o.rx_power_limits = {30000, 25000, 500, 300};    // 3 / 2.5 / 0.05 / 0.03 mW
    return o;
}

} // namespace

uint64_t now_ns()
{
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

void default_diag_state(DeviceState &d, uint32_t logic_id)
{
    const uint64_t now = now_ns();
    d.duplex = 1;
    d.link_flaps = 0;
    d.link_change = now / 1000000000ull;
    d.stat_up_ns = kFreshUptimeNs;
    d.stat_stamp_ns = now;
    d.optical = default_optical(logic_id);
    d.pci_speed = 4;
    d.pci_width = 16;
}

void keep_diag_state(DeviceState &d, const DeviceState &old)
{
    // The counters keep what they counted and go on from the reset; the link came up afresh.
    d.duplex = old.duplex;
    d.stat_up_ns = old.stat_up_ns;
    d.optical = old.optical;
    d.pci_speed = old.pci_speed;
    d.pci_width = old.pci_width;
    d.peer_count = old.peer_count;
    memcpy(d.peers, old.peers, sizeof d.peers);
}

void advance_stats(DeviceState &d)
{
    const uint64_t now = now_ns();
    if (d.link != 0 && now > d.stat_stamp_ns)
        d.stat_up_ns += now - d.stat_stamp_ns;
    d.stat_stamp_ns = now;
}

void note_link_change(DeviceState &d, uint32_t up)
{
    advance_stats(d);
    if ((d.link != 0) == (up != 0))
        return;
    if (up == 0)
        ++d.link_flaps;
    d.link_change = d.stat_stamp_ns / 1000000000ull;
}

PingPeer *find_peer(DeviceState &d, uint32_t ip)
{
    for (uint32_t i = 0; i < d.peer_count && i < kMaxPeers; ++i) {
        if (d.peers[i].ip == ip)
            return &d.peers[i];
    }
    return nullptr;
}

} // namespace kopa_emu
