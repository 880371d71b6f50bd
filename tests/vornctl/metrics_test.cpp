// vornctl metrics: the textfile passes promtool with no finding, parses with prometheus_client's
// parser and holds one series per device for each metric (per state for states), with the
// values of the host and the saved devices that are absent; it replaces the file whole, removes
// the temporary files of dead writers only, and a file it cannot write stays as it was.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <set>

#include "tests/vornctl/ctl_support.hpp"

namespace
{

class CtlMetricsTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "6"}};
    std::string dir_ = sb_.dir() + "/textfile";
    std::string prom_ = dir_ + "/vorn.prom";

    void SetUp() override { ASSERT_EQ(mkdir(dir_.c_str(), 0755), 0); }

    std::set<std::string> entries() const
    {
        std::set<std::string> names;
        DIR *d = opendir(dir_.c_str());
        while (d != nullptr) {
            const dirent *e = readdir(d);
            if (e == nullptr)
                break;
            if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
                names.insert(e->d_name);
        }
        if (d != nullptr)
            closedir(d);
        return names;
    }
};

TEST_F(CtlMetricsTest, PromtoolFindsNothing)
{
    if (std::string(VORN_PROMTOOL).empty())
        GTEST_SKIP() << "promtool is missing (Debian package prometheus, installed by "
                        "scripts/deps.sh): the metrics are not checked by it";
    set_on(sb_, 3, {"-mtu", "-s", "size", "9000"});
    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "5", "health", "3"}).status, 0);
    sb_.set_conf(sb_.conf() + "mtu_9=9000\n");
    ASSERT_EQ(run_ctl(sb_, {"metrics", "--output", prom_}).status, 3);
    const ProcResult lint = run_process(
        {"/bin/sh", "-c", std::string(VORN_PROMTOOL) + " check metrics < " + prom_}, {});
    EXPECT_EQ(lint.status, 0) << lint.out << lint.err;
    EXPECT_EQ(lint.out + lint.err, "") << "a finding of promtool";
}

TEST_F(CtlMetricsTest, ParsesWithOneSeriesPerDeviceAndState)
{
    set_on(sb_, 3, {"-mtu", "-s", "size", "9000"});
    set_on(sb_, 3, {"-udp", "-s", "port", "5000"});
    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "1", "link", "0"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "5", "health", "3"}).status, 0);
    ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    ASSERT_EQ(r.status, 0) << "device 5 saves nothing: " << r.err;

    SKIP_WITHOUT_PYTHON_MODULE("prometheus_client", "python3-prometheus-client");
    // One line per metric: its name, type, sample count, distinct phy_id labels, and for the
    // device metrics the value of each device in phy_id order (state sets: the state at 1).
    const std::string code =
        "import sys\n"
        "from prometheus_client.parser import text_string_to_metric_families\n"
        "for f in text_string_to_metric_families(open(sys.argv[1]).read()):\n"
        "    s = sorted(f.samples, key=lambda x: int(x.labels.get('phy_id', -1)))\n"
        "    ids = {x.labels.get('phy_id') for x in s}\n"
        "    moving = f.name.startswith('vorn_port_') or f.name.startswith('vorn_optical_')\n"
        "    if 'state' in s[0].labels:\n"
        "        values = ' ' + ' '.join(x.labels['state'] for x in s if x.value == 1)\n"
        "    elif moving or f.name == 'vorn_device_info':\n"
        "        values = ''\n"
        "    else:\n"
        "        values = ' ' + ' '.join(repr(x.value) for x in s)\n"
        "    print(f.name, f.type, len(s), len(ids), end='')\n"
        "    print(values)\n";
    const ProcResult parsed = run_python(code, {prom_});
    ASSERT_EQ(parsed.status, 0) << parsed.err;
    const std::string nan = "nan";
    const std::vector<std::string> expected = {
        "vorn_devices_present gauge 1 1 6.0",
        "vorn_device_up gauge 6 6 1.0 1.0 1.0 1.0 1.0 0.0",
        "vorn_device_health gauge 42 6 ok ok ok ok ok critical",
        "vorn_device_info gauge 6 6",
        "vorn_device_link_up gauge 6 6 1.0 0.0 1.0 1.0 1.0 " + nan,
        "vorn_device_mtu_bytes gauge 6 6 1500.0 1500.0 1500.0 1500.0 1500.0 " + nan,
        "vorn_device_recovery_status gauge 30 6 none none none none none",
        "vorn_device_drift_items gauge 6 6 0.0 0.0 0.0 2.0 0.0 " + nan,
        "vorn_device_tls_expiry_timestamp_seconds gauge 6 6 " + nan + " " + nan + " " + nan + " " +
            nan + " " + nan + " " + nan,
        // Counters grow while the link is up and readings move: their families, not values.
        "vorn_port_receive_packets counter 6 6",
        "vorn_port_transmit_packets counter 6 6",
        "vorn_port_receive_bytes counter 6 6",
        "vorn_port_transmit_bytes counter 6 6",
        "vorn_port_receive_errs counter 6 6",
        "vorn_port_transmit_errs counter 6 6",
        "vorn_port_receive_drop counter 6 6",
        "vorn_port_receive_fec_uncorrected counter 6 6",
        "vorn_port_roce_receive_cnp counter 6 6",
        "vorn_optical_temperature_celsius gauge 6 6",
        "vorn_optical_supply_voltage_volts gauge 6 6",
        "vorn_optical_bias_current_amperes gauge 24 6",
        "vorn_optical_transmit_power_watts gauge 24 6",
        "vorn_optical_receive_power_watts gauge 24 6",
        "vorn_optical_alarm gauge 30 6",
    };
    std::string want;
    for (const auto &line : expected)
        want += line + "\n";
    EXPECT_EQ(parsed.out, want);
    const std::string text = read_file(prom_);
    EXPECT_NE(text.find("vorn_optical_supply_voltage_volts{phy_id=\"0\",logic_id=\"0\"} 3.3\n"),
              std::string::npos)
        << "shortest decimals, base units:\n"
        << text;
    EXPECT_NE(text.find("vorn_device_info{phy_id=\"0\",logic_id=\"0\",firmware=\""),
              std::string::npos);

    // A saved id without a device: its own series in the state absent, and exit 3.
    sb_.set_conf(sb_.conf() + "mtu_9=9000\n");
    r = run_ctl(sb_, {"metrics", "--output", prom_});
    EXPECT_EQ(r.status, 3) << r.err;
    const std::string absent = read_file(prom_);
    EXPECT_NE(absent.find("vorn_device_health{phy_id=\"9\",logic_id=\"\",state=\"absent\"} 1\n"),
              std::string::npos)
        << absent;
    EXPECT_NE(absent.find("vorn_devices_present 6\n"), std::string::npos);
}

