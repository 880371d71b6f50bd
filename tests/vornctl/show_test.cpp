// vornctl show: the JSON of every item state validates against docs/vornctl.schema.json and
// says what the file and the devices hold; the table and -i; the command lines and their codes.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/vornctl/ctl_support.hpp"

namespace
{

using Json = nlohmann::json;

class CtlShowTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "6"}};

    Json show_json(std::vector<std::string> args = {}) const
    {
        args.insert(args.begin(), {"show", "--json"});
        const ProcResult r = run_ctl(sb_, args);
        EXPECT_EQ(r.status, 0) << r.err;
        return Json::parse(r.out, nullptr, false);
    }

    // Device 0 agrees and drifts, device 1's values are unusable, device 2 is not read.
    void prepare_every_state() const
    {
        set_on(sb_, 0, {"-ip", "-s", "address", "10.0.0.2", "netmask", "255.255.255.0"});
        set_on(sb_, 0, {"-gateway", "-s", "gateway", "10.0.0.1"});
        set_on(sb_, 0, {"-mtu", "-s", "size", "9000"});
        set_on(
            sb_, 0,
            {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.1"});
        set_on(sb_, 0, {"-arp", "-a", "dev", "eth0", "ip", "10.0.0.9", "mac", "00:11:22:33:44:99"});
        set_on(sb_, 0, {"-dscp_to_tc", "-s", "dscp", "46", "tc", "3"});
        set_on(sb_, 2, {"-mtu", "-s", "size", "4000"});
        sb_.set_conf(sb_.conf() + "mtu_1=12345\naddress_1=10.1.0.2\ntc_bw_1=100,0,0,0,0,0,0,0\n" +
                     "ip_rule_0=dir from ip 10.1.0.0 ip_mask 16 table 100\n" +
                     "ip_route_1=ip 30.0.0.0 ip_mask 8 via 10.1.0.1 dev eth9 table 100\n");
        ASSERT_EQ(sb_.emu({"set", "0", "mtu", "1500"}).status, 0);
        ASSERT_EQ(sb_.emu({"set", "0", "routes", "none"}).status, 0);
        ASSERT_EQ(sb_.emu({"set", "2", "health", "2"}).status, 0);
    }
};

TEST_F(CtlShowTest, JsonOfEveryStateValidatesAgainstTheSchema)
{
    prepare_every_state();
    const ProcResult r = run_ctl(sb_, {"show", "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    SKIP_WITHOUT_PYTHON_MODULE("jsonschema", "python3-jsonschema");
    const std::string doc = sb_.dir() + "/show.json";
    ASSERT_TRUE(write_file(doc, r.out));
    const ProcResult check = run_python(
        "import json, sys, jsonschema\n"
        "schema = json.load(open(sys.argv[1]))\n"
        "jsonschema.Draft202012Validator.check_schema(schema)\n"
        "jsonschema.Draft202012Validator(schema).validate(json.load(open(sys.argv[2])))\n"
        "print('valid')\n",
        {VORN_SCHEMA_PATH, doc});
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_EQ(check.out, "valid\n");
}

TEST_F(CtlShowTest, JsonSaysWhatTheFileAndTheDevicesHold)
{
    prepare_every_state();
    const Json doc = show_json();
    ASSERT_FALSE(doc.is_discarded());
    EXPECT_EQ(doc["schema_version"], 1);
    ASSERT_EQ(doc["devices"].size(), 6u);
    const Json &d0 = doc["devices"][0]["items"];
    EXPECT_EQ(d0["address"]["state"], "agree");
    EXPECT_EQ(d0["gateway"]["holder"], 0);
    EXPECT_EQ(d0["mtu"]["saved"], "9000");
    EXPECT_EQ(d0["mtu"]["live"], "1500");
    EXPECT_EQ(d0["mtu"]["state"], "drift");
    EXPECT_EQ(d0["dscp_tc"]["state"], "agree");
    EXPECT_EQ(d0["routes"]["state"], "drift");
    EXPECT_EQ(d0["routes"]["live"], Json::array());
    EXPECT_EQ(d0["arp"]["saved"][0], "dev eth0 ip 10.0.0.9 mac 00:11:22:33:44:99");
    EXPECT_EQ(d0["ip_rules"]["state"], "drift") << "written into the file, never replayed";
    EXPECT_EQ(d0["netdetect"]["state"], "not-saved");
    EXPECT_EQ(doc["devices"][0]["recovery_status"]["text"], "NONE");
    EXPECT_EQ(doc["devices"][0]["tls"]["state"], "no-certificates");

    const Json &d1 = doc["devices"][1]["items"];
    EXPECT_EQ(d1["mtu"]["state"], "unusable") << "5 characters do not fit the 5-byte buffer";
    EXPECT_EQ(d1["mtu"]["saved"], nullptr);
    EXPECT_EQ(d1["address"]["state"], "unusable") << "an address without its netmask";
    EXPECT_EQ(d1["tc_bw"]["state"], "unusable");
    EXPECT_EQ(d1["ip_routes"]["state"], "unusable") << "eth9 is refused by the checkers";

    const Json &d2 = doc["devices"][2];
    EXPECT_EQ(d2["readable"], false);
    EXPECT_EQ(d2["health"]["text"], "major alarm");
    EXPECT_EQ(d2["items"]["mtu"]["state"], "unknown");
    EXPECT_EQ(d2["items"]["mtu"]["live"], nullptr);
}

TEST_F(CtlShowTest, TableOfOneDevice)
{
    set_on(sb_, 4, {"-mtu", "-s", "size", "9000"});
    const ProcResult r = run_ctl(sb_, {"show", "-i", "4"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("dev 4 (logic 4): health ok, link up"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  mtu              9000"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("dev 3 "), std::string::npos);
    const Json one = show_json({"-i", "4"});
    ASSERT_EQ(one["devices"].size(), 1u);
    EXPECT_EQ(one["devices"][0]["phy_id"], 4);
}

TEST_F(CtlShowTest, CommandLinesAndTheirCodes)
{
    struct Case {
        std::vector<std::string> args;
        int status;
    };
    const Case cases[] = {
        {{"-h"}, 0},
        {{}, 2},
        {{"status"}, 2},
        {{"show", "-i", "9"}, 2},
        {{"show", "-i", "x"}, 2},
        {{"show", "-i", "007"}, 2},
        {{"show", "-i"}, 2},
        {{"show", "--recover"}, 2},
        {{"show", "--json", "--json"}, 2},
        {{"verify", "-i", "1", "-i", "2"}, 2},
        {{"verify", "--json"}, 2},
        {{"lint", "-i", "1"}, 2},
        {{"metrics"}, 2},
        {{"metrics", "--output", ""}, 2},
    };
    for (const Case &c : cases) {
        const ProcResult r = run_ctl(sb_, c.args);
        std::string line;
        for (const auto &a : c.args)
            line += a + " ";
        EXPECT_EQ(r.status, c.status) << line << r.err;
        if (c.status == 2) {
            EXPECT_NE(r.err.find("vornctl: "), std::string::npos) << line;
        }
    }
}

} // namespace
