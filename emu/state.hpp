// The emulated host's state: the files under $KOPA_EMU_DIR, their lock, faults and the journal.
//
// Every process that touches the emulated host (the driver libraries, kopa-emu, tests) goes
// through a Session, which holds an exclusive flock on "<dir>/lock" for its lifetime and writes
// back what it changed when it ends, so concurrent processes never lose each other's updates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kopa_platform.h"

namespace kopa_emu
{

inline constexpr const char *kDefaultDir = "/tmp/kopa-emu";
inline constexpr uint32_t kMaxRoutes = 32;
inline constexpr uint32_t kGenericSlots = 16;
inline constexpr uint32_t kGenericMax = 512;
inline constexpr uint32_t kLldpMax = 1024;
inline constexpr uint32_t kFirmwareMax = 128;
inline constexpr int kDefaultLogLevel = 3;
inline constexpr uint32_t kDefaultAlarmDays = 30;
inline constexpr uint32_t kDefaultUdpPort = 4791;
inline constexpr uint32_t kDefaultMtu = 1500;
inline constexpr uint32_t kPcieBoardId = 0x0150;
inline constexpr uint32_t kDefaultFecMode = 1; ///< rs-fec
inline constexpr uint32_t kDefaultGarpPeriod = 60;

/// The state directory: $KOPA_EMU_DIR, or /tmp/kopa-emu when unset or empty.
std::string state_dir();

/// Identity and health of one device slot, as the device-id calls answer them.
struct HostDevice {
    uint32_t present;
    uint32_t phy_id;
    uint32_t health;
    uint32_t board_id;
    uint32_t net_health;
    uint32_t reserved[3];
};

/// The host table ("<dir>/host.bin"): one entry per logical id.
struct HostTable {
    uint32_t magic;
    uint32_t version;
    HostDevice dev[KOPA_MAX_DEVICES];
};

/// Stored payload of a set operation whose get returns it (DSCP map, shaping, PFC, ...).
struct GenericSlot {
    uint32_t opcode; ///< the get opcode that answers it; 0 for a free slot
    uint32_t len;
    uint8_t data[kGenericMax];
};

inline constexpr uint32_t kMaxPeers = 16;
inline constexpr uint32_t kMaxProcesses = 8;

/// How a peer address answers the device's ping and RoCE test.
enum PeerState : uint32_t {
    kPeerReachable = 0,   ///< answers every echo
    kPeerUnreachable = 1, ///< no neighbour answers for it: "unreachable"
    kPeerLossy = 2,       ///< answers but loses `loss` percent of the echoes, evenly spread
};

/// One entry of the peer table. Addresses not in it never answer (the echo times out).
struct PingPeer {
    uint32_t ip;     ///< network byte order
    uint32_t state;  ///< PeerState
    uint32_t rtt_us; ///< round trip of an answered echo
    uint32_t loss;   ///< percent, for kPeerLossy
};

/// The RoCE performance test of a device: it advances by a quarter of its iterations at each
/// status query.
struct PerftestState {
    uint32_t state;      ///< KOPA_PERFTEST_*
    uint32_t peer_ip;    ///< network byte order
    uint32_t iterations; ///< requested
    uint32_t done;       ///< iterations done
    uint32_t samples;    ///< status queries that advanced it
    uint32_t bw_last;    ///< Mbit/s of the latest sample
    uint32_t bw_min;
    uint32_t bw_max;
    uint64_t bw_sum;
};

/// Network state of one device ("<dir>/dev-<logic_id>.bin"). Addresses in network byte order.
struct DeviceState {
    uint32_t magic;
    uint32_t version;
    kopa_ip_record vnic; ///< port type 0
    kopa_ip_record roce; ///< port type 1
    uint32_t vnic_link;  ///< 0 down
    uint32_t netdetect;
    uint32_t has_gateway;
    uint32_t gateway;
    uint64_t gateway_seq; ///< orders gateway sets across a group: the newest one answers
    uint8_t mac[6];
    uint8_t pad0[2];
    uint32_t link; ///< 0 down
    uint32_t mtu;
    uint32_t udp_port;
    uint32_t cfg_status;
    uint32_t stats_cleared;
    uint32_t route_count;
    kopa_route_record routes[kMaxRoutes];
    char lldp[kLldpMax];
    char firmware[kFirmwareMax];
    uint32_t tls_switch;
    uint32_t tls_alarm_days;
    uint32_t cert_count; ///< records in `certs`; 0 means no certificates installed
    kopa_tls_cert_info certs[KOPA_TLS_CERT_INFO_MAX];
    GenericSlot generic[kGenericSlots];
    // Version 2: the ARP table, policy routing, the generic settings, FEC and gratuitous ARP.
    uint32_t arp_count;
    kopa_arp_record arp[KOPA_ARP_MAX]; ///< keyed by port and address
    uint32_t rule_count;
    kopa_ip_rule_record rules[KOPA_POLICY_MAX]; ///< keyed by every field
    uint32_t ip_route_count;
    kopa_ip_route_record ip_routes[KOPA_POLICY_MAX]; ///< keyed by every field but `via`
    uint32_t static_speed;                           ///< Mbit/s; 0: none set
    uint32_t auto_adapt;                             ///< optical auto-adaptation, 0 off
    uint32_t fec_mode;                               ///< 0 off, 1 rs-fec, 2 base-r fec
    uint32_t garp_period;                            ///< gratuitous ARP period, seconds
    uint32_t garp_status;                            ///< gratuitous ARP switch, 0 off
    // Version 3: diagnostics (emu/diag_state.cpp).
    uint32_t duplex;        ///< 0 half, 1 full
    uint32_t link_flaps;    ///< times the link went down
    uint64_t link_change;   ///< seconds since the epoch of the last link change
    uint64_t stat_up_ns;    ///< link-up time the counters have grown over since their clear
    uint64_t stat_stamp_ns; ///< when stat_up_ns was brought up to date (realtime clock)
    kopa_optical_info optical;
    uint32_t pci_speed; ///< PCIe generation the link trained at
    uint32_t pci_width; ///< lanes the link trained at
    uint32_t peer_count;
    PingPeer peers[kMaxPeers]; ///< keyed by address
    uint32_t process_count;
    kopa_process_record processes[kMaxProcesses];
    PerftestState perftest;
    uint32_t cdr_captures; ///< CDR captures triggered
};

/// Options of a fresh emulated host.
struct InitOptions {
    uint32_t devices = 8;
    bool pcie = false;
    std::vector<uint32_t> phy_ids; ///< physical id of each logical id; empty: the logical id
};

/// Defaults of device `logic_id` on a freshly initialised host.
DeviceState default_device(uint32_t logic_id);

/// What a reset leaves of device `logic_id`: every setting back to its default (addresses but
/// the vNIC's, gateway, routes, MTU, MAC, link, UDP port, QoS state, ARP table, policy rules and
/// routes, generic settings, FEC, gratuitous ARP, cfg status 0), no process and no RoCE test.
/// The vNIC towards the host, the LLDP and firmware texts, the TLS records, the statistics, the
/// optical module, the PCIe link, the duplex and the peer table stay (the link flaps count from
/// the reset); so do presence, ids, health and board, which live in the host table.
DeviceState reset_device(const DeviceState &old, uint32_t logic_id);

/// Creates `dir` (and parents) and writes a fresh host; earlier state, faults, journal, keys and
/// the driver log are removed. Returns 0 or a negative errno value.
[[nodiscard]] int init_host(const std::string &dir, const InitOptions &options);

/// What a fault forces.
enum class FaultKind : uint32_t {
    kResult = 0,   ///< firmware result of a command: a refusal without data
    kFunction = 1, ///< return value of a library function
    kFrag = 2,     ///< `frag` of a reply record
    kRspLen = 3,   ///< *rsp_len written back by the channel call
    kDataLen = 4,  ///< `data_len` of a reply record
    kShort = 5,    ///< the reply keeps only its first `value` payload bytes
    kGarble = 6,   ///< the reply's payload bytes become non-zero pseudo-random bytes
    kDelay = 7,    ///< the call sleeps `value` ms, with the state unlocked
};
inline constexpr size_t kFaultKinds = 8;

inline constexpr uint32_t kAnyOpcode = 0xFFFFFFFFu;
/// The library function that carries the channel; the faults of commands hit its calls.
inline constexpr std::string_view kChannelCall = "kopa_cmd_get_network_device_info";

/// One injected fault, kept in "<dir>/faults".
struct Fault {
    FaultKind kind = FaultKind::kResult;
    uint32_t opcode = kAnyOpcode; ///< command it hits; kAnyOpcode matches any
    std::string function;         ///< library function it hits; empty: the channel call
    int64_t value = 0;            ///< forced result / return / frag / length / milliseconds
    int32_t remaining = -1;       ///< uses left; -1 for every call
    uint32_t piece = 0;           ///< reply record of a command it hits (1-based); 0: default
    bool after_apply = false;     ///< kResult, kFunction, kDelay: once the call has done its work
};

/// When a call looks up its faults: before the firmware (or library function) acts, or after,
/// on the reply it built.
enum class FaultStage : uint32_t { kBefore, kAfter };

/// One place a fault can hit: a library call, and for the channel call one reply record.
struct FaultSite {
    std::string_view function;    ///< the library function being called
    uint32_t opcode = kAnyOpcode; ///< channel: opcode of the request
    uint32_t piece = 0;           ///< channel: position of the reply in its command; 0 unknown
    bool answer = true; ///< this reply carries the call's answer (channel: the command ran)
    FaultStage stage = FaultStage::kBefore;
};

/// Whether `fault` hits `site`. The one rule for every kind:
/// - the function (channel call unless named), the opcode (unless any) and the stage match;
///   reply faults (frag, rsp-len, data-len, short, garble) and after-apply faults act after;
/// - with a piece, only that reply record; without one, reply and after-apply faults hit the
///   reply that carries the answer, a result the first packet, function and delay faults
///   every call.
bool fault_hits(const Fault &fault, const FaultSite &site);

/// The values the faults hitting one site force, at most one per kind.
struct FaultHits {
    std::optional<int64_t> value[kFaultKinds];
    const std::optional<int64_t> &operator[](FaultKind kind) const
    {
        return value[static_cast<size_t>(kind)];
    }
};

/// One call of kopa_cmd_get_network_device_info: the request header and what it answered.
struct JournalRecord {
    uint32_t logic_id;
    uint32_t opcode;
    uint32_t frag;
    uint32_t direction;
    uint32_t size_in;
    uint32_t size_out;
    uint32_t copy_size;
    uint32_t tgid;
    uint32_t client_pid;
    int32_t ret;      ///< return value of the call
    uint32_t rsp_len; ///< *rsp_len after the call
    int32_t result;   ///< reply header
    uint32_t rsp_frag;
    uint32_t data_len;
};

/// An exclusive hold on the state directory, with the files loaded on demand and written back
/// (only those changed) by commit() or the destructor. One at a time per process: a second
/// Session of the same process waits for the first like any other process would.
class Session
{
  public:
    /// Locks `dir`; a directory that does not exist or holds no host table is uninitialised.
    explicit Session(std::string dir = state_dir());
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /// True when the directory holds a host table.
    bool initialised() const { return initialised_; }
    const std::string &dir() const { return dir_; }

