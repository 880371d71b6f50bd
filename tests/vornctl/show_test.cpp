// vornctl show: the JSON documents of every item state validate against
// docs/vornctl.schema.json and say, typed, what the file and the devices hold; the table keeps
// its columns, the brief view; the command lines and their codes.
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
        set_on(sb_, 4, {"-ip", "-s", "address", "10.4.0.2", "netmask", "255.255.255.0"});
        set_on(sb_, 4, {"-gateway", "-s", "gateway", "10.4.0.1"});
        sb_.set_conf(sb_.conf() + "mtu_1=12345\naddress_1=10.1.0.2\ntc_bw_1=100,0,0,0,0,0,0,0\n" +
                     "bw_limit_1=12x\nmtu_9=9000\n" +
                     "ip_rule_0=dir from ip 10.1.0.0 ip_mask 16 table 100\n" +
                     "ip_route_1=ip 30.0.0.0 ip_mask 8 via 10.1.0.1 dev eth9 table 100\n");
        ASSERT_EQ(sb_.emu({"set", "0", "mtu", "1500"}).status, 0);
        ASSERT_EQ(sb_.emu({"set", "0", "routes", "none"}).status, 0);
        ASSERT_EQ(sb_.emu({"set", "2", "health", "2"}).status, 0);
        ASSERT_EQ(sb_.emu({"set", "4", "gateway", "none"}).status, 0);
    }
};

// show, verify and lint --json of a host in every state, each checked against the schema.
TEST_F(CtlShowTest, EveryDocumentValidatesAgainstTheSchema)
{
    prepare_every_state();
    struct Doc {
        std::vector<std::string> args;
        int status;
    };
    const Doc docs[] = {
        {{"show", "--json"}, 0}, {{"verify", "--json"}, 3}, {{"lint", "--json"}, 1}};
    std::vector<std::string> files = {VORN_SCHEMA_PATH};
    for (const Doc &d : docs) {
        const ProcResult r = run_ctl(sb_, d.args);
        ASSERT_EQ(r.status, d.status) << d.args[0] << ": " << r.err;
        const Json doc = Json::parse(r.out, nullptr, false);
        ASSERT_FALSE(doc.is_discarded()) << d.args[0];
        EXPECT_EQ(doc["schema"], "vornctl-" + d.args[0]);
        EXPECT_EQ(doc["schema_version"], 2);
        files.push_back(sb_.dir() + "/" + d.args[0] + ".json");
        ASSERT_TRUE(write_file(files.back(), r.out));
    }
    SKIP_WITHOUT_PYTHON_MODULE("jsonschema", "python3-jsonschema");
    const ProcResult check =
        run_python("import json, sys, jsonschema\n"
                   "schema = json.load(open(sys.argv[1]))\n"
                   "jsonschema.Draft202012Validator.check_schema(schema)\n"
                   "for doc in sys.argv[2:]:\n"
                   "    jsonschema.Draft202012Validator(schema).validate(json.load(open(doc)))\n"
                   "print('valid')\n",
                   files);
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_EQ(check.out, "valid\n");
}

