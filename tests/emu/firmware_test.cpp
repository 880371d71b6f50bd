// Tests of the emulated device state: ids, gateway groups, routes, stored settings, concurrency.
#include "tests/emu/emu_fixture.hpp"

#include <arpa/inet.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "emu/state.hpp"

class EmuFirmwareTest : public EmuHostTest
{
  protected:
    static uint32_t ip(const char *text)
    {
        uint32_t be = 0;
        inet_pton(AF_INET, text, &be);
        return be;
    }

    static int32_t set_gateway(uint32_t logic_id, const char *gw)
    {
        return send_record(logic_id, KOPA_OP_set_default_gateway_address,
                           kopa_gateway_record{0, ip(gw), 0})
            .result;
    }

    static int32_t del_gateway(uint32_t logic_id, const char *gw)
    {
        return send_record(logic_id, KOPA_OP_del_default_gateway_address,
                           kopa_gateway_record{0, ip(gw), 0})
            .result;
    }

    /// "a.b.c.d@phy" of the group's gateway, or the refusal as a number.
    static std::string get_gateway(uint32_t logic_id)
    {
        CommandResult r =
            send_command(logic_id, KOPA_OP_get_default_gateway_address, nullptr, 0, 12);
        if (r.result != 0)
            return std::to_string(r.result);
        kopa_gateway_record rec{};
        EXPECT_EQ(r.out.size(), sizeof rec);
        memcpy(&rec, r.out.data(), sizeof rec);
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &rec.gateway, text, sizeof text);
        return std::string(text) + "@" + std::to_string(rec.port);
    }

    static int32_t route(uint32_t opcode, uint32_t logic_id, const char *dst, const char *mask,
                         const char *gw)
    {
        kopa_route_record rec{ip(dst), ip(mask), ip(gw)};
        return send_record(logic_id, opcode, rec, 4).result;
    }

    static std::string route_text(uint32_t logic_id)
    {
        CommandResult r = send_command(logic_id, KOPA_OP_get_route_table, nullptr, 0, 386000);
        return r.out.empty() ? "" : std::string(reinterpret_cast<const char *>(r.out.data()));
    }
};

