// vornctl metrics --output FILE: the host in the node_exporter textfile-collector format, one
// series per device for each metric (one per state for states), base units, written atomically
// (an unnamed temporary file beside FILE, synced, linked and renamed over it, the directory
// synced).
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "base/result.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

/// One series of a metric for a device: the labels after phy_id and logic_id, and the value.
struct Sample {
    std::string labels; ///< ",state=\"ok\"" or ""
    std::string value;
};

using Samples = std::vector<Sample>;

/// One metric: its name, help text and type, and its series for a device.
struct Metric {
    const char *name;
    const char *help;
    void (*emit)(const DeviceView &dev, Samples *out);
    const char *type = "gauge";
};

/// The shortest decimal that reads back as the same double; NaN for an unknown value.
std::string number(std::optional<double> value)
{
    if (!value || std::isnan(*value))
        return "NaN";
    if (std::isinf(*value))
        return *value > 0 ? "+Inf" : "-Inf";
    char text[32];
    const auto res = std::to_chars(text, text + sizeof(text), *value);
    return std::string(text, res.ptr);
}

void one(Samples *out, std::optional<double> value)
{
    out->push_back({"", number(value)});
}

/// A label value: backslash, quote and newline escaped as the format wants, other control
/// bytes and bytes from 0x7F up written as the four characters \xNN.
std::string label_value(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\' || c == '"')
            out += {'\\', c};
        else if (c == '\n')
            out += "\\n";
        else if (byte < 0x20 || byte >= 0x7F) {
            char hex[8];
            snprintf(hex, sizeof(hex), "\\\\x%02x", byte);
            out += hex;
        } else
            out += c;
    }
    return out;
}

/// A state set: one series per state, 1 for the one that holds and 0 for the others; every
/// state 0 when none is known.
template <size_t N>
void states(Samples *out, const char *const (&names)[N], std::optional<size_t> current)
{
    for (size_t i = 0; i < N; ++i)
        out->push_back(
            {std::string(",state=\"") + names[i] + "\"", current && *current == i ? "1" : "0"});
}

constexpr const char *kHealthStates[] = {"ok",   "minor",   "major", "critical",
                                         "gone", "unknown", "absent"};
constexpr size_t kHealthAbsent = 6;

std::optional<size_t> health_state(const DeviceView &dev)
{
    if (dev.health_ret != 0)
        return 5;
    switch (dev.health) {
    case KOPA_HEALTH_OK:
        return 0;
    case KOPA_HEALTH_MINOR:
        return 1;
    case KOPA_HEALTH_MAJOR:
        return 2;
    case KOPA_HEALTH_CRITICAL:
        return 3;
    case KOPA_HEALTH_GONE:
        return 4;
    default:
        return 5;
    }
}

constexpr const char *kRecoveryStates[] = {"none", "started", "failed", "succeeded", "fault"};

// A packet counter of the port, from the last clear of the statistics: exact, as an integer.
template <uint64_t kopa_netdev_stat::*Field> void counter(const DeviceView &dev, Samples *out)
{
    out->push_back({"", dev.stats ? std::to_string((*dev.stats).*Field) : "NaN"});
}

// Optical readings in the module's units: temperature 1/256 degree C, supply voltage 100 uV,
// laser bias 2 uA, power 0.1 uW. Divided, not multiplied by a fraction, so that a reading of
// 33000 is 3.3 V, not 3.3000000000000003.
constexpr double kUnitsPerCelsius = 256.0;
constexpr double kUnitsPerVolt = 1e4;
constexpr double kUnitsPerAmpere = 5e5;
constexpr double kUnitsPerWatt = 1e7;

enum class LaneReading : uint8_t { kBias, kTransmit, kReceive };

/// The lanes of a reading, copied out of the packed record.
void lane_values(const kopa_optical_info &o, LaneReading which, uint16_t raw[KOPA_OPTICAL_LANES])
{
    const size_t size = sizeof(uint16_t) * KOPA_OPTICAL_LANES;
    switch (which) {
    case LaneReading::kBias:
        memcpy(raw, o.bias, size);
        break;
    case LaneReading::kTransmit:
        memcpy(raw, o.tx_power, size);
        break;
    case LaneReading::kReceive:
        memcpy(raw, o.rx_power, size);
        break;
    }
}

/// One series per lane of a per-lane reading (NaN for a lane not in use, or without module).
template <LaneReading kWhich, double kUnits> void lanes(const DeviceView &dev, Samples *out)
{
    uint16_t raw[KOPA_OPTICAL_LANES] = {};
    if (dev.optical)
        lane_values(*dev.optical, kWhich, raw);
    for (uint32_t i = 0; i < KOPA_OPTICAL_LANES; ++i) {
        const bool used = dev.optical && i < dev.optical->lanes;
        out->push_back({",lane=\"" + std::to_string(i + 1) + "\"",
                        number(used ? std::optional<double>(raw[i] / kUnits) : std::nullopt)});
    }
}