TEST_F(CtlMetricsTest, ReplacesTheFileWhole)
{
    ASSERT_TRUE(write_file(prom_, "# an older run\n"));
    ASSERT_EQ(chmod(prom_.c_str(), 0600), 0);
    const ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = read_file(prom_);
    EXPECT_EQ(text.rfind("# HELP vorn_devices_present ", 0), 0u) << text;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(entries(), std::set<std::string>{"vorn.prom"}) << "no temporary file is left";
    struct stat st {
    };
    ASSERT_EQ(stat(prom_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u) << "the collector must be able to read it";
}

// No device listed (the driver not up yet) while the file saves settings for device 0: neither
// verify nor metrics passes it for success, and the metrics say so.
TEST(CtlNoDeviceTest, NoDeviceListedIsNoSilentSuccess)
{
    ToolSandbox sb({"--devices", "0"});
    sb.set_conf("mtu_0=9000\n");
    const ProcResult verify = run_ctl(sb, {"verify"});
    EXPECT_EQ(verify.status, 3) << verify.out;
    EXPECT_EQ(verify.out.find("no drift"), std::string::npos) << verify.out;
    const std::string prom = sb.dir() + "/vorn.prom";
    EXPECT_EQ(run_ctl(sb, {"metrics", "--output", prom}).status, 3);
    const std::string text = read_file(prom);
    EXPECT_NE(text.find("\nvorn_devices_present 0\n"), std::string::npos) << text;
    EXPECT_NE(text.find("vorn_device_health{phy_id=\"0\",logic_id=\"\",state=\"absent\"} 1\n"),
              std::string::npos)
        << text;
}

// A killed run's temporary file goes with the next run; a live writer's (locked) stays.
TEST_F(CtlMetricsTest, LeftoverTemporaryFilesOfDeadWritersGo)
{
    const std::string dead = dir_ + "/.vorn.prom.Ab12Cd", live = dir_ + "/.vorn.prom.Zz99Yy";
    ASSERT_TRUE(write_file(dead, "# half"));
    ASSERT_TRUE(write_file(live, "# half"));
    const int fd = open(live.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    close(fd);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(entries(), (std::set<std::string>{"vorn.prom", ".vorn.prom.Zz99Yy"}));
}

TEST_F(CtlMetricsTest, AFileThatCannotBeWrittenStaysAsItWas)
{
    const ProcResult missing = run_ctl(sb_, {"metrics", "--output", dir_ + "/no/such/vorn.prom"});
    EXPECT_EQ(missing.status, 4);
    EXPECT_NE(missing.err.find("cannot write"), std::string::npos) << missing.err;

    ASSERT_TRUE(write_file(prom_, "# an older run\n"));
    ASSERT_EQ(sb_.emu({"fault", "add", "--func", "kopa_get_device_count", "--result", "-5"}).status,
              0);
    const ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(read_file(prom_), "# an older run\n");
    EXPECT_EQ(entries(), std::set<std::string>{"vorn.prom"});
}

} // namespace
