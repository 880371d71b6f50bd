// Tests of the emulated ARP table, policy rules and routes, generic settings, FEC, gratuitous ARP
// and of `kopa-emu wipe`.
#include "tests/emu/emu_fixture.hpp"

#include <arpa/inet.h>

#include <string>
#include <vector>

#include "emu/state.hpp"

namespace
{

uint32_t ip(const char *text)
{
    uint32_t be = 0;
    inet_pton(AF_INET, text, &be);
    return be;
}

kopa_arp_record arp(uint32_t dev, const char *addr, uint8_t last)
{
    return kopa_arp_record{dev, ip(addr), {0x00, 0x11, 0x22, 0x33, 0x44, last}, {}};
}

/// The records a table read answers within `capacity` records.
template <typename T> std::vector<T> table(uint32_t opcode, uint32_t capacity)
{
    CommandResult r =
        send_command(0, opcode, nullptr, 0, static_cast<uint32_t>(capacity * sizeof(T)));
    EXPECT_EQ(r.result, 0);
    std::vector<T> out(r.out.size() / sizeof(T));
    EXPECT_EQ(r.out.size(), out.size() * sizeof(T));
    if (!out.empty())
        memcpy(out.data(), r.out.data(), r.out.size());
    return out;
}

class EmuPortStateTest : public EmuHostTest
{
  protected:
    std::string field(uint32_t dev, const std::string &name) const
    {
        return emu({"get", std::to_string(dev), name}).out;
    }
};

TEST_F(EmuPortStateTest, ArpEntriesAreKeyedByPortAndAddress)
{
    EXPECT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(0, "10.0.0.5", 0xaa)).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(0, "10.0.0.5", 0xbb)).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(1, "10.0.0.5", 0xcc)).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(8, "10.0.0.6", 0xcc)).result, -22);
    EXPECT_EQ(field(0, "arp"),
              "eth0 10.0.0.5 00:11:22:33:44:bb\neth1 10.0.0.5 00:11:22:33:44:cc\n");
    EXPECT_EQ(send_record(0, KOPA_OP_del_arp_entry, arp(2, "10.0.0.5", 0)).result, -2);
    EXPECT_EQ(send_record(0, KOPA_OP_del_arp_entry, arp(0, "10.0.0.5", 0)).result, 0);
    std::vector<kopa_arp_record> left = table<kopa_arp_record>(KOPA_OP_get_arp_table, KOPA_ARP_MAX);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].dev, 1u);

    for (uint32_t i = 1; i < KOPA_ARP_MAX; ++i) {
        const std::string addr = "10.1.0." + std::to_string(i);
        ASSERT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(0, addr.c_str(), 1)).result, 0) << i;
    }
    EXPECT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(0, "10.2.0.1", 1)).result, 5000);
    EXPECT_EQ(send_record(0, KOPA_OP_add_arp_entry, arp(1, "10.0.0.5", 2)).result, 0);
    // A reader with room for 3 records gets 3 whole ones.
    EXPECT_EQ(table<kopa_arp_record>(KOPA_OP_get_arp_table, 3).size(), 3u);
    EXPECT_EQ(field(1, "arp"), "\n");
}

TEST_F(EmuPortStateTest, PolicyListsReplaceEqualEntriesAndRefuseOutOfRange)
{
    const kopa_ip_rule_record rule{0, ip("10.1.0.0"), 16, 100};
    EXPECT_EQ(send_record(0, KOPA_OP_add_ip_rule, rule).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_ip_rule, rule).result, 0);
    EXPECT_EQ(
        send_record(0, KOPA_OP_add_ip_rule, kopa_ip_rule_record{1, ip("10.2.0.0"), 24, 7}).result,
        0);
    for (const kopa_ip_rule_record &bad :
         {kopa_ip_rule_record{2, 0, 0, 0}, kopa_ip_rule_record{0, 0, 33, 0},
          kopa_ip_rule_record{0, 0, 0, 256}})
        EXPECT_EQ(send_record(0, KOPA_OP_add_ip_rule, bad).result, -22);
    EXPECT_EQ(field(0, "rules"), "from 10.1.0.0/16 table 100\nto 10.2.0.0/24 table 7\n");

    const kopa_ip_route_record route{ip("20.0.0.0"), 8, ip("10.1.0.1"), 0, 100};
    kopa_ip_route_record moved = route;
    moved.via = ip("10.1.0.2");
    EXPECT_EQ(send_record(0, KOPA_OP_add_ip_route, route).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_ip_route, moved).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_ip_route, kopa_ip_route_record{0, 0, 0, 8, 0}).result,
              -22);
    EXPECT_EQ(field(0, "ip-routes"), "20.0.0.0/8 via 10.1.0.2 dev eth0 table 100\n");
    EXPECT_EQ(
        send_record(0, KOPA_OP_del_ip_rule, kopa_ip_rule_record{0, ip("10.1.0.0"), 16, 101}).result,
        -2);
    EXPECT_EQ(send_record(0, KOPA_OP_del_ip_route, route).result, 0); // the gateway is no key
    EXPECT_EQ(send_record(0, KOPA_OP_del_ip_route, route).result, -2);

    for (uint32_t i = 2; i < KOPA_POLICY_MAX; ++i) // two rules are in place
        ASSERT_EQ(send_record(0, KOPA_OP_add_ip_rule, kopa_ip_rule_record{0, 0, i, 1}).result, 0);
    EXPECT_EQ(send_record(0, KOPA_OP_add_ip_rule, kopa_ip_rule_record{0, 0, 0, 2}).result, 5000);
    EXPECT_EQ(table<kopa_ip_rule_record>(KOPA_OP_get_ip_rules, KOPA_POLICY_MAX).size(),
              KOPA_POLICY_MAX);
}

