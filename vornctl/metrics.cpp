// vornctl metrics --output FILE: the host in the node_exporter textfile-collector format, one
// series per device for each metric, written atomically (a temporary file beside FILE, synced,
// renamed over it, the directory synced).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "base/result.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

/// One metric: its name, help text, and its value for a device (nullopt: unknown, NaN).
struct Metric {
    const char *name;
    const char *help;
    std::optional<double> (*value)(const DeviceView &dev);
    const char *type = "gauge";
};

// A packet counter of the port, from the last clear of the statistics.
template <uint64_t kopa_netdev_stat::*Field> std::optional<double> counter(const DeviceView &dev)
{
    if (!dev.stats)
        return std::nullopt;
    return static_cast<double>((*dev.stats).*Field);
}

// Optical readings in SI-friendly units: temperature in 1/256 degree C, power in 0.1 uW.
constexpr double kCelsiusPerUnit = 1.0 / 256.0;
constexpr double kMilliwattPerUnit = 1e-4;

template <typename Read> std::optional<double> optical(const DeviceView &dev, Read read)
{
    if (!dev.optical)
        return std::nullopt;
    return read(*dev.optical);
}

// The weakest lane in use: the one an alert is about. The record is packed: the lanes are
// copied out rather than referred to.
double weakest(const void *packed_lanes, uint8_t used)
{
    uint16_t lanes[KOPA_OPTICAL_LANES];
    memcpy(lanes, packed_lanes, sizeof(lanes));
    uint16_t low = lanes[0];
    for (uint8_t i = 1; i < used && i < KOPA_OPTICAL_LANES; ++i)
        low = lanes[i] < low ? lanes[i] : low;
    return low * kMilliwattPerUnit;
}

std::optional<double> drift_items(const DeviceView &dev)
{
    if (!dev.readable)
        return std::nullopt;
    double count = 0;
    for (const ItemView &item : dev.items)
        count += item.state == ItemState::kDrift ? 1 : 0;
    return count;
}

std::optional<double> live_number(const DeviceView &dev, const char *name)
{
    const ItemView *item = ctl_find_item(dev, name);
    if (item == nullptr || !item->live)
        return std::nullopt;
    return strtod(item->live->c_str(), nullptr);
}

constexpr Metric kMetrics[] = {
    {"vorn_device_up",
     "Whether the device answered with a health of ok or minor alarm, so that it was read (1) or "
     "not (0).",
     [](const DeviceView &dev) -> std::optional<double> { return dev.readable ? 1 : 0; }},
    {"vorn_device_health",
     "Device health: 0 ok, 1 minor, 2 major, 3 critical alarm, 4294967295 gone; NaN unreadable.",
     [](const DeviceView &dev) -> std::optional<double> {
         if (dev.health_ret != 0)
             return std::nullopt;
         return static_cast<double>(dev.health);
     }},
    {"vorn_device_link_up", "Whether the RoCE port's link is up (1) or down (0).",
     [](const DeviceView &dev) -> std::optional<double> {
         if (!dev.link_up)
             return std::nullopt;
         return *dev.link_up ? 1 : 0;
     }},
    {"vorn_device_mtu_bytes", "MTU of the RoCE port in bytes.",
     [](const DeviceView &dev) { return live_number(dev, "mtu"); }},
    {"vorn_device_recovery_status",
     "Status of the last recovery of saved settings: 0 none, 1 started, 2 failed, 3 succeeded.",
     [](const DeviceView &dev) -> std::optional<double> {
         if (!dev.cfg_status)
             return std::nullopt;
         return static_cast<double>(*dev.cfg_status);
     }},
    {"vorn_device_drift_items",
     "Saved items (settings and lists) of /etc/vorn.conf that the device does not hold.",
     drift_items},
    {"vorn_device_tls_days_to_expiry",
     "Whole days until the first installed TLS item (certificate or CRL) expires; negative when "
     "past, NaN without certificates.",
     [](const DeviceView &dev) -> std::optional<double> {
         if (!dev.tls.days_to_expiry)
             return std::nullopt;
         return static_cast<double>(*dev.tls.days_to_expiry);
     }},
    {"vorn_port_rx_packets_total", "Packets received by the RoCE port.",
     counter<&kopa_netdev_stat::rx_packets>, "counter"},
    {"vorn_port_tx_packets_total", "Packets sent by the RoCE port.",
     counter<&kopa_netdev_stat::tx_packets>, "counter"},
    {"vorn_port_rx_bytes_total", "Bytes received by the RoCE port.",
     counter<&kopa_netdev_stat::rx_bytes>, "counter"},
    {"vorn_port_tx_bytes_total", "Bytes sent by the RoCE port.",
     counter<&kopa_netdev_stat::tx_bytes>, "counter"},
    {"vorn_port_rx_errors_total", "Receive errors of the RoCE port.",
     counter<&kopa_netdev_stat::rx_errors>, "counter"},
    {"vorn_port_tx_errors_total", "Transmit errors of the RoCE port.",
     counter<&kopa_netdev_stat::tx_errors>, "counter"},
    {"vorn_port_rx_dropped_total", "Received packets the RoCE port dropped.",
     counter<&kopa_netdev_stat::rx_dropped>, "counter"},
    {"vorn_port_rx_fec_uncorrected_total", "Codewords the FEC could not correct.",
     counter<&kopa_netdev_stat::rx_fec_uncorrected>, "counter"},
    {"vorn_port_roce_rx_cnp_total", "Congestion notification packets received (RoCE).",
     counter<&kopa_netdev_stat::roce_rx_cnp>, "counter"},
    {"vorn_optical_temperature_celsius", "Temperature of the optical module; NaN without one.",
     [](const DeviceView &dev) {
         return optical(dev,
                        [](const kopa_optical_info &o) { return o.temperature * kCelsiusPerUnit; });
     }},
    {"vorn_optical_temperature_high_alarm_celsius", "The module's high temperature alarm.",
     [](const DeviceView &dev) {
         return optical(dev, [](const kopa_optical_info &o) {
             return o.temperature_limits.high_alarm * kCelsiusPerUnit;
         });
     }},
    {"vorn_optical_rx_power_min_milliwatts", "Received optical power of the weakest lane.",
     [](const DeviceView &dev) {
         return optical(dev,
                        [](const kopa_optical_info &o) { return weakest(o.rx_power, o.lanes); });
     }},
    {"vorn_optical_rx_power_low_alarm_milliwatts", "The module's low received-power alarm.",
     [](const DeviceView &dev) {
         return optical(dev, [](const kopa_optical_info &o) {
             return o.rx_power_limits.low_alarm * kMilliwattPerUnit;
         });
     }},
    {"vorn_optical_tx_power_min_milliwatts", "Sent optical power of the weakest lane.",
     [](const DeviceView &dev) {
         return optical(dev,
                        [](const kopa_optical_info &o) { return weakest(o.tx_power, o.lanes); });
     }},
    {"vorn_optical_tx_power_low_alarm_milliwatts", "The module's low sent-power alarm.",
     [](const DeviceView &dev) {
         return optical(dev, [](const kopa_optical_info &o) {
             return o.tx_power_limits.low_alarm * kMilliwattPerUnit;
         });
     }},
};