TEST_F(EmuFirmwareTest, DeviceIdsFollowPresenceRangeAndPhysicalIds)
{
    init({6, false, {0, 1, 2, 3, 8, 9}});
    {
        kopa_emu::Session s;
        s.host().dev[2].present = 0;
        s.host().dev[1].health = KOPA_HEALTH_GONE;
        s.mark_host_dirty();
    }
    int count = 0;
    ASSERT_EQ(kopa_get_device_count(&count), 0);
    EXPECT_EQ(count, 5);
    int ids[5] = {};
    ASSERT_EQ(kopa_list_device(ids, 5), 0);
    EXPECT_EQ(std::vector<int>(ids, ids + 5), (std::vector<int>{0, 1, 3, 4, 5}));

    unsigned v = 0;
    EXPECT_EQ(kopa_get_logicid_from_phyid(9, &v), 0);
    EXPECT_EQ(v, 5u);
    EXPECT_EQ(kopa_get_logicid_from_phyid(4, &v), -19);
    EXPECT_EQ(kopa_get_logicid_from_phyid(2, &v), -19); // its device is gone
    EXPECT_EQ(kopa_get_phyid_from_logicid(4, &v), 0);
    EXPECT_EQ(v, 8u);
    EXPECT_EQ(kopa_get_device_health(1, &v), 0);
    EXPECT_EQ(v, KOPA_HEALTH_GONE);
    EXPECT_EQ(kopa_get_board_id(2, &v), -19);
    EXPECT_EQ(kopa_get_network_health(16, &v), -22);
    kopa_ip_record rec{};
    EXPECT_EQ(kopa_get_device_ip_address(0, 2, 0, &rec), -22);
    ASSERT_EQ(kopa_get_device_ip_address(3, KOPA_PORT_TYPE_VNIC, 0, &rec), 0);
    EXPECT_EQ(rec.address, ip("192.168.1.202"));
    const kopa_ip_record roce{ip("10.0.0.2"), ip("255.255.255.0")};
    ASSERT_EQ(kopa_set_device_ip_address(3, KOPA_PORT_TYPE_ROCE, 0, &roce), 0);
    ASSERT_EQ(kopa_get_device_ip_address(3, KOPA_PORT_TYPE_ROCE, 0, &rec), 0);
    EXPECT_EQ(rec.address, roce.address);
    EXPECT_EQ(rec.netmask, roce.netmask);

    // A directory nobody initialised is a host without devices.
    setenv("KOPA_EMU_DIR", (dir_ + "/nowhere").c_str(), 1);
    EXPECT_EQ(kopa_get_device_count(&count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(kopa_get_device_health(0, &v), -19);
}

TEST_F(EmuFirmwareTest, GatewayIsOnePerGroupNewestAnswers)
{
    init({8, false, {0, 1, 2, 3, 8, 9, 10, 11}});
    EXPECT_EQ(get_gateway(2), "-2");
    ASSERT_EQ(set_gateway(0, "10.0.0.1"), 0);
    EXPECT_EQ(get_gateway(3), "10.0.0.1@0");
    EXPECT_EQ(get_gateway(4), "-2"); // the other group holds none

    // Moving the gateway: set on the new device, then delete on the old one.
    ASSERT_EQ(set_gateway(1, "10.0.0.9"), 0);
    EXPECT_EQ(get_gateway(0), "10.0.0.9@1");
    EXPECT_EQ(del_gateway(0, "10.0.0.9"), 0); // device 0 holds another one: nothing changes
    EXPECT_EQ(get_gateway(2), "10.0.0.9@1");
    EXPECT_EQ(del_gateway(0, "10.0.0.1"), 0);
    EXPECT_EQ(del_gateway(0, "10.0.0.1"), 0); // already gone: still success
    EXPECT_EQ(get_gateway(3), "10.0.0.9@1");
    EXPECT_EQ(del_gateway(1, "10.0.0.9"), 0);
    EXPECT_EQ(get_gateway(0), "-2");

    // The port names the holder's physical id.
    ASSERT_EQ(set_gateway(5, "20.0.0.1"), 0);
    EXPECT_EQ(get_gateway(7), "20.0.0.1@9");

    // On PCIe cards each device is its own group.
    init({4, true, {}});
    ASSERT_EQ(set_gateway(0, "10.0.0.1"), 0);
    EXPECT_EQ(get_gateway(0), "10.0.0.1@0");
    EXPECT_EQ(get_gateway(1), "-2");
}

TEST_F(EmuFirmwareTest, RoutesAreKeyedByDestinationAndNetmask)
{
    EXPECT_EQ(route_text(0), "Route table is empty.\n");
    ASSERT_EQ(route(KOPA_OP_add_route_table, 0, "10.1.0.0", "255.255.0.0", "10.0.0.1"), 0);
    ASSERT_EQ(route(KOPA_OP_add_route_table, 0, "10.1.0.0", "255.255.0.0", "10.0.0.7"), 0);
    ASSERT_EQ(route(KOPA_OP_add_route_table, 0, "10.1.0.0", "255.255.255.0", "10.0.0.1"), 0);
    EXPECT_EQ(route_text(0), "Destination     Netmask         Gateway\n"
                             "10.1.0.0        255.255.0.0     10.0.0.7\n"
                             "10.1.0.0        255.255.255.0   10.0.0.1\n");
    EXPECT_EQ(route(KOPA_OP_del_route_table, 0, "10.2.0.0", "255.255.0.0", "0.0.0.0"),
              KOPA_RESULT_NOENT);
    EXPECT_EQ(route(KOPA_OP_del_route_table, 0, "10.1.0.0", "255.255.255.0", "0.0.0.0"), 0);

    for (int i = 1; i < 32; ++i) {
        std::string dst = "10.9." + std::to_string(i) + ".0";
        ASSERT_EQ(route(KOPA_OP_add_route_table, 0, dst.c_str(), "255.255.255.0", "10.0.0.1"), 0)
            << i;
    }
    EXPECT_EQ(route(KOPA_OP_add_route_table, 0, "10.8.0.0", "255.255.0.0", "10.0.0.1"),
              KOPA_RESULT_ROUTE_FULL);
    EXPECT_EQ(route(KOPA_OP_add_route_table, 0, "10.1.0.0", "255.255.0.0", "10.0.0.2"),
              0); // replace fits
    EXPECT_EQ(route_text(1), "Route table is empty.\n");
}

TEST_F(EmuFirmwareTest, SetsAreReadBackAndOutOfRangeValuesRefused)
{
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    const uint8_t multicast[6] = {0x01, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(send_command(1, KOPA_OP_set_mac_address, mac, 6, 0).result, 0);
    EXPECT_EQ(send_command(1, KOPA_OP_set_mac_address, multicast, 6, 0).result, -22);
    EXPECT_EQ(send_command(1, KOPA_OP_get_mac_address, nullptr, 0, 6).out,
              std::vector<uint8_t>(mac, mac + 6));

    EXPECT_EQ(send_record(1, KOPA_OP_set_mtu, kopa_mtu_record{0, 9000}).result, 0);
    EXPECT_EQ(send_record(1, KOPA_OP_set_mtu, kopa_mtu_record{0, 67}).result, -22);
    kopa_mtu_record mtu{};
    memcpy(&mtu, send_command(1, KOPA_OP_get_mtu, nullptr, 0, 5).out.data(), sizeof mtu);
    const uint32_t mtu_value = mtu.mtu; // packed field: copy before binding a reference
    EXPECT_EQ(mtu_value, 9000u);

    EXPECT_EQ(send_record(1, KOPA_OP_set_roce_port, kopa_roce_port_record{0, 4096}).result, -22);
    EXPECT_EQ(send_record(1, KOPA_OP_set_roce_port, kopa_roce_port_record{0, 5000}).result, 0);
    kopa_roce_port_record port{};
    memcpy(&port, send_command(1, KOPA_OP_get_roce_port, nullptr, 0, 6).out.data(), sizeof port);
    const uint32_t udp_port = port.udp_port;
    EXPECT_EQ(udp_port, 5000u);

    EXPECT_EQ(send_record(1, KOPA_OP_set_netdev_link, kopa_link_set_record{0, 0, 0}).result, 0);
    EXPECT_EQ(send_command(1, KOPA_OP_get_netdev_link, nullptr, 0, 4).out,
              std::vector<uint8_t>(4, 0));

    EXPECT_EQ(send_record(1, KOPA_OP_set_dscp_map, kopa_dscp_map_set{46, 5, {}}).result, 0);
    std::vector<uint8_t> map = send_command(1, KOPA_OP_get_dscp_map, nullptr, 0, 64).out;
    ASSERT_EQ(map.size(), 64u);
    EXPECT_EQ(map[46], 5);
    EXPECT_EQ(map[47], 47 / 8);

    // Another device keeps its defaults.
    EXPECT_EQ(send_command(0, KOPA_OP_get_mac_address, nullptr, 0, 6).out,
              (std::vector<uint8_t>{0x00, 0xe0, 0xfc, 0x00, 0x00, 0x00}));
}

TEST_F(EmuFirmwareTest, ConcurrentProcessesLoseNoUpdates)
{
    ASSERT_EQ(kopa_emu::set_journal(dir_, true), 0);
    constexpr int kRounds = 200;
    // Both processes rewrite the same device's route table (and each its own MTU) 200 times;
    // an unlocked read-modify-write would drop routes or leave stale gateways.
    auto work = [](uint32_t who) {
        for (int i = 0; i < kRounds; ++i) {
            std::string dst = "10." + std::to_string(who) + "." + std::to_string(i % 16) + ".0";
            std::string gw =
                "10.0." + std::to_string(who) + "." + std::to_string(i + 1 > 254 ? 254 : i + 1);
            if (route(KOPA_OP_add_route_table, 0, dst.c_str(), "255.255.255.0", gw.c_str()) != 0)
                return 1;
            if (send_record(who, KOPA_OP_set_mtu, kopa_mtu_record{0, 1000u + i}).result != 0)
                return 1;
        }
        return 0;
    };
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        _exit(work(2));
    EXPECT_EQ(work(1), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    kopa_emu::Session s;
    const kopa_emu::DeviceState *d0 = s.device(0);
    ASSERT_EQ(d0->route_count, 32u);
    for (uint32_t i = 0; i < d0->route_count; ++i) {
        const kopa_route_record &r = d0->routes[i];
        const uint32_t who = (ntohl(r.destination) >> 16) & 0xFF;
        const uint32_t k = (ntohl(r.destination) >> 8) & 0xFF;
        uint32_t final_round = 0; // the last round that wrote destination k
        for (uint32_t round = 0; round < kRounds; ++round) {
            if (round % 16 == k)
                final_round = round;
        }
        EXPECT_EQ(
            r.gateway,
            ip(("10.0." + std::to_string(who) + "." + std::to_string(final_round + 1)).c_str()));
    }
    EXPECT_EQ(s.device(1)->mtu, 1000u + kRounds - 1);
    EXPECT_EQ(s.device(2)->mtu, 1000u + kRounds - 1);
    EXPECT_EQ(kopa_emu::read_journal(dir_).size(), 2u * 2u * kRounds);
}

TEST_F(EmuFirmwareTest, TextsCarryTheControlCharactersTheyWereGiven)
{
    // Escapes for what a misbehaving firmware may put in its texts: ESC sequences, carriage
    // returns, backspaces; an unknown escape stays as written.
    ASSERT_EQ(emu({"set", "0", "lldp", R"(Port\e[31m\r\bX\x7f\t\\n\q)"}).status, 0);
    const std::string lldp = "Port\x1b[31m\r\bX\x7f\t\\n\\q";
    CommandResult r = send_command(0, KOPA_OP_lldp_get_neighbor_info, nullptr, 0, 2000);
    std::vector<uint8_t> want(lldp.begin(), lldp.end());
    want.push_back(0);
    EXPECT_EQ(r.out, want);

    ASSERT_EQ(emu({"set", "0", "firmware", R"(7.1\r\n\e[2J)"}).status, 0);
    r = send_command(0, KOPA_OP_get_firmware_version, nullptr, 0, 128);
    ASSERT_FALSE(r.out.empty());
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(r.out.data())), "7.1\r\n\x1b[2J");

    // A zero byte would end the text early: refused, the text kept.
    EXPECT_EQ(emu({"set", "0", "firmware", R"(7\x00.1)"}).status, 2);
    EXPECT_EQ(emu({"get", "0", "firmware"}).out, "7.1\r\n\x1b[2J\n");
}
