// vornctl apply: the least set of changes, made with the tool's commands and undone as a whole
// when a device refuses one of them (the devices and /etc/vorn.conf exactly as before), kept up
// to the failure with --no-rollback; a killed apply leaves the file old or new; removed items
// leave only their own saved lines; a gateway moved between devices goes back to its holder;
// documents that cannot be applied change nothing.
#include <signal.h>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <random>
#include <thread>

#include "tests/robust/saved_file.hpp"
#include "tests/vornctl/ctl_support.hpp"

namespace
{

// A document of desired settings: `items` is the JSON of each device's "items", by device.
std::string doc(const std::vector<std::pair<int, std::string>> &items)
{
    std::string out = R"({"schema": "vornctl-show", "schema_version": 2, "devices": [)";
    for (size_t i = 0; i < items.size(); ++i) {
        out += (i == 0 ? "" : ", ") + std::string(R"({"phy_id": )") +
               std::to_string(items[i].first) + R"(, "items": {)" + items[i].second + "}}";
    }
    return out + "]}";
}

// MTU 9000 and UDP port 5000 on all eight devices, and a MAC address on device 5, between them.
std::string fleet_doc()
{
    std::vector<std::pair<int, std::string>> items;
    for (int d = 0; d < 8; ++d) {
        std::string of = R"("mtu": {"saved": 9000}, "roce_port": {"saved": 5000})";
        if (d == 5)
            of += R"(, "mac_addr": {"saved": "00:11:22:33:44:55"})";
        items.emplace_back(d, of);
    }
    return doc(items);
}

class CtlApplyTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "8"}};
    std::string file_;

    void SetUp() override
    {
        // Something saved and set before: device 1's MTU, a line of device 3 and of device 10.
        set_on(sb_, 1, {"-mtu", "-s", "size", "4200"});
        sb_.set_conf(sb_.conf() + "roce_port_3=4792\nmtu_10=1500\n");
        file_ = sb_.root() + "/desired.json";
    }

    ProcResult apply(const std::string &document, std::vector<std::string> flags = {})
    {
        EXPECT_TRUE(write_file(file_, document));
        flags.insert(flags.begin(), {"apply", file_});
        return run_ctl(sb_, flags);
    }

    // Every device as the emulator shows it, and the saved file.
    std::string host() const { return sb_.emu({"show"}).out + "----\n" + sb_.conf(); }
    std::string get(int id, const char *field) const
    {
        return sb_.emu({"get", std::to_string(id), field}).out;
    }
};

