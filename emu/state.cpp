// The emulated host's state files: host table, device files, faults, journal, log level.
#include "emu/state.hpp"
#include "emu/diag_state.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace kopa_emu
{
namespace
{

constexpr uint32_t kHostMagic = 0x4B454D48;   // "HMEK"
constexpr uint32_t kDeviceMagic = 0x4B454D44; // "DMEK"
constexpr uint32_t kVersion = 1;              // of the host table
constexpr uint32_t kDeviceVersion = 3;        // of a device file

/// A file descriptor closed on scope exit.
class Fd
{
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

/// Reads exactly sizeof(T) bytes of `path` into `out`; false when absent or of another size.
template <typename T> bool read_record(const std::string &path, T &out)
{
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        return false;
    ssize_t n = pread(fd.get(), &out, sizeof(T), 0);
    return n == static_cast<ssize_t>(sizeof(T));
}

/// Rewrites `path` in place with `len` bytes.
int write_bytes(const std::string &path, const void *data, size_t len, mode_t mode = 0644)
{
    Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, mode));
    if (fd.get() < 0)
        return -errno;
    const auto *p = static_cast<const uint8_t *>(data);
    size_t done = 0;
    while (done < len) {
        ssize_t n = pwrite(fd.get(), p + done, len - done, static_cast<off_t>(done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -errno;
        }
        done += static_cast<size_t>(n);
    }
    if (ftruncate(fd.get(), static_cast<off_t>(len)) != 0)
        return -errno;
    return 0;
}

/// Creates `dir` and its missing parents (mode 0755); 0 or a negative errno value.
int make_directories(const std::string &dir)
{
    std::string path = dir;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        const std::string part = path.substr(0, pos);
        if (!part.empty() && mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            return -errno;
        if (pos == std::string::npos)
            break;
    }
    struct stat st {
    };
    if (stat(path.c_str(), &st) != 0)
        return -errno;
    return S_ISDIR(st.st_mode) ? 0 : -ENOTDIR;
}

std::string read_text(const std::string &path)
{
    std::string text;
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        return text;
    char buf[4096];
    for (;;) {
        ssize_t n = read(fd.get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        text.append(buf, static_cast<size_t>(n));
    }
    return text;
}

std::string device_path(const std::string &dir, uint32_t logic_id)
{
    char name[32];
    snprintf(name, sizeof name, "dev-%u.bin", logic_id);
    return state_path(dir, name);
}

constexpr const char *kKindWords[kFaultKinds] = {
    "result", "function", "frag", "rsp-len", "data-len", "short", "garble", "delay",
};

const char *kind_word(FaultKind kind)
{
    const auto i = static_cast<size_t>(kind);
    return i < kFaultKinds ? kKindWords[i] : "?";
}

std::optional<FaultKind> kind_of_word(std::string_view word)
{
    for (size_t i = 0; i < kFaultKinds; ++i) {
        if (word == kKindWords[i])
            return static_cast<FaultKind>(i);
    }
    return std::nullopt;
}

/// Faults that reshape a reply the firmware has built, and so always act after it.
bool reply_kind(FaultKind kind)
{
    return kind != FaultKind::kResult && kind != FaultKind::kFunction && kind != FaultKind::kDelay;
}

/// One line of the faults file:
/// "<kind> <target> <value> <remaining>[ op=<opcode>][ piece=<n>][ after-apply]", where the
/// target is the library function a fault names, else its opcode or "any".
std::optional<Fault> parse_fault(const std::string &line)
{
    char kind[16], target[96];
    long long value = 0;
    int remaining = 0;
    int used = 0;
    if (sscanf(line.c_str(), "%15s %95s %lld %d%n", kind, target, &value, &remaining, &used) != 4) {
        return std::nullopt;
    }
    auto k = kind_of_word(kind);
    if (!k)
        return std::nullopt;
    Fault f;
    f.kind = *k;
    f.value = value;
    f.remaining = remaining;
    const auto number = [](const char *text, uint32_t &out) {
        char *end = nullptr;
        unsigned long v = strtoul(text, &end, 0);
        out = static_cast<uint32_t>(v);
        return end != text && *end == '\0';
    };
    if (strncmp(target, "kopa_", 5) == 0) {
        f.function = target;
    } else if (strcmp(target, "any") != 0 && !number(target, f.opcode)) {
        return std::nullopt;
    }
    if (f.kind == FaultKind::kFunction && f.function.empty())
        return std::nullopt;
    for (const char *p = line.c_str() + used; *p != '\0';) {
        char word[32];
        int n = 0;
        if (sscanf(p, " %31s%n", word, &n) != 1)
            break;
        p += n;
        if (strncmp(word, "op=", 3) == 0) {
            if (!number(word + 3, f.opcode))
                return std::nullopt;
        } else if (strncmp(word, "piece=", 6) == 0) {
            if (!number(word + 6, f.piece))
                return std::nullopt;
        } else if (strcmp(word, "after-apply") == 0) {
            f.after_apply = true;
        } else {
            return std::nullopt;
        }
    }
    return f;
}

} // namespace

bool fault_hits(const Fault &f, const FaultSite &site)
{
    if (f.remaining == 0)
        return false;
    const std::string_view function = f.function.empty() ? kChannelCall : f.function;
    if (function != site.function || (f.opcode != kAnyOpcode && f.opcode != site.opcode))
        return false;
    const bool after = f.after_apply || reply_kind(f.kind);
    if (after != (site.stage == FaultStage::kAfter))
        return false;
    if (f.piece != 0)
        return f.piece == site.piece;
    if (after)
        return site.answer;
    return f.kind != FaultKind::kResult || site.piece == 1;
}

std::string state_dir()
{
    const char *env = getenv("KOPA_EMU_DIR");
    return (env != nullptr && env[0] != '\0') ? std::string(env) : std::string(kDefaultDir);
}

std::string state_path(const std::string &dir, std::string_view name)
{
    std::string path = dir;
    path += '/';
    path += name;
    return path;
}

std::string envelope_key_path(const std::string &dir, uint32_t logic_id)
{
    char name[40];
    snprintf(name, sizeof name, "envelope-%u.pem", logic_id);
    return state_path(dir, name);
}

DeviceState default_device(uint32_t logic_id)
{
    DeviceState d{};
    d.magic = kDeviceMagic;
    d.version = kDeviceVersion;
    d.vnic.address = htonl(0xC0A80100u | (199u + logic_id));
    d.vnic.netmask = htonl(0xFFFFFF00u);
    d.vnic_link = 1;
    const uint8_t mac[6] = {0x00, 0xe0, 0xfc, 0x00, 0x00, static_cast<uint8_t>(logic_id)};
    memcpy(d.mac, mac, sizeof mac);
    d.link = 1;
    d.mtu = kDefaultMtu;
    d.udp_port = kDefaultUdpPort;
    d.tls_alarm_days = kDefaultAlarmDays;
    snprintf(d.lldp, sizeof d.lldp,
             "Chassis ID TLV\n\tMAC: 00:e0:fc:5a:00:%02x\nPort ID TLV\n\tIfname: 200GE1/0/%u\n"
             "Time to Live TLV\n\t121\nSystem Name TLV\n\tleaf-switch-01",
             logic_id, logic_id + 1);
    snprintf(d.firmware, sizeof d.firmware, "7.1.0.5.220");
    d.fec_mode = kDefaultFecMode;
    d.garp_period = kDefaultGarpPeriod;
    default_diag_state(d, logic_id);
    return d;
}

DeviceState reset_device(const DeviceState &old, uint32_t logic_id)
{
    DeviceState d = default_device(logic_id);
    d.vnic = old.vnic;
    d.vnic_link = old.vnic_link;
    d.stats_cleared = old.stats_cleared;
    memcpy(d.lldp, old.lldp, sizeof d.lldp);
    memcpy(d.firmware, old.firmware, sizeof d.firmware);
    d.tls_switch = old.tls_switch;
    d.tls_alarm_days = old.tls_alarm_days;
    d.cert_count = old.cert_count;
    memcpy(d.certs, old.certs, sizeof d.certs);
    keep_diag_state(d, old);
    return d;
}

int init_host(const std::string &dir, const InitOptions &options)
{
    if (int rc = make_directories(dir); rc != 0)
        return rc;
    if (options.devices > KOPA_MAX_DEVICES)
        return -EINVAL;
    if (!options.phy_ids.empty() && options.phy_ids.size() != options.devices)
        return -EINVAL;

    Session session(dir);
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        unlink(device_path(dir, i).c_str());
        unlink(envelope_key_path(dir, i).c_str());
    }
    for (const char *name : {"faults", "journal.bin", "journal.on", "log_level", "driver.log"}) {
        unlink(state_path(dir, name).c_str());
    }

    HostTable host{};
    host.magic = kHostMagic;
    host.version = kVersion;
    for (uint32_t i = 0; i < options.devices; ++i) {
        HostDevice &d = host.dev[i];
        d.present = 1;
        d.phy_id = options.phy_ids.empty() ? i : options.phy_ids[i];
        d.board_id = options.pcie ? kPcieBoardId : 0;
        DeviceState dev = default_device(i);
        if (int rc = write_bytes(device_path(dir, i), &dev, sizeof dev); rc != 0)
            return rc;
    }
    return write_bytes(state_path(dir, "host.bin"), &host, sizeof host);
}

Session::Session(std::string dir) : dir_(std::move(dir))
{
    // A missing directory or a file in its place fails the open (ENOENT, ENOTDIR): uninitialised.
    lock_fd_ = open(state_path(dir_, "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    lock_and_load();
}

void Session::lock_and_load()
{
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        dev_[i].reset();
        dev_dirty_[i] = false;
    }
    host_dirty_ = false;
    faults_.clear();
    faults_loaded_ = false;
    faults_dirty_ = false;
    initialised_ = false;
    host_ = HostTable{};
    if (lock_fd_ < 0)
        return;
    while (flock(lock_fd_, LOCK_EX) != 0) {
        if (errno != EINTR) {
            close(lock_fd_);
            lock_fd_ = -1;
            return;
        }
    }
    initialised_ = read_record(state_path(dir_, "host.bin"), host_) && host_.magic == kHostMagic &&
                   host_.version == kVersion;
    if (!initialised_)
        host_ = HostTable{};
}

Session::~Session()
{
    (void)commit();
    if (lock_fd_ >= 0)
        close(lock_fd_); // releases the flock
}

int Session::check_device(uint32_t logic_id) const
{
    if (logic_id >= KOPA_MAX_DEVICES)
        return -22;
    if (!initialised_ || host_.dev[logic_id].present == 0)
        return -19;
    return 0;
}

DeviceState *Session::device(uint32_t logic_id)
{
    if (check_device(logic_id) != 0)
        return nullptr;
    if (!dev_[logic_id]) {
        auto d = std::make_unique<DeviceState>();
        if (!read_record(device_path(dir_, logic_id), *d) || d->magic != kDeviceMagic ||
            d->version != kDeviceVersion) {
            *d = default_device(logic_id); // a device whose file was lost comes back fresh
            dev_dirty_[logic_id] = true;
        }
        dev_[logic_id] = std::move(d);
    }
    return dev_[logic_id].get();
}

int Session::logic_of_phy(uint32_t phy_id) const
{
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        if (check_device(i) == 0 && host_.dev[i].phy_id == phy_id)
            return static_cast<int>(i);
    }
    return -19;
}

std::vector<uint32_t> Session::group_of(uint32_t logic_id) const
{
    std::vector<uint32_t> group;
    if (check_device(logic_id) != 0)
        return group;
    const HostDevice &me = host_.dev[logic_id];
    if (is_pcie_board(me.board_id)) {
        group.push_back(logic_id);
        return group;
    }
    const bool low = me.phy_id < 4;
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        if (check_device(i) == 0 && (host_.dev[i].phy_id < 4) == low)
            group.push_back(i);
    }
    return group;
}

