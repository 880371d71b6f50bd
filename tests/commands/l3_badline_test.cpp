// Bad command lines of -ip, -gateway, -netdetect and -route: each is refused with its own code
// and text and leaves both the devices and the saved file as they were. (An address set refused
// by its validation has pruned the saved routes already: l3_ip_test.cpp.)
#include "tests/commands/l3_fixture.hpp"

namespace l3
{
namespace
{

class BadLineTest : public L3Test
{
  protected:
    void SetUp() override
    {
        set_ip(0, "10.0.0.2", "255.255.255.0");
        set_ip(1, "10.0.0.3", "255.255.255.0");
        ok(0, {"-gateway", "-s", "gateway", "10.0.0.1"});
        ok(0, {"-netdetect", "-s", "address", "10.0.0.100"});
        ok(0,
           {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.1"});
    }
};

struct BadLine {
    std::vector<std::string> args;
    int status;
    std::string err;
};

const std::string kCount = "The total count of input parameters is wrong!\n";
const std::string kIpUsage = usage("-ip", kHelpIp);
const std::string kGwUsage = usage("-gateway", kHelpGateway);
const std::string kNdUsage = usage("-netdetect", kHelpNetdetect);
const std::string kRtUsage = usage("-route", kHelpRoute);
const std::string kBadAddr = "The IP address is invalid!\n";

TEST_F(BadLineTest, RefusedWithoutChangingDeviceOrFile)
{
    const BadLine lines[] = {
        {{"-ip"}, 5, kCount + kIpUsage},
        {{"-ip", "-x"}, 3, "Get unknown option.\n" + kIpUsage},
        {{"-ip", "-g", "x"}, 5, kCount + kIpUsage},
        {{"-ip", "-s", "address", "10.0.0.5", "netmask"}, 5, kCount + kIpUsage},
        {{"-ip", "-s", "addr", "10.0.0.5", "netmask", "255.255.255.0"},
         3,
         "Get unknown cmd, do you mean address or netmask\n" + kIpUsage},
        {{"-ip", "-s", "address", "10.0.0.3", "netmask", "255.255.255.0"},
         8,
         "The ip address configured is conflicted!\n"},
        {{"-ip", "-s", "address", "10.000.000.000000002", "netmask", "255.255.255.0"},
         1,
         "Cmd execute failed!\n"},
        {{"-gateway"}, 5, kCount + kGwUsage},
        {{"-gateway", "-s", "gateway"}, 5, kCount + kGwUsage},
        {{"-gateway", "-s", "gw", "10.0.0.9"},
         3,
         "Get unknown cmd, do you mean gateway\n" + kGwUsage},
        {{"-gateway", "-s", "gateway", "10.0.1.9"},
         9,
         "The segment of configured gateway doesn't match that of the configured ip adress!\n"},
        {{"-gateway", "-s", "gateway", "10.0.0.x"}, 7, kBadAddr},
        {{"-netdetect", "-g", "x"}, 5, kCount + kNdUsage},
        {{"-netdetect", "-s", "addr", "10.0.0.9"},
         3,
         "Get unknown cmd, do you mean address.\n" + kNdUsage},
        {{"-netdetect", "-s", "address", "10.0.0"}, 7, kBadAddr},
        {{"-route"}, 5, kCount + kRtUsage},
        {{"-route", "-x"}, 3, "Get unknown option!\n" + kRtUsage},
        {{"-route", "-c", "x"}, 5, kCount + kRtUsage},
        {{"-route", "-a", "address", "21.0.0.0", "netmask", "255.0.0.0"}, 5, kCount + kRtUsage},
        {{"-route", "-a", "address", "21.0.0.0", "netmask", "255.0.0.0", "gw", "10.0.0.1"},
         1,
         "Get unknown cmd, do you mean gateway\nGet invalid parameters!\n" + kRtUsage},
        {{"-route", "-a", "address", "21.0.0.0", "netmask", "255.0.0.256", "gateway", "10.0.0.1"},
         7,
         "The netmask is invalid!\n"},
        {{"-route", "-d", "address", "21.0.0.0", "netmask", "255.0.0.0"},
         7,
         "Route not exist in routing table, can not delete!\n"},
    };
    const std::string conf = sb_.conf();
    const std::string state = devices();
    ASSERT_NE(state, "");
    for (const BadLine &line : lines) {
        std::string cmd;
        for (const std::string &a : line.args)
            cmd += a + " ";
        ProcResult r = run(0, line.args);
        EXPECT_EQ(r.status, line.status) << cmd;
        EXPECT_EQ(r.err, line.err) << cmd;
        EXPECT_EQ(sb_.conf(), conf) << cmd;
        EXPECT_EQ(devices(), state) << cmd;
    }
}

} // namespace
} // namespace l3