/// Whether a reading is beyond the module's own alarm thresholds.
template <typename Limits> bool alarmed(long raw, const Limits &l)
{
    return raw > static_cast<long>(l.high_alarm) || raw < static_cast<long>(l.low_alarm);
}

bool lane_alarmed(const kopa_optical_info &o, LaneReading which, const kopa_optical_limits &l)
{
    uint16_t raw[KOPA_OPTICAL_LANES];
    lane_values(o, which, raw);
    const uint8_t used = o.lanes;
    for (uint8_t i = 0; i < used && i < KOPA_OPTICAL_LANES; ++i) {
        if (alarmed(raw[i], l))
            return true;
    }
    return false;
}

void optical_alarms(const DeviceView &dev, Samples *out)
{
    const char *readings[] = {"temperature", "voltage", "bias", "transmit_power", "receive_power"};
    bool on[5] = {};
    if (dev.optical) {
        const kopa_optical_info &o = *dev.optical;
        const kopa_optical_temp_limits t = o.temperature_limits;
        const kopa_optical_limits v = o.voltage_limits, b = o.bias_limits, tx = o.tx_power_limits,
                                  rx = o.rx_power_limits;
        on[0] = alarmed(o.temperature, t);
        on[1] = alarmed(o.voltage, v);
        on[2] = lane_alarmed(o, LaneReading::kBias, b);
        on[3] = lane_alarmed(o, LaneReading::kTransmit, tx);
        on[4] = lane_alarmed(o, LaneReading::kReceive, rx);
    }
    for (size_t i = 0; i < 5; ++i)
        out->push_back({std::string(",reading=\"") + readings[i] + "\"",
                        dev.optical ? (on[i] ? "1" : "0") : "NaN"});
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
     "Whether the device answered with a health of ok or minor alarm, so that it was read.",
     [](const DeviceView &dev, Samples *out) { one(out, dev.readable ? 1 : 0); }},
    {"vorn_device_health",
     "Device health, one series per state (absent: /etc/vorn.conf saves settings for an id no "
     "device has).",
     [](const DeviceView &dev, Samples *out) { states(out, kHealthStates, health_state(dev)); }},
    {"vorn_device_info", "The device's firmware version, in the label firmware.",
     [](const DeviceView &dev, Samples *out) {
         out->push_back({",firmware=\"" + label_value(dev.firmware.value_or("")) + "\"", "1"});
     }},
    {"vorn_device_link_up", "Whether the RoCE port's link is up.",
     [](const DeviceView &dev, Samples *out) {
         one(out, dev.link_up ? std::optional<double>(*dev.link_up ? 1 : 0) : std::nullopt);
     }},
    {"vorn_device_mtu_bytes", "MTU of the RoCE port.",
     [](const DeviceView &dev, Samples *out) { one(out, live_number(dev, "mtu")); }},
    {"vorn_device_recovery_status",
     "Status of the last recovery of saved settings, one series per state.",
     [](const DeviceView &dev, Samples *out) {
         std::optional<size_t> at;
         if (dev.cfg_status)
             at = *dev.cfg_status < 4 ? *dev.cfg_status : 4;
         states(out, kRecoveryStates, at);
     }},
    {"vorn_device_drift_items",
     "Saved items (settings and lists) of /etc/vorn.conf that the device does not hold.",
     [](const DeviceView &dev, Samples *out) {
         std::optional<double> count;
         if (dev.readable) {
             count = 0;
             for (const ItemView &item : dev.items)
                 *count += item.state == ItemState::kDrift ? 1 : 0;
         }
         one(out, count);
     }},
    {"vorn_device_tls_expiry_timestamp_seconds",
     "When the first installed TLS item (certificate or CRL) expires, seconds since the epoch.",
     [](const DeviceView &dev, Samples *out) {
         const auto at = ctl_asctime_utc(dev.tls.not_after);
         one(out, at ? std::optional<double>(static_cast<double>(*at)) : std::nullopt);
     }},
    {"vorn_port_receive_packets_total", "Packets received by the RoCE port.",
     counter<&kopa_netdev_stat::rx_packets>, "counter"},
    {"vorn_port_transmit_packets_total", "Packets transmitted by the RoCE port.",
     counter<&kopa_netdev_stat::tx_packets>, "counter"},
    {"vorn_port_receive_bytes_total", "Bytes received by the RoCE port.",
     counter<&kopa_netdev_stat::rx_bytes>, "counter"},
    {"vorn_port_transmit_bytes_total", "Bytes transmitted by the RoCE port.",
     counter<&kopa_netdev_stat::tx_bytes>, "counter"},
    {"vorn_port_receive_errs_total", "Receive errors of the RoCE port.",
     counter<&kopa_netdev_stat::rx_errors>, "counter"},
    {"vorn_port_transmit_errs_total", "Transmit errors of the RoCE port.",
     counter<&kopa_netdev_stat::tx_errors>, "counter"},
    {"vorn_port_receive_drop_total", "Received packets the RoCE port dropped.",
     counter<&kopa_netdev_stat::rx_dropped>, "counter"},
    {"vorn_port_receive_fec_uncorrected_total", "Codewords the FEC could not correct.",
     counter<&kopa_netdev_stat::rx_fec_uncorrected>, "counter"},
    {"vorn_port_roce_receive_cnp_total", "Congestion notification packets received (RoCE).",
     counter<&kopa_netdev_stat::roce_rx_cnp>, "counter"},
    {"vorn_optical_temperature_celsius", "Temperature of the optical module; NaN without one.",
     [](const DeviceView &dev, Samples *out) {
         one(out, dev.optical ? std::optional<double>(dev.optical->temperature / kUnitsPerCelsius)
                              : std::nullopt);
     }},
    {"vorn_optical_supply_voltage_volts", "Supply voltage of the optical module.",
     [](const DeviceView &dev, Samples *out) {
         one(out, dev.optical ? std::optional<double>(dev.optical->voltage / kUnitsPerVolt)
                              : std::nullopt);
     }},
    {"vorn_optical_bias_current_amperes", "Laser bias current of each lane.",
     lanes<LaneReading::kBias, kUnitsPerAmpere>},
    {"vorn_optical_transmit_power_watts", "Transmitted optical power of each lane.",
     lanes<LaneReading::kTransmit, kUnitsPerWatt>},
    {"vorn_optical_receive_power_watts", "Received optical power of each lane.",
     lanes<LaneReading::kReceive, kUnitsPerWatt>},
    {"vorn_optical_alarm",
     "Whether a reading of the optical module (any lane) is beyond the module's own alarm "
     "thresholds.",
     optical_alarms},
};