std::vector<Fault> &Session::faults()
{
    if (!faults_loaded_) {
        faults_loaded_ = true;
        std::string text = read_text(state_path(dir_, "faults"));
        size_t pos = 0;
        while (pos < text.size()) {
            size_t end = text.find('\n', pos);
            if (end == std::string::npos)
                end = text.size();
            if (auto f = parse_fault(text.substr(pos, end - pos)))
                faults_.push_back(*f);
            pos = end + 1;
        }
    }
    return faults_;
}

FaultHits Session::take_faults(const FaultSite &site)
{
    FaultHits hits;
    if (lock_fd_ < 0)
        return hits;
    std::vector<Fault> &list = faults();
    for (size_t i = 0; i < list.size();) {
        Fault &f = list[i];
        std::optional<int64_t> &slot = hits.value[static_cast<size_t>(f.kind)];
        if (slot || !fault_hits(f, site)) {
            ++i;
            continue;
        }
        slot = f.value;
        faults_dirty_ = true;
        if (f.remaining > 0 && --f.remaining == 0)
            list.erase(list.begin() + static_cast<long>(i));
        else
            ++i;
    }
    return hits;
}

int Session::sleep_unlocked(uint32_t ms)
{
    const int rc = commit();
    if (lock_fd_ >= 0)
        flock(lock_fd_, LOCK_UN);
    timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
    lock_and_load();
    return rc;
}

