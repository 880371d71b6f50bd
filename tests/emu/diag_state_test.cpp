// Tests of the emulated diagnostics state: the kopa-emu fields that set it up, and what a device
// reset leaves of it.
#include "tests/emu/emu_fixture.hpp"

#include <arpa/inet.h>

#include <string>

#include "emu/state.hpp"

namespace
{

class EmuDiagStateTest : public EmuHostTest
{
  protected:
    std::string field(const std::string &name) const { return emu({"get", "0", name}).out; }
};

// Each field reads back in the units it was set in; a value it cannot hold is refused and
// leaves the field as it was.
TEST_F(EmuDiagStateTest, FieldsReadBackAndRefuseWhatTheyCannotHold)
{
    const struct {
        const char *field, *value, *shown; // shown: null for a refusal
    } cases[] = {
        {"optical-temp", "-3.5", "-3.50"},
        {"optical-temp", "128", nullptr}, // beyond the module's signed 1/256 degree
        {"optical-temp", "+3", nullptr},
        {"optical-voltage", "3.2", "3.2000"},
        {"optical-voltage", "-1", nullptr},
        {"optical-rx-power", "0.8", "0.8000,0.8000,0.8000,0.8000"},
        {"optical-rx-power", "1,2,3", nullptr},
        {"optical-bias", "7.5,7.6,7.7,7.8", "7.500,7.600,7.700,7.800"},
        {"optical-bias", "7.5,,7.7,7.8", nullptr},
        {"optical-present", "2", nullptr},
        {"duplex", "2", nullptr},
        {"pci-speed", "7", nullptr},
        {"pci-width", "0", nullptr},
        {"link-change", "-1", nullptr},
        {"peers", "10.0.0.9 reachable", "10.0.0.9 reachable 150"},
        {"peers", "10.0.0.9 lossy 25 90", "10.0.0.9 lossy 25 90"}, // replaces the entry
        {"peers", "10.0.0.8 unreachable 5", nullptr},
        {"peers", "10.0.0.8 lossy", nullptr},
        {"peers", "10.0.0.8 lossy 101", nullptr},
        {"peers", "10.0.0.300 reachable", nullptr},
        {"peers", "10.0.0.8 gone", nullptr},
        {"processes", "1 2", nullptr},
        {"processes", "1 2 name-longer-than-thirty-two-chars", nullptr},
        {"processes", "7 512 worker", "7 512 worker"},
        {"perftest", "idle", nullptr}, // read-only
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.field) + " " + c.value);
        const std::string before = field(c.field);
        ProcResult r = emu({"set", "0", c.field, c.value});
        EXPECT_EQ(r.status, c.shown != nullptr ? 0 : 2) << r.err;
        EXPECT_EQ(field(c.field), c.shown != nullptr ? std::string(c.shown) + "\n" : before);
    }
    ASSERT_EQ(emu({"set", "0", "peers", "none"}).status, 0);
    EXPECT_EQ(field("peers"), "\n");
}

TEST_F(EmuDiagStateTest, ResetEndsProcessesAndTheTestButKeepsModuleAndPeers)
{
    for (const char *set : {"optical-temp 71", "peers 10.0.0.9 reachable", "processes 7 1 w"}) {
        const std::string text = set;
        const size_t blank = text.find(' ');
        ASSERT_EQ(emu({"set", "0", text.substr(0, blank), text.substr(blank + 1)}).status, 0);
    }
    ASSERT_EQ(emu({"set", "0", "link", "0"}).status, 0);
    EXPECT_EQ(field("link-flaps"), "1\n");
    uint32_t peer = 0;
    inet_pton(AF_INET, "10.0.0.9", &peer);
    ASSERT_EQ(
        send_record(0, KOPA_OP_start_roce_perftest, kopa_roce_perftest_req{0, peer, 8, 0}).result,
        0);
    EXPECT_EQ(field("perftest"), "running 0/8\n");
    // A second start while one runs is refused.
    EXPECT_EQ(
        send_record(0, KOPA_OP_start_roce_perftest, kopa_roce_perftest_req{0, peer, 8, 0}).result,
        -16);

    ASSERT_EQ(emu({"wipe", "0"}).status, 0);
    EXPECT_EQ(field("perftest") + field("processes") + field("link-flaps"), "idle 0/0\n\n0\n");
    EXPECT_EQ(field("optical-temp") + field("peers"), "71.00\n10.0.0.9 reachable 150\n");
    // After the reset a new test can start, of 5 iterations at least.
    EXPECT_EQ(
        send_record(0, KOPA_OP_start_roce_perftest, kopa_roce_perftest_req{0, peer, 4, 0}).result,
        -22);
    EXPECT_EQ(
        send_record(0, KOPA_OP_start_roce_perftest, kopa_roce_perftest_req{0, peer, 5, 0}).result,
        0);
}

} // namespace