TEST_F(CtlApplyTest, ARefusalInTheMiddleUndoesEveryChangeOrKeepsThemWithNoRollback)
{
    const std::string before = host();
    ASSERT_EQ(sb_.emu({"fault", "add", "--result", "-1", "--op", "set_mac_address"}).status, 0);

    ProcResult r = apply(fleet_doc());
    EXPECT_EQ(r.status, 4);
    EXPECT_NE(r.err.find("vornctl apply: dev 5 mac_addr failed (0x4001): every change before it "
                         "is undone\n"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.out.find("dev 0 mtu: saved none, device 1500 -> 9000: undone\n"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("dev 7 roce_port: saved none, device 4791 -> 5000: not-run\n"),
              std::string::npos);
    EXPECT_EQ(host(), before) << "the devices or the file changed";
    EXPECT_NE(sb_.run_log().find("parse [6]th argv[9000]"), std::string::npos)
        << "each command is audited as a run of the tool";

    r = apply(fleet_doc(), {"--no-rollback", "--json"});
    EXPECT_EQ(r.status, 4);
    const auto report = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_TRUE(report.is_object()) << r.out;
    EXPECT_TRUE(report["failed"]);
    EXPECT_FALSE(report["rolled_back"]);
    for (const auto &c : report["changes"]) {
        const int dev = c["phy_id"];
        const std::string item = c["item"];
        const bool before_failure = dev < 5 || (dev == 5 && item == "mtu");
        EXPECT_EQ(c["outcome"], before_failure                   ? "changed"
                                : dev == 5 && item == "mac_addr" ? "failed"
                                                                 : "not-run")
            << dev << " " << item;
    }
    for (int d = 0; d < 8; ++d)
        EXPECT_EQ(get(d, "mtu"), d <= 5 ? "9000\n" : d == 1 ? "4200\n" : "1500\n") << d;
    EXPECT_NE(sb_.conf().find("mtu_5=9000\n"), std::string::npos);
    EXPECT_EQ(sb_.conf().find("roce_port_5="), std::string::npos);
    EXPECT_EQ(sb_.conf().find("mtu_6="), std::string::npos);
}

TEST_F(CtlApplyTest, AGatewayMovedInAFailedApplyGoesBackToItsHolderOnly)
{
    set_on(sb_, 0, {"-ip", "-s", "address", "10.0.0.2", "netmask", "255.255.255.0"});
    set_on(sb_, 1, {"-ip", "-s", "address", "10.0.0.3", "netmask", "255.255.255.0"});
    set_on(sb_, 0, {"-gateway", "-s", "gateway", "10.0.0.254"});
    const std::string before = host();
    ASSERT_EQ(sb_.emu({"fault", "add", "--result", "-1", "--op", "set_mac_address"}).status, 0);

    // Device 1 takes the group's gateway from device 0, then device 5 refuses its MAC address.
    const ProcResult r = apply(doc({{1, R"("gateway": {"saved": "10.0.0.253"})"},
                                    {5, R"("mac_addr": {"saved": "00:11:22:33:44:55"})"}}));
    EXPECT_EQ(r.status, 4) << r.err;
    EXPECT_NE(r.err.find("every change before it is undone"), std::string::npos) << r.err;
    EXPECT_EQ(host(), before) << "the gateway is not back on device 0 alone";
}

TEST_F(CtlApplyTest, AKilledApplyLeavesTheFileOldOrNew)
{
    const std::string old = sb_.conf();
    ASSERT_TRUE(write_file(file_, fleet_doc()));
    const std::vector<std::string> args = {"apply", file_};
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(run_ctl(sb_, args).status, 0);
    const long run_us = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::steady_clock::now() - start)
                            .count();
    const std::string expected = sb_.conf();
    ASSERT_NE(expected, old);

    const unsigned seed = std::random_device{}();
    std::mt19937 rng(seed);
    std::uniform_int_distribution<long> delay_us(0, run_us * 3 / 2);
    int old_left = 0, new_left = 0;
    for (int round = 0; round < 12; ++round) {
        ASSERT_EQ(sb_.emu({"init", "--devices", "8"}).status, 0);
        sb_.set_conf(old);
        const long delay = delay_us(rng);
        const pid_t pid = robust::start_tool(sb_, args, VORNCTL_BIN);
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(delay));
        (void)kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        const std::string now = sb_.conf();
        old_left += now == old;
        new_left += now == expected;
        ASSERT_TRUE(now == old || now == expected)
            << "killed after " << delay << " us (seed " << seed << "), the file:\n"
            << now;
    }
    // A run killed while it waits on a device: the devices may hold some of the changes, the
    // file holds none of them.
    ASSERT_EQ(sb_.emu({"init", "--devices", "8"}).status, 0);
    sb_.set_conf(old);
    ASSERT_EQ(sb_.emu({"fault", "add", "--delay-ms", "5000", "--op", "set_mac_address"}).status, 0);
    const pid_t pid = robust::start_tool(sb_, args, VORNCTL_BIN);
    for (int i = 0; i < 400 && get(4, "udp-port") != "5000\n"; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(get(4, "udp-port"), "5000\n");
    (void)kill(pid, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(sb_.conf(), old);
    std::cout << "killed applies: " << old_left << " left the old file, " << new_left
              << " the new one\n";
}

TEST_F(CtlApplyTest, OnlyWhatDiffersChangesAndRemovedItemsLeaveOnlyTheirOwnLines)
{
    const std::string document =
        doc({{1, R"("mtu": {"saved": 4200}, "roce_port": {"saved": 4791})"},
             {3, R"("roce_port": {"saved": "04792"}, "mtu": {"saved": 9000},
                    "routes": {"saved": [{"address": "20.0.0.0", "netmask": "255.0.0.0",
                                          "gateway": "10.3.0.1"}]},
                    "address": {"saved": "10.3.0.2"}, "netmask": {"saved": "255.255.255.0"})"}});
    ProcResult r = apply(document, {"--check"});
    ASSERT_EQ(r.status, 0) << r.err;
    // Device 1's MTU agrees; saved "04792" is 4792 but the device holds 4791.
    EXPECT_EQ(r.out,
              "dev 1 roce_port: saved none, device 4791 -> 4791\n"
              "    vorn_tool -i 1 -udp -s port 4791\n"
              "dev 3 address+netmask: saved none none, device 0.0.0.0 0.0.0.0 -> 10.3.0.2 "
              "255.255.255.0\n"
              "    vorn_tool -i 3 -ip -s address 10.3.0.2 netmask 255.255.255.0\n"
              "dev 3 mtu: saved none, device 1500 -> 9000\n"
              "    vorn_tool -i 3 -mtu -s size 9000\n"
              "dev 3 routes: saved none, device none -> address 20.0.0.0 netmask 255.0.0.0 "
              "gateway 10.3.0.1\n"
              "    vorn_tool -i 3 -route -a address 20.0.0.0 netmask 255.0.0.0 gateway 10.3.0.1\n"
              "dev 3 roce_port: saved 4792, device 4791 -> 04792\n"
              "    vorn_tool -i 3 -udp -s port 04792\n"
              "apply: 5 change(s) to make on 2 device(s)\n");
    EXPECT_EQ(get(3, "mtu"), "1500\n") << "--check changed a device";

    r = apply(document);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(get(3, "mtu"), "9000\n");
    r = apply(document);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "apply: nothing to change\n");
    // The whole host as show --json prints it applies as it is, and changes nothing.
    set_on(sb_, 3, {"-arp", "-a", "dev", "eth0", "ip", "10.3.0.9", "mac", "00:11:22:33:44:99"});
    set_on(sb_, 3, {"-dscp_to_tc", "-s", "dscp", "46", "tc", "3"});
    r = apply(run_ctl(sb_, {"show", "--json"}).out);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "apply: nothing to change\n");

    // MTU of device 1 and the routes of device 3 removed: the line mtu_10 stays, the device
    // keeps its MTU, the route leaves the device too.
    r = apply(doc({{1, R"("mtu": {"saved": null})"}, {3, R"("routes": {"saved": null})"}}));
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("dev 1 mtu: saved 4200 removed; the device keeps 4200 until a reset"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(sb_.conf().find("mtu_1="), std::string::npos);
    EXPECT_NE(sb_.conf().find("mtu_10=1500\n"), std::string::npos);
    EXPECT_EQ(sb_.conf().find("route_address_"), std::string::npos);
    EXPECT_EQ(get(1, "mtu"), "4200\n");
    EXPECT_EQ(sb_.tool({"-i", "3", "-route", "-g"}).out.find("20.0.0.0"), std::string::npos);
}

TEST_F(CtlApplyTest, DocumentsThatCannotBeAppliedChangeNothing)
{
    const struct {
        std::string document;
        const char *error;
    } cases[] = {
        {"{", "not a JSON document"},
        {R"({"schema": "vornctl-show", "schema_version": 1, "devices": []})",
         "not a vornctl-show document of schema version 2"},
        {doc({{0, R"("speed": {"saved": 1})"}}), "dev 0: no saved item speed"},
        {doc({{0, R"("mtu": 9000)"}}), "dev 0 mtu: is not an object with \"saved\""},
        {doc({{0, R"("mtu": {"saved": [9000]})"}}), "dev 0 mtu: saved is not number"},
        {doc({{0, R"("mtu": {"saved": "90 00"})"}}), "dev 0 mtu: saved is not number"},
        {doc({{0, R"("mtu": {"saved": 9000})"}, {0, ""}}), "device 0 is given twice"},
        {doc({{8, R"("mtu": {"saved": 9000})"}}), "no device has the physical id 8"},
        {doc({{0,
               R"("arp": {"saved": [{"dev": "eth0", "ip": "10.0.0.9", "mac": "00:11:22:33:44:99"}]})"}}),
         "dev 0 arp: apply does not change these entries"},
        {doc({{0, R"("address": {"saved": "10.0.0.2"})"}}),
         "dev 0 address: give netmask too (none is saved)"},
    };
    const std::string before = host();
    for (const auto &c : cases) {
        const ProcResult r = apply(c.document);
        EXPECT_EQ(r.status, 4) << c.document;
        EXPECT_NE(r.err.find(c.error), std::string::npos) << c.document << "\n" << r.err;
    }
    EXPECT_EQ(host(), before);
}

} // namespace