bool Session::journal_enabled() const
{
    return lock_fd_ >= 0 && access(state_path(dir_, "journal.on").c_str(), F_OK) == 0;
}

void Session::journal_append(const JournalRecord &record)
{
    Fd fd(open(state_path(dir_, "journal.bin").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC,
               0644));
    if (fd.get() < 0)
        return;
    ssize_t n = write(fd.get(), &record, sizeof record);
    (void)n; // a lost journal record must not fail the driver call
}

std::string format_fault(const Fault &f)
{
    char line[256];
    int n = 0;
    if (!f.function.empty()) {
        n = snprintf(line, sizeof line, "%s %s", kind_word(f.kind), f.function.c_str());
    } else if (f.opcode == kAnyOpcode) {
        n = snprintf(line, sizeof line, "%s any", kind_word(f.kind));
    } else {
        n = snprintf(line, sizeof line, "%s 0x%x", kind_word(f.kind), f.opcode);
    }
    std::string text(line, static_cast<size_t>(n));
    snprintf(line, sizeof line, " %lld %d", static_cast<long long>(f.value), f.remaining);
    text += line;
    if (!f.function.empty() && f.opcode != kAnyOpcode) {
        snprintf(line, sizeof line, " op=0x%x", f.opcode);
        text += line;
    }
    if (f.piece != 0)
        text += " piece=" + std::to_string(f.piece);
    if (f.after_apply)
        text += " after-apply";
    return text;
}