TEST_F(CtlShowTest, JsonSaysWhatTheFileAndTheDevicesHoldTyped)
{
    prepare_every_state();
    const Json doc = show_json();
    ASSERT_FALSE(doc.is_discarded());
    ASSERT_EQ(doc["devices"].size(), 6u);
    const Json &d0 = doc["devices"][0]["items"];
    EXPECT_EQ(d0["address"]["state"], "agree");
    EXPECT_EQ(d0["gateway"]["holder"], 0);
    EXPECT_EQ(d0["mtu"]["saved"], 9000);
    EXPECT_EQ(d0["mtu"]["live"], 1500);
    EXPECT_EQ(d0["mtu"]["state"], "drift");
    EXPECT_EQ(d0["mtu"]["differences"], Json::parse(R"([{"saved":9000,"live":1500}])"));
    EXPECT_EQ(d0["dscp_tc"]["saved"], Json::parse(R"([{"dscp":46,"tc":3}])"));
    EXPECT_EQ(d0["dscp_tc"]["live"].size(), 64u);
    EXPECT_EQ(d0["dscp_tc"]["state"], "agree");
    EXPECT_EQ(d0["bitmap"]["live"], Json::parse("[0,0,0,0,0,0,0,0]"));
    EXPECT_EQ(d0["routes"]["state"], "drift");
    EXPECT_EQ(d0["routes"]["live"], Json::array());
    EXPECT_EQ(
        d0["routes"]["differences"],
        Json::parse(
            R"([{"saved":{"address":"20.0.0.0","netmask":"255.0.0.0","gateway":"10.0.0.1"},"live":null}])"));
    EXPECT_EQ(d0["arp"]["saved"][0],
              Json::parse(R"({"dev":"eth0","ip":"10.0.0.9","mac":"00:11:22:33:44:99"})"));
    EXPECT_EQ(d0["ip_rules"]["saved"][0],
              Json::parse(R"({"dir":"from","ip":"10.1.0.0","ip_mask":16,"table":100})"));
    EXPECT_EQ(d0["ip_rules"]["state"], "drift") << "written into the file, never replayed";
    EXPECT_EQ(d0["netdetect"]["state"], "not-saved");
    EXPECT_EQ(doc["devices"][0]["recovery_status"]["text"], "NONE");
    EXPECT_EQ(doc["devices"][0]["tls"]["state"], "no-certificates");
    EXPECT_EQ(doc["devices"][0]["vnic"]["netmask"], "255.255.255.0");

    const Json &d1 = doc["devices"][1]["items"];
    EXPECT_EQ(d1["mtu"]["state"], "unusable") << "5 characters do not fit the 5-byte buffer";
    EXPECT_EQ(d1["mtu"]["saved"], nullptr);
    EXPECT_EQ(d1["bw_limit"]["saved"], nullptr);
    EXPECT_EQ(d1["bw_limit"]["saved_text"], "12x") << "kept as the file holds it";
    EXPECT_EQ(d1["address"]["state"], "unusable") << "an address without its netmask";
    EXPECT_EQ(d1["tc_bw"]["state"], "unusable");
    EXPECT_EQ(d1["ip_routes"]["state"], "unusable") << "eth9 is refused by the checkers";

    const Json &d2 = doc["devices"][2];
    EXPECT_EQ(d2["readable"], false);
    EXPECT_EQ(d2["health"]["text"], "major alarm");
    EXPECT_EQ(d2["items"]["mtu"]["state"], "unknown");
    EXPECT_EQ(d2["items"]["mtu"]["live"], nullptr);

    // The group holds no gateway: null, not a word standing for none.
    const Json &d4 = doc["devices"][4]["items"]["gateway"];
    EXPECT_EQ(d4["saved"], "10.4.0.1");
    EXPECT_EQ(d4["live"], nullptr);
    EXPECT_EQ(d4["holder"], nullptr);
    EXPECT_EQ(d4["differences"], Json::parse(R"([{"saved":"10.4.0.1","live":null}])"));

    EXPECT_EQ(doc["absent"], Json::parse(R"([{"phy_id":9,"logic_id":null}])"));
}