    /// The host table; call mark_host_dirty() after changing it.
    HostTable &host() { return host_; }
    void mark_host_dirty() { host_dirty_ = true; }

    /// 0 when `logic_id` names a present device; -22 out of range, -19 not present.
    int check_device(uint32_t logic_id) const;
    /// The network state of a present device, loaded on first use (nullptr when absent).
    DeviceState *device(uint32_t logic_id);
    void mark_device_dirty(uint32_t logic_id) { dev_dirty_[logic_id % KOPA_MAX_DEVICES] = true; }
    /// Logical id of the present device with physical id `phy_id`, or -19.
    int logic_of_phy(uint32_t phy_id) const;
    /// Logical ids of the present devices that share a gateway group with `logic_id`.
    std::vector<uint32_t> group_of(uint32_t logic_id) const;

    /// The injected faults (loaded on first use); call mark_faults_dirty() after changing them.
    std::vector<Fault> &faults();
    void mark_faults_dirty() { faults_dirty_ = true; }
    /// Consumes one use of the first fault of each kind that hits `site`.
    FaultHits take_faults(const FaultSite &site);

    /// Writes back what changed, lets go of the lock for `ms` milliseconds and takes it again;
    /// the state is then read afresh, so pointers from device() and faults() are stale.
    /// Returns the result of the write-back.
    int sleep_unlocked(uint32_t ms);