int Session::commit()
{
    if (lock_fd_ < 0)
        return 0;
    int rc = 0;
    if (host_dirty_ && initialised_) {
        rc = write_bytes(state_path(dir_, "host.bin"), &host_, sizeof host_);
        if (rc == 0)
            host_dirty_ = false;
    }
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        if (!dev_dirty_[i] || !dev_[i])
            continue;
        int r = write_bytes(device_path(dir_, i), dev_[i].get(), sizeof(DeviceState));
        if (r == 0)
            dev_dirty_[i] = false;
        else
            rc = r;
    }
    if (faults_dirty_) {
        std::string text;
        for (const Fault &f : faults_) {
            text += format_fault(f);
            text += '\n';
        }
        int r = write_bytes(state_path(dir_, "faults"), text.data(), text.size());
        if (r == 0)
            faults_dirty_ = false;
        else
            rc = r;
    }
    return rc;
}

int set_journal(const std::string &dir, bool on)
{
    Session session(dir);
    std::string marker = state_path(dir, "journal.on");
    if (!on)
        return (unlink(marker.c_str()) == 0 || errno == ENOENT) ? 0 : -errno;
    return write_bytes(marker, "", 0);
}

int clear_journal(const std::string &dir)
{
    Session session(dir);
    std::string path = state_path(dir, "journal.bin");
    return (unlink(path.c_str()) == 0 || errno == ENOENT) ? 0 : -errno;
}

std::vector<JournalRecord> read_journal(const std::string &dir)
{
    // No lock: records are appended whole by one write each, and a reader inside a Session of
    // its own must not wait for itself.
    std::string bytes = read_text(state_path(dir, "journal.bin"));
    std::vector<JournalRecord> records(bytes.size() / sizeof(JournalRecord));
    if (!records.empty())
        memcpy(records.data(), bytes.data(), records.size() * sizeof(JournalRecord));
    return records;
}

int read_log_level(const std::string &dir)
{
    char buf[8] = {};
    Fd fd(open(state_path(dir, "log_level").c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        return kDefaultLogLevel;
    ssize_t n = read(fd.get(), buf, sizeof buf - 1);
    if (n <= 0 || buf[0] < '0' || buf[0] > '7')
        return kDefaultLogLevel;
    return buf[0] - '0';
}

int write_log_level(const std::string &dir, int level)
{
    if (level < 0 || level > 7)
        return -EINVAL;
    char text[4];
    snprintf(text, sizeof text, "%d\n", level);
    return write_bytes(state_path(dir, "log_level"), text, strlen(text));
}

} // namespace kopa_emu