std::string series(const char *name, const std::string &ids, const Sample &s)
{
    return std::string(name) + "{" + ids + s.labels + "} " + s.value + "\n";
}

std::string exposition(const HostView &host)
{
    std::string text = "# HELP vorn_devices_present Devices the driver lists.\n"
                       "# TYPE vorn_devices_present gauge\n"
                       "vorn_devices_present " +
                       std::to_string(host.devices.size()) + "\n";
    for (const Metric &m : kMetrics) {
        text += std::string("# HELP ") + m.name + " " + m.help + "\n";
        text += std::string("# TYPE ") + m.name + " " + m.type + "\n";
        for (const DeviceView &dev : host.devices) {
            const std::string ids = "phy_id=\"" + std::to_string(dev.phy_id) + "\",logic_id=\"" +
                                    std::to_string(dev.logic_id) + "\"";
            Samples samples;
            m.emit(dev, &samples);
            for (const Sample &s : samples)
                text += series(m.name, ids, s);
        }
        // A saved id without a device: down, in the health state "absent".
        const bool up = std::string_view(m.name) == "vorn_device_up";
        if (!up && std::string_view(m.name) != "vorn_device_health")
            continue;
        for (const AbsentId &id : host.absent) {
            const std::string ids = "phy_id=\"" + (id.phy_id ? std::to_string(*id.phy_id) : "") +
                                    "\",logic_id=\"" +
                                    (id.logic_id ? std::to_string(*id.logic_id) : "") + "\"";
            Samples samples;
            if (up)
                one(&samples, 0);
            else
                states(&samples, kHealthStates, kHealthAbsent);
            for (const Sample &s : samples)
                text += series(m.name, ids, s);
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

/// The directory of `path` (with its slash) and the temporary names' prefix ".<base>.".
struct Place {
    std::string dir;
    std::string prefix;
};

Place place_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {"./", "." + path + "."};
    return {path.substr(0, slash + 1), "." + path.substr(slash + 1) + "."};
}

// Every writer holds an exclusive lock on its temporary file from before the file has a name
// until it is renamed: a name ".<base>.XXXXXX" whose file can be locked is one a killed run
// left behind, and goes. A live run's file is never touched.
void remove_stale(const Place &at)
{
    DIR *dir = opendir(at.dir.c_str());
    if (dir == nullptr)
        return;
    for (const dirent *e = readdir(dir); e != nullptr; e = readdir(dir)) {
        const std::string name = e->d_name;
        if (name.size() != at.prefix.size() + 6 || !name.starts_with(at.prefix))
            continue;
        Fd fd(openat(dirfd(dir), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat held {
        }, named{};
        if (fd.get() < 0 || flock(fd.get(), LOCK_EX | LOCK_NB) != 0 ||
            fstat(fd.get(), &held) != 0 ||
            fstatat(dirfd(dir), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(held.st_mode) || held.st_ino != named.st_ino || held.st_dev != named.st_dev)
            continue;
        (void)unlinkat(dirfd(dir), name.c_str(), 0);
    }
    closedir(dir);
}

/// A temporary file of `at`, locked; unnamed (O_TMPFILE) where the file system allows it.
/// Removed unless it was renamed into place.
class TempFile
{
  public:
    explicit TempFile(const Place &at) : at_(at)
    {
        fd_ = open(at.dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
        if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
            // No unnamed files here: a name at once, locked the moment it exists.
            name_ = at.dir + at.prefix + "XXXXXX";
            fd_ = mkostemp(name_.data(), O_CLOEXEC);
            if (fd_ < 0)
                name_.clear();
        }
        if (fd_ >= 0 && flock(fd_, LOCK_EX) != 0) {
            (void)close(fd_);
            fd_ = -1;
        }
    }
    ~TempFile()
    {
        if (!name_.empty())
            (void)unlink(name_.c_str());
        if (fd_ >= 0)
            (void)close(fd_);
    }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;

    [[nodiscard]] int fd() const { return fd_; }

    /// Gives the file its temporary name, if it has none yet, and renames it over `path`; 0 or
    /// an errno. The lock goes with the descriptor, after the rename.
    [[nodiscard]] int install(const std::string &path)
    {
        if (name_.empty()) {
            const std::string self = "/proc/self/fd/" + std::to_string(fd_);
            for (int attempt = 0; attempt < 100 && name_.empty(); ++attempt) {
                std::string name = at_.dir + at_.prefix + "XXXXXX";
                // mkstemp's own name, without its file: linkat gives the name atomically.
                static const char kChars[] =
                    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
                for (size_t i = name.size() - 6; i < name.size(); ++i)
                    name[i] = kChars[static_cast<size_t>(random()) % (sizeof(kChars) - 1)];
                if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)
                    name_ = name;
                else if (errno != EEXIST)
                    return errno;
            }
            if (name_.empty())
                return EEXIST;
        }
        if (rename(name_.c_str(), path.c_str()) != 0)
            return errno;
        name_.clear();
        return 0;
    }

  private:
    Place at_;
    int fd_ = -1;
    std::string name_; ///< the file's name while it has one of its own
};

// The temporary name does not end in ".prom", so that the collector never reads it half written.
// 0, or the errno of the step that failed (the file at `path` is then as it was).
int write_atomically(const std::string &path, const std::string &text)
{
    const Place at = place_of(path);
    remove_stale(at);
    srandom(static_cast<unsigned>(getpid()) ^ static_cast<unsigned>(time(nullptr)));
    TempFile temp(at);
    if (temp.fd() < 0)
        return errno != 0 ? errno : EIO;
    if (fchmod(temp.fd(), 0644) != 0 || !write_all(temp.fd(), text) || fsync(temp.fd()) != 0)
        return errno != 0 ? errno : EIO;
    if (const int err = temp.install(path); err != 0)
        return err;
    Fd dir_fd(open(at.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir_fd.get() < 0 || fsync(dir_fd.get()) != 0)
        return errno;
    return 0;
}

} // namespace

int ctl_metrics(const CtlOptions &opts)
{
    HostView host;
    if (ctl_read_host(std::nullopt, &host) != kOk) {
        fprintf(stderr, "vornctl: the devices cannot be listed (0x%x): %s is left as it was\n",
                static_cast<unsigned>(host.list_ret), opts.output.c_str());
        return kCtlExitDevices;
    }
    // The counters, the optical module and the firmware, which only the metrics export.
    for (DeviceView &dev : host.devices) {
        if (!dev.readable)
            continue;
        kopa_netdev_stat stats{};
        if (kopa_get_netdev_stat(dev.logic_id, &stats) == 0)
            dev.stats = stats;
        kopa_optical_info module{};
        if (kopa_get_optical_info(dev.logic_id, &module) == 0 && module.present != 0)
            dev.optical = module;
        char version[513] = {};
        if (kopa_get_firmware_version(dev.logic_id, version, sizeof(version) - 1) == 0) {
            size_t len = strlen(version);
            while (len > 0 && version[len - 1] == '\n')
                --len;
            dev.firmware = std::string(version, len);
        }
    }
    const int err = write_atomically(opts.output, exposition(host));
    if (err != 0) {
        fprintf(stderr, "vornctl: cannot write %s: %s\n", opts.output.c_str(), strerror(err));
        return kCtlExitFailure;
    }
    return ctl_all_verified(host) ? kCtlExitOk : kCtlExitDevices;
}
