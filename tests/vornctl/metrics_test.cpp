// vornctl metrics: the textfile parses with prometheus_client's parser and holds one series per
// device for each metric, with the values of the host; it replaces the file whole and leaves no
// temporary file behind, and a file it cannot write stays as it was.
#include <dirent.h>
#include <sys/stat.h>

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

TEST_F(CtlMetricsTest, ParsesWithOneSeriesPerDeviceForEachMetric)
{
    set_on(sb_, 3, {"-mtu", "-s", "size", "9000"});
    set_on(sb_, 3, {"-udp", "-s", "port", "5000"});
    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "1", "link", "0"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "5", "health", "3"}).status, 0);
    const ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    ASSERT_EQ(r.status, 0) << r.err;

    SKIP_WITHOUT_PYTHON_MODULE("prometheus_client", "python3-prometheus-client");
    // One line per metric: its name, type, sample count, distinct phy_id labels, and the
    // value of each device in phy_id order.
    const ProcResult parsed = run_python(
        "import sys\n"
        "from prometheus_client.parser import text_string_to_metric_families\n"
        "for f in text_string_to_metric_families(open(sys.argv[1]).read()):\n"
        "    s = sorted(f.samples, key=lambda x: int(x.labels['phy_id']))\n"
        "    ids = {x.labels['phy_id'] for x in s}\n"
        "    moving = f.name.startswith('vorn_port_') or f.name.startswith('vorn_optical_')\n"
        "    values = '' if moving else ' ' + ' '.join(repr(x.value) for x in s)\n"
        "    print(f.name, f.type, len(s), len(ids), end='')\n"
        "    print(values)\n",
        {prom_});
    ASSERT_EQ(parsed.status, 0) << parsed.err;
    const std::string nan = "nan";
    const std::vector<std::string> expected = {
        "vorn_device_up gauge 6 6 1.0 1.0 1.0 1.0 1.0 0.0",
        "vorn_device_health gauge 6 6 0.0 0.0 0.0 0.0 0.0 3.0",
        "vorn_device_link_up gauge 6 6 1.0 0.0 1.0 1.0 1.0 " + nan,
        "vorn_device_mtu_bytes gauge 6 6 1500.0 1500.0 1500.0 1500.0 1500.0 " + nan,
        "vorn_device_recovery_status gauge 6 6 0.0 0.0 0.0 0.0 0.0 " + nan,
        "vorn_device_drift_items gauge 6 6 0.0 0.0 0.0 2.0 0.0 " + nan,
        "vorn_device_tls_days_to_expiry gauge 6 6 " + nan + " " + nan + " " + nan + " " + nan +
            " " + nan + " " + nan,
        // Counters grow while the link is up and readings move: their families, not values.
        "vorn_port_rx_packets counter 6 6",
        "vorn_port_tx_packets counter 6 6",
        "vorn_port_rx_bytes counter 6 6",
        "vorn_port_tx_bytes counter 6 6",
        "vorn_port_rx_errors counter 6 6",
        "vorn_port_tx_errors counter 6 6",
        "vorn_port_rx_dropped counter 6 6",
        "vorn_port_rx_fec_uncorrected counter 6 6",
        "vorn_port_roce_rx_cnp counter 6 6",
        "vorn_optical_temperature_celsius gauge 6 6",
        "vorn_optical_temperature_high_alarm_celsius gauge 6 6",
        "vorn_optical_rx_power_min_milliwatts gauge 6 6",
        "vorn_optical_rx_power_low_alarm_milliwatts gauge 6 6",
        "vorn_optical_tx_power_min_milliwatts gauge 6 6",
        "vorn_optical_tx_power_low_alarm_milliwatts gauge 6 6",
    };
    std::string want;
    for (const auto &line : expected)
        want += line + "\n";
    EXPECT_EQ(parsed.out, want);
}

TEST_F(CtlMetricsTest, ReplacesTheFileWhole)
{
    ASSERT_TRUE(write_file(prom_, "# an older run\n"));
    ASSERT_EQ(chmod(prom_.c_str(), 0600), 0);
    const ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = read_file(prom_);
    EXPECT_EQ(text.rfind("# HELP vorn_device_up ", 0), 0u) << text;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(entries(), std::set<std::string>{"vorn.prom"}) << "no temporary file is left";
    struct stat st {
    };
    ASSERT_EQ(stat(prom_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u) << "the collector must be able to read it";
}

TEST_F(CtlMetricsTest, AFileThatCannotBeWrittenStaysAsItWas)
{
    const ProcResult missing = run_ctl(sb_, {"metrics", "--output", dir_ + "/no/such/vorn.prom"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("cannot write"), std::string::npos) << missing.err;

    ASSERT_TRUE(write_file(prom_, "# an older run\n"));
    ASSERT_EQ(sb_.emu({"fault", "add", "--func", "kopa_get_device_count", "--result", "-5"}).status,
              0);
    const ProcResult r = run_ctl(sb_, {"metrics", "--output", prom_});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(read_file(prom_), "# an older run\n");
    EXPECT_EQ(entries(), std::set<std::string>{"vorn.prom"});
}

} // namespace