TEST_F(EmuPortStateTest, SettingsAreAnsweredAsSetAndOutOfRangeRefused)
{
    struct Case {
        uint32_t opcode;
        std::vector<uint8_t> payload;
        int32_t result;
    };
    auto bytes = [](const auto &rec) {
        const auto *p = reinterpret_cast<const uint8_t *>(&rec);
        return std::vector<uint8_t>(p, p + sizeof rec);
    };
    kopa_garp_info garp{};
    garp.period = 30;
    garp.status = 1;
    kopa_garp_info long_period = garp;
    long_period.period = 3601;
    const Case cases[] = {
        {KOPA_OP_set_generic_info, bytes(kopa_generic_set{1, 12345}), -22},
        {KOPA_OP_set_generic_info, bytes(kopa_generic_set{2, 100000}), -22},
        {KOPA_OP_set_generic_info, bytes(kopa_u32_value{1}), -22},
        {KOPA_OP_set_generic_info, bytes(kopa_generic_set{1, 100000}), 0},
        {KOPA_OP_set_optical_auto_adapt, bytes(kopa_auto_adapt_set{2}), -22},
        {KOPA_OP_set_optical_auto_adapt, bytes(kopa_auto_adapt_set{1}), 0},
        {KOPA_OP_set_fec_info, {3}, -22},
        {KOPA_OP_set_fec_info, {2}, 0},
        {KOPA_OP_set_gratuitous_arp_info, bytes(long_period), -22},
        {KOPA_OP_set_gratuitous_arp_info, bytes(kopa_u32_value{30}), -22},
        {KOPA_OP_set_gratuitous_arp_info, bytes(garp), 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.opcode);
        EXPECT_EQ(
            send_command(0, c.opcode, c.payload.data(), static_cast<uint32_t>(c.payload.size()), 0)
                .result,
            c.result);
    }
    EXPECT_EQ(send_command(0, KOPA_OP_get_generic_info, nullptr, 0, 8).out,
              bytes(kopa_generic_info{100000, 1}));
    EXPECT_EQ(send_command(0, KOPA_OP_get_eth_speed, nullptr, 0, 4).out,
              bytes(kopa_u32_value{100000}));
    EXPECT_EQ(send_command(1, KOPA_OP_get_eth_speed, nullptr, 0, 4).out,
              bytes(kopa_u32_value{200000}));
    EXPECT_EQ(send_command(0, KOPA_OP_get_fec_info, nullptr, 0, 4).out, bytes(kopa_u32_value{2}));

    EXPECT_EQ(field(0, "garp-period") + field(0, "garp-status"), "30\n1\n");
}

TEST_F(EmuPortStateTest, WipeResetsSettingsButKeepsIdentityAndHostLink)
{
    init({3, false, {0, 1, 4}});
    const std::string fresh = emu({"show", "1"}).out;
    const char *const sets[][2] = {
        {"roce-ip", "10.0.0.4"}, {"gateway", "10.0.0.1"},      {"mtu", "9000"},
        {"udp-port", "5000"},    {"mac", "00:11:22:33:44:55"}, {"cfg-status", "3"},
        {"speed", "100000"},     {"auto-adapt", "1"},          {"fec", "0"},
        {"garp-period", "5"},    {"garp-status", "1"},         {"link", "0"},
        {"health", "1"},         {"tls-alarm", "90"},          {"lldp", "kept"}};
    for (const auto &s : sets) {
        for (const char *dev : {"0", "1"})
            ASSERT_EQ(emu({"set", dev, s[0], s[1]}).status, 0) << s[0];
    }
    for (uint32_t dev : {0u, 1u}) {
        ASSERT_EQ(send_record(dev, KOPA_OP_add_arp_entry, arp(0, "10.0.0.5", 1)).result, 0);
        ASSERT_EQ(send_record(dev, KOPA_OP_add_ip_rule, kopa_ip_rule_record{0, 0, 0, 1}).result, 0);
        ASSERT_EQ(
            send_record(dev, KOPA_OP_add_ip_route, kopa_ip_route_record{0, 0, 0, 0, 1}).result, 0);
        ASSERT_EQ(send_record(dev, KOPA_OP_add_route_table,
                              kopa_route_record{ip("20.0.0.0"), ip("255.0.0.0"), ip("10.0.0.1")}, 4)
                      .result,
                  0);
        ASSERT_EQ(send_record(dev, KOPA_OP_set_dscp_map, kopa_dscp_map_set{46, 5, {}}).result, 0);
    }
    const std::string dev0 = emu({"show", "0"}).out;

    ProcResult r = emu({"wipe", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(emu({"show", "0"}).out, dev0);
    // What stays: identity and health (host table), the LLDP text, the TLS alarm.
    std::string want = fresh;
    want.replace(want.find("health 0"), 8, "health 1");
    want.replace(want.find("tls alarm days  30"), 18, "tls alarm days  90");
    EXPECT_EQ(emu({"show", "1"}).out, want);
    EXPECT_EQ(field(1, "lldp"), "kept\n");
    EXPECT_EQ(send_command(1, KOPA_OP_get_dscp_map, nullptr, 0, 64).out[46], 46 / 8);

    EXPECT_EQ(emu({"wipe", "--all"}).status, 0);
    EXPECT_EQ(field(0, "arp") + field(0, "mtu") + field(0, "phy-id"), "\n1500\n0\n");
    EXPECT_EQ(field(2, "phy-id"), "4\n");
    for (const char *bad : {"3", "16", "x"})
        EXPECT_EQ(emu({"wipe", bad}).status, 2) << bad;
    EXPECT_EQ(emu({"wipe"}).status, 2);
}

} // namespace