    /// Whether the journal records channel calls (the marker file "<dir>/journal.on").
    bool journal_enabled() const;
    void journal_append(const JournalRecord &record);

    /// Writes every changed file back; returns 0 or a negative errno value.
    [[nodiscard]] int commit();

  private:
    /// Takes the lock and reads the host table; forgets the devices and faults read before.
    void lock_and_load();

    std::string dir_;
    int lock_fd_ = -1;
    bool initialised_ = false;
    HostTable host_{};
    bool host_dirty_ = false;
    std::unique_ptr<DeviceState> dev_[KOPA_MAX_DEVICES];
    bool dev_dirty_[KOPA_MAX_DEVICES] = {};
    std::vector<Fault> faults_;
    bool faults_loaded_ = false;
    bool faults_dirty_ = false;
};

/// Path of a file in the state directory.
std::string state_path(const std::string &dir, std::string_view name);

/// Text form of a fault, one line as `kopa-emu fault list` prints it.
std::string format_fault(const Fault &fault);

/// Turns the journal on or off; clear empties it. Return 0 or a negative errno value.
[[nodiscard]] int set_journal(const std::string &dir, bool on);
[[nodiscard]] int clear_journal(const std::string &dir);
/// Every journal record, oldest first.
std::vector<JournalRecord> read_journal(const std::string &dir);

/// The configured driver-log level (0..7); kDefaultLogLevel when none was set.
int read_log_level(const std::string &dir);
[[nodiscard]] int write_log_level(const std::string &dir, int level);

/// Path of the envelope key pair of a device (PEM private key).
std::string envelope_key_path(const std::string &dir, uint32_t logic_id);

/// True when `board_id` is a PCIe accelerator card (each device stands alone).
constexpr bool is_pcie_board(uint32_t board_id)
{
    return board_id >= KOPA_BOARD_PCIE_MIN && board_id <= KOPA_BOARD_PCIE_MAX;
}

} // namespace kopa_emu