// Every row of every block has its cells where the header's are, however long a value is.
TEST_F(CtlShowTest, TableKeepsItsColumnsAndBriefIsALinePerDevice)
{
    set_on(sb_, 4, {"-mtu", "-s", "size", "9000"});
    for (int dscp = 0; dscp < 40; dscp += 3)
        set_on(sb_, 4,
               {"-dscp_to_tc", "-s", "dscp", std::to_string(dscp), "tc", std::to_string(dscp % 8)});
    const ProcResult r = run_ctl(sb_, {"show"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("dev 4 (logic 4): health ok, link up"), std::string::npos) << r.out;
    size_t header = r.out.find("  ITEM ");
    ASSERT_NE(header, std::string::npos);
    const std::string head = r.out.substr(header, r.out.find('\n', header) - header);
    size_t rows = 0;
    for (size_t at = r.out.find("\n  ", header); at != std::string::npos;
         at = r.out.find("\n  ", at + 1)) {
        const std::string row = r.out.substr(at + 1, r.out.find('\n', at + 1) - at - 1);
        if (row.starts_with("      ") || row.starts_with("  vnic") || row.starts_with("  ITEM"))
            continue;
        ++rows;
        for (const char *column : {"STATE", "SAVED", "DEVICE"}) {
            const size_t off = head.find(column);
            ASSERT_LT(off, row.size()) << row;
            EXPECT_TRUE(row[off - 1] == ' ' && row[off] != ' ') << column << " in: " << row;
        }
    }
    EXPECT_EQ(rows, 6 * 22u) << "a row per item of each device";

    set_on(sb_, 1, {"-mtu", "-s", "size", "9000"});
    ASSERT_EQ(sb_.emu({"set", "1", "mtu", "1500"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "3", "health", "3"}).status, 0);
    sb_.set_conf(sb_.conf() + "mtu_8=9000\n");
    const ProcResult brief = run_ctl(sb_, {"show", "--brief"});
    EXPECT_EQ(brief.status, 0) << brief.err;
    EXPECT_EQ(brief.out, "DEV  LOGIC  HEALTH          LINK  RECOVERY  DRIFT\n"
                         "0    0      ok              up    NONE      0\n"
                         "1    1      ok              up    NONE      1\n"
                         "2    2      ok              up    NONE      0\n"
                         "3    3      critical alarm  -     -         -\n"
                         "4    4      ok              up    NONE      0\n"
                         "5    5      ok              up    NONE      0\n"
                         "8    -      absent          -     -         -\n");
}

TEST_F(CtlShowTest, CommandLinesAndTheirCodes)
{
    struct Case {
        std::vector<std::string> args;
        int status;
        const char *out; ///< the start of standard output, or ""
    };
    const Case cases[] = {
        {{"-h"}, 0, "usage: vornctl COMMAND"},
        {{"--help"}, 0, "usage: vornctl COMMAND"},
        {{"--version"}, 0, "vornctl "},
        {{"help"}, 0, "usage: vornctl COMMAND"},
        {{"help", "verify"}, 0, "usage: vornctl verify "},
        {{"metrics", "--help"}, 0, "usage: vornctl metrics "},
        {{"show", "-h"}, 0, "usage: vornctl show "},
        {{"show", "--device=4", "--brief"}, 0, "DEV "},
        {{"verify", "--json", "-i", "4"}, 0, "{"},
        {{"lint", "--json"}, 0, "{"},
        {{"show", "-i", "9"}, 3, ""},
        {{}, 2, ""},
        {{"status"}, 2, ""},
        {{"help", "status"}, 2, ""},
        {{"--bogus"}, 2, ""},
        {{"show", "-i", "x"}, 2, ""},
        {{"show", "-i", "007"}, 2, ""},
        {{"show", "-i"}, 2, ""},
        {{"show", "--recover"}, 2, ""},
        {{"show", "--json", "--json"}, 2, ""},
        {{"show", "--json", "--brief"}, 2, ""},
        {{"show", "extra"}, 2, ""},
        {{"verify", "-i", "1", "-i", "2"}, 2, ""},
        {{"lint", "-i", "1"}, 2, ""},
        {{"metrics"}, 2, ""},
        {{"metrics", "--output", ""}, 2, ""},
    };
    for (const Case &c : cases) {
        const ProcResult r = run_ctl(sb_, c.args);
        std::string line;
        for (const auto &a : c.args)
            line += a + " ";
        EXPECT_EQ(r.status, c.status) << line << r.err;
        EXPECT_EQ(r.out.rfind(c.out, 0), 0u) << line << r.out;
        if (c.status >= 2) {
            EXPECT_EQ(r.err.rfind("vornctl", 0), 0u) << line << r.err;
        }
    }
}

} // namespace