std::string format_value(std::optional<double> value)
{
    if (!value || std::isnan(*value))
        return "NaN";
    char text[32];
    snprintf(text, sizeof(text), "%.17g", *value);
    return text;
}

std::string exposition(const HostView &host)
{
    std::string text;
    for (const Metric &m : kMetrics) {
        text += std::string("# HELP ") + m.name + " " + m.help + "\n";
        text += std::string("# TYPE ") + m.name + " " + m.type + "\n";
        for (const DeviceView &dev : host.devices) {
            text += std::string(m.name) + "{phy_id=\"" + std::to_string(dev.phy_id) +
                    "\",logic_id=\"" + std::to_string(dev.logic_id) + "\"} " +
                    format_value(m.value(dev)) + "\n";
        }
    }
    return text;
}

/// Descriptor that closes itself.
class Fd
{
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0)
            (void)close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return close(fd);
    }

  private:
    int fd_;
};

/// Temporary file that is removed unless it was renamed into place.
class TempFile
{
  public:
    explicit TempFile(std::string path) : path_(std::move(path)) {}
    ~TempFile()
    {
        if (!kept_)
            (void)unlink(path_.c_str());
    }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    void keep() { kept_ = true; }

  private:
    std::string path_;
    bool kept_ = false;
};

bool write_all(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// The temporary name does not end in ".prom", so that the collector never reads it half written.
// 0, or the errno of the step that failed (the file at `path` is then as it was).
int write_atomically(const std::string &path, const std::string &text)
{
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string tmpl = dir + (slash == std::string::npos ? "/." : ".") + base + ".XXXXXX";
    Fd fd(mkstemp(tmpl.data()));
    if (fd.get() < 0)
        return errno;
    TempFile temp(tmpl);
    if (fchmod(fd.get(), 0644) != 0 || !write_all(fd.get(), text) || fsync(fd.get()) != 0 ||
        fd.release() != 0 || rename(tmpl.c_str(), path.c_str()) != 0)
        return errno != 0 ? errno : EIO;
    temp.keep();
    Fd dir_fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir_fd.get() < 0 || fsync(dir_fd.get()) != 0)
        return errno;
    return 0;
}

} // namespace

int ctl_metrics(const CtlOptions &opts)
{
    HostView host;
    const int32_t ret = ctl_read_host(std::nullopt, &host);
    if (ret != kOk) {
        fprintf(stderr, "vornctl: the devices cannot be listed (0x%x): %s is left as it was\n",
                static_cast<unsigned>(ret), opts.output.c_str());
        return kCtlExitError;
    }
    // The counters and the optical module, which only the metrics export.
    for (DeviceView &dev : host.devices) {
        if (!dev.readable)
            continue;
        kopa_netdev_stat stats{};
        if (kopa_get_netdev_stat(dev.logic_id, &stats) == 0)
            dev.stats = stats;
        kopa_optical_info module{};
        if (kopa_get_optical_info(dev.logic_id, &module) == 0 && module.present != 0)
            dev.optical = module;
    }
    const int err = write_atomically(opts.output, exposition(host));
    if (err != 0) {
        fprintf(stderr, "vornctl: cannot write %s: %s\n", opts.output.c_str(), strerror(err));
        return kCtlExitError;
    }
    return kCtlExitOk;
}
