/* The driver ABI: libdrvkopa_host.so (device management) and libkelvar_hal.so (driver services
 * and the driver log), plus the records and opcodes of every firmware operation that travels
 * through kopa_cmd_get_network_device_info.
 *
 * This is the one header that names the driver libraries. The tool, the emulator and any
 * ABI-compatible implementation agree on it byte for byte: every record is little-endian and
 * packed, IPv4 addresses are 32-bit values in network byte order. */
#ifndef VORN_PLATFORM_KOPA_PLATFORM_H
#define VORN_PLATFORM_KOPA_PLATFORM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KOPA_MAX_DEVICES 16

/** Port types of kopa_get/set_device_ip_address. */
#define KOPA_PORT_TYPE_VNIC 0 /**< virtual NIC towards the host (host link) */
#define KOPA_PORT_TYPE_ROCE 1 /**< RoCE network port */

/** Device health values of kopa_get_device_health. */
#define KOPA_HEALTH_OK 0u
#define KOPA_HEALTH_MINOR 1u
#define KOPA_HEALTH_MAJOR 2u
#define KOPA_HEALTH_CRITICAL 3u
#define KOPA_HEALTH_GONE 0xFFFFFFFFu

/** Board ids from 0x0100 to 0x01FF are PCIe accelerator cards; any other is a server board. */
#define KOPA_BOARD_PCIE_MIN 0x0100u
#define KOPA_BOARD_PCIE_MAX 0x01FFu

/** Firmware results with a meaning the tool relies on. */
#define KOPA_RESULT_EPERM (-13)        /**< caller lacks permission, on any operation */
#define KOPA_RESULT_NOENT (-2)         /**< no gateway / absent route / no certificates */
#define KOPA_RESULT_TLS_ILLEGAL (-100) /**< TLS suite illegal (key or pass phrase) */
#define KOPA_RESULT_ROUTE_FULL 5000    /**< route table full */

struct kopa_ip_record { /* 8 bytes */
    uint32_t address;   /* network byte order */
    uint32_t netmask;   /* network byte order */
};

/* ---- libdrvkopa_host.so ------------------------------------------------------------------ */

int kopa_get_device_count(int *count);
int kopa_list_device(int *logic_ids, int count);
int kopa_get_logicid_from_phyid(unsigned int phy_id, unsigned int *logic_id);
int kopa_get_phyid_from_logicid(unsigned int logic_id, unsigned int *phy_id);
int kopa_get_device_health(unsigned int logic_id, unsigned int *health);
int kopa_get_board_id(unsigned int logic_id, unsigned int *board_id);
int kopa_get_network_health(unsigned int logic_id, unsigned int *status);
int kopa_get_device_ip_address(unsigned int logic_id, int port_type, int port_id,
                               struct kopa_ip_record *record);
int kopa_set_device_ip_address(unsigned int logic_id, int port_type, int port_id,
                               const struct kopa_ip_record *record);
int kopa_cmd_get_network_device_info(unsigned int logic_id, void *req, unsigned int req_len,
                                     void *rsp, unsigned int *rsp_len);

/* ---- libkelvar_hal.so --------------------------------------------------------------------- */

#define KELVAR_LOG_TYPE_DRV 10   /**< log type of every driver-log line of the tool */
#define KELVAR_MODULE_DEVMGMT 17 /**< the device-management module */
#define KELVAR_LEVEL_ERROR 3
#define KELVAR_LEVEL_WARNING 4
#define KELVAR_LEVEL_DEBUG 6

unsigned int kelvar_get_bare_tgid(void);
int kelvar_log_get_level(void);
const char *kelvar_log_get_level_str(int level);
const char *kelvar_log_get_time_str(void);
const char *kelvar_log_get_module_str(int module_id);
void kelvar_log_print(int log_type, int level, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));

/* ---- Channel records ------------------------------------------------------------------------ */

#define KOPA_PKT_PAYLOAD 2000u
#define KOPA_REQ_SIZE 2044u
#define KOPA_RSP_SIZE 2028u

#define KOPA_FRAG_WHOLE 0u
#define KOPA_FRAG_FIRST 1u
#define KOPA_FRAG_MIDDLE 2u
#define KOPA_FRAG_LAST 3u

#define KOPA_DIR_SEND 0u
#define KOPA_DIR_FETCH 1u

#pragma pack(push, 1)

struct ds_req { /* 2044 bytes */
    uint32_t logic_id;
    uint32_t reserved0;
    uint32_t opcode;
    uint32_t frag;
    uint32_t direction;
    uint32_t size_in;   /* payload length of the whole command */
    uint32_t size_out;  /* caller's output capacity at the start of the command */
    uint32_t copy_size; /* payload bytes in this packet */
    uint32_t tgid;
    uint32_t reserved1;
    uint32_t client_pid;
    uint8_t info[KOPA_PKT_PAYLOAD];
};

struct ds_rsp { /* 2028 bytes */
    uint32_t reserved0;
    int32_t result;
    uint32_t reserved1;
    uint32_t frag;
    uint32_t data_len;
    uint32_t reserved2[2];
    uint8_t info[KOPA_PKT_PAYLOAD];
};

/* ---- Operation records (offsets in bytes, all packed) ------------------------------------ */

struct kopa_gateway_record { /* 12: set/delete request, get reply */
    uint32_t port;           /* request: port id 0; reply: physical id holding the gateway */
    uint32_t gateway;        /* network byte order */
    uint32_t reserved;
};

struct kopa_mac_record { /* 6 */
    uint8_t mac[6];      /* first octet first */
};

struct kopa_link_set_record { /* 4 */
    uint8_t port_id;
    uint8_t state; /* 0 down */
    uint16_t reserved;
};

struct kopa_mtu_record { /* 5: set request and get reply */
    uint8_t port_id;
    uint32_t mtu;
};

struct kopa_route_record { /* 12 */
    uint32_t destination;  /* network byte order */
    uint32_t netmask;
    uint32_t gateway;
};

struct kopa_roce_port_record { /* 6: set request and get reply */
    uint16_t port_id;
    uint32_t udp_port;
};

struct kopa_cfg_status_record { /* 8: set request, get request and reply */
    uint32_t port_id;
    uint32_t status; /* get request: reserved */
};

struct kopa_port_value_record { /* 8: tls enable / tls alarm */
    uint32_t port_id;
    uint32_t value;
};

#define KOPA_ENVELOPE_KEY_MAX 2048u
struct kopa_envelope_pub_key { /* 2052 */
    uint32_t key_len;
    char key[KOPA_ENVELOPE_KEY_MAX]; /* PEM "BEGIN PUBLIC KEY" block */
};

/* The TLS configuration record (58040 bytes); offsets of the fields the tool fills. */
#define TLS_CFG_SIZE 58040u
#define TLS_CFG_OFF_CERT_COUNT 8u
#define TLS_CFG_OFF_CRL_LEN 28u
#define TLS_CFG_OFF_KEY_LEN 32u
#define TLS_CFG_OFF_CERT_LEN 92u /* + 4 * i, i = 0..14 */
#define TLS_CFG_OFF_CERT_TOTAL 152u
#define TLS_CFG_OFF_PWD_LEN 164u
#define TLS_CFG_OFF_PWD_ENC_LEN 168u
#define TLS_CFG_OFF_HOST 988u
#define TLS_CFG_OFF_IV 992u
#define TLS_CFG_OFF_TAG 1008u
#define TLS_CFG_OFF_KEY 1188u
#define TLS_CFG_KEY_MAX 5120u
#define TLS_CFG_OFF_CERT 6308u /* + 2048 * i, i = 0..14 */
#define TLS_CFG_CERT_MAX 2048u
#define TLS_CFG_CERT_SLOTS 15u
#define TLS_CFG_OFF_CRL 37028u
#define TLS_CFG_CRL_MAX 20480u
#define TLS_CFG_OFF_PWD 57508u
#define TLS_CFG_PWD_MAX 16u
#define TLS_CFG_OFF_SYMM_LEN 57524u
#define TLS_CFG_OFF_SYMM_KEY 57528u
#define TLS_CFG_SYMM_KEY_MAX 512u

struct kopa_tls_cert_info { /* 124: one stored item, as a query returns it */
    uint32_t alarm_days;
    uint32_t tls_switch; /* 0 disabled, 1 enabled */
    char issuer[64];     /* OpenSSL one-line DN */
    char start_time[26]; /* asctime form without the newline, UTC */
    char end_time[26];
};
#define KOPA_TLS_CERT_INFO_MAX 16u

/* Records of the remaining operations: the project's own layouts. */

struct kopa_dscp_map_set { /* 8 */
    uint8_t dscp;          /* 0..63 */
    uint8_t tc;            /* 0..7 */
    uint8_t reserved[6];
};
struct kopa_dscp_map { /* 64: traffic class of each DSCP value */
    uint8_t tc[64];
};

struct kopa_shaping_set { /* 4 */
    uint32_t bw_limit;    /* Mbit/s */
};
struct kopa_shaping_info { /* 28 */
    uint32_t bw_limit;
    uint32_t max_bw;
    uint32_t reserved[5];
};

struct kopa_fec_set { /* 1 */
    uint8_t mode;
};
struct kopa_u32_value { /* 4: speed, duplex, fec, vnic link, link state, tc used */
    uint32_t value;
};

struct kopa_pfc_info { /* 8 */
    uint8_t bitmap;    /* one bit per priority */
    uint8_t reserved[7];
};

struct kopa_tc_cfg_set { /* 64 */
    uint32_t tc_bw[8];   /* percent per traffic class */
    uint32_t tc_mode[8]; /* 0 strict, 1 weighted */
};
struct kopa_tc_cfg_info { /* 96 */
    uint32_t tc_bw[8];
    uint32_t tc_mode[8];
    uint32_t tc_buf[8];
};

struct kopa_prio_tc_info { /* 8 */
    uint8_t tc_of_prio[8];
};

struct kopa_garp_info { /* 46 */
    uint32_t port_id;
    uint32_t period; /* seconds */
    uint32_t status; /* 0 off, 1 on */
    uint8_t mac[6];
    uint32_t ip;
    uint8_t reserved[24];
};

/* Static speed and optical auto-adaptation (the generic settings). */
struct kopa_generic_set { /* 8: set_generic_info */
    uint32_t type;        /* 1: static speed */
    uint32_t value;       /* Mbit/s */
};
#define KOPA_GENERIC_STATIC_SPEED 1u
struct kopa_auto_adapt_set { /* 4: set_optical_auto_adapt */
    uint32_t enable;         /* 0 off, 1 on */
};
struct kopa_generic_info { /* 8: get_generic_info */
    uint32_t static_speed; /* Mbit/s; 0 when none was set */
    uint32_t auto_adapt;   /* 0 off, 1 on */
};

/* ARP table of the RoCE port. A get answers up to KOPA_ARP_MAX records; an add of a present
 * address replaces its MAC; a delete of an absent one is result -2; a full table is 5000. */
struct kopa_arp_record { /* 16 */
    uint32_t dev;        /* eth port, 0..7 */
    uint32_t ip;         /* network byte order */
    uint8_t mac[6];
    uint8_t reserved[2];
};
#define KOPA_ARP_MAX 64u

/* Policy routing: rules select a routing table by source ("from") or destination ("to")
 * prefix; routes of a table go through a gateway ("via") on an eth port. Adds of a present
 * rule or route (the same fields but the gateway) replace it; deletes of absent ones are -2; a
 * full list is 5000. Gets answer up to KOPA_POLICY_MAX records. */
struct kopa_ip_rule_record { /* 16 */
    uint32_t dir;            /* 0 from, 1 to */
    uint32_t ip;             /* network byte order */
    uint32_t mask_bits;      /* 0..32 */
    uint32_t table;          /* 0..255 */
};
struct kopa_ip_route_record { /* 20 */
    uint32_t ip;              /* destination, network byte order */
    uint32_t mask_bits;       /* 0..32 */
    uint32_t via;             /* gateway, network byte order */
    uint32_t dev;             /* eth port, 0..7 */
    uint32_t table;           /* 0..255 */
};
#define KOPA_POLICY_MAX 32u

#define KOPA_OPTICAL_INFO_SIZE 156u
#define KOPA_NETDEV_STAT_SIZE 376u /* 47 u64 counters */

/* ---- Diagnostics and statistics ---------------------------------------------------------- */

/* The port's packet counters (get_netdev_stat), in record order: 47 u64 values that count up
 * from the last clear_netdev_stat. X(name) once per counter. */
/* clang-format off */
#define KOPA_NETDEV_STAT_COUNTERS(X) \
    X(rx_packets) X(tx_packets) X(rx_bytes) X(tx_bytes) \
    X(rx_unicast) X(tx_unicast) X(rx_multicast) X(tx_multicast) \
    X(rx_broadcast) X(tx_broadcast) X(rx_errors) X(tx_errors) \
    X(rx_dropped) X(tx_dropped) X(rx_crc_errors) X(rx_length_errors) \
    X(rx_undersize) X(rx_oversize) X(rx_fragments) X(rx_jabbers) \
    X(rx_fifo_errors) X(tx_fifo_errors) X(rx_pause) X(tx_pause) \
    X(rx_pfc_prio0) X(rx_pfc_prio1) X(rx_pfc_prio2) X(rx_pfc_prio3) \
    X(rx_pfc_prio4) X(rx_pfc_prio5) X(rx_pfc_prio6) X(rx_pfc_prio7) \
    X(tx_pfc_prio0) X(tx_pfc_prio1) X(tx_pfc_prio2) X(tx_pfc_prio3) \
    X(tx_pfc_prio4) X(tx_pfc_prio5) X(tx_pfc_prio6) X(tx_pfc_prio7) \
    X(rx_fec_corrected) X(rx_fec_uncorrected) X(rx_symbol_errors) X(roce_rx_packets) \
    X(roce_tx_packets) X(roce_rx_cnp) X(roce_tx_cnp)
/* clang-format on */

struct kopa_netdev_stat { /* 376 */
#define KOPA_NETDEV_STAT_FIELD(name) uint64_t name;
    KOPA_NETDEV_STAT_COUNTERS(KOPA_NETDEV_STAT_FIELD)
#undef KOPA_NETDEV_STAT_FIELD
};

/* The optical module in the port's cage (get_optical_info). Readings and thresholds are in the
 * units of the modules' own diagnostic pages: temperature in 1/256 degree C (signed), supply
 * voltage in 100 uV, laser bias in 2 uA, optical power in 0.1 uW. Texts are padded with blanks
 * and need not be terminated. */
#define KOPA_OPTICAL_LANES 4u
struct kopa_optical_limits { /* 8: one reading's thresholds */
    uint16_t high_alarm;
    uint16_t high_warning;
    uint16_t low_warning;
    uint16_t low_alarm;
};
struct kopa_optical_temp_limits { /* 8: the temperature's thresholds */
    int16_t high_alarm;
    int16_t high_warning;
    int16_t low_warning;
    int16_t low_alarm;
};
struct kopa_optical_info { /* 156 */
    uint8_t present;       /* 0: the cage is empty, nothing else is valid */
    uint8_t identifier;    /* module type: 0x03 SFP, 0x0D QSFP+, 0x11 QSFP28, 0x18 QSFP-DD, ... */
    uint8_t lanes;         /* channels in use, 1..4 */
    uint8_t reserved0;
    char vendor[16];
    char part_number[16];
    char serial[16];
    int16_t temperature;
    uint16_t voltage;
    uint16_t bias[KOPA_OPTICAL_LANES];
    uint16_t tx_power[KOPA_OPTICAL_LANES];
    uint16_t rx_power[KOPA_OPTICAL_LANES];
    struct kopa_optical_temp_limits temperature_limits;
    struct kopa_optical_limits voltage_limits;
    struct kopa_optical_limits bias_limits;
    struct kopa_optical_limits tx_power_limits;
    struct kopa_optical_limits rx_power_limits;
    uint8_t reserved1[36];
};

/* Port status (get_netdev_status, caller-given length: the record). */
struct kopa_netdev_status { /* 40 */
    uint32_t link;          /* 0 down, 1 up */
    uint32_t speed;         /* Mbit/s; 0 while down */
    uint32_t duplex;        /* 0 half, 1 full */
    uint32_t fec_mode;      /* 0 off, 1 rs-fec, 2 base-r fec */
    uint32_t mtu;
    uint32_t autoneg;    /* 0 off, 1 on */
    uint32_t link_flaps; /* times the link went down since the device started */
    uint32_t reserved;
    uint64_t last_change; /* seconds since the epoch of the last link change; 0 none */
};

/* PCIe function of the device (get_pci_info, caller-given length: the record). Link speeds
 * are PCIe generations 1..6 (2.5, 5, 8, 16, 32, 64 GT/s). */
struct kopa_pci_info { /* 32 */
    uint16_t domain;
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint8_t reserved0[3];
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t subsystem_vendor_id;
    uint16_t subsystem_id;
    uint8_t link_speed; /* generation the link trained at */
    uint8_t link_width; /* lanes the link trained at */
    uint8_t max_link_speed;
    uint8_t max_link_width;
    uint8_t reserved1[12];
};

/* Processes that use the device (get_device_process): as many whole records as run, at most
 * the caller's buffer. */
struct kopa_process_record { /* 40 */
    uint32_t pid;
    uint32_t memory_mb; /* device memory in use, MiB */
    char name[32];      /* need not be terminated */
};
#define KOPA_PROCESS_MAX 32u

/* Queue pair context of the RoCE engine (get_roce_context: the 8-byte query, the record). */
struct kopa_roce_context_query { /* 8 */
    uint32_t qpn;                /* 0 .. 0xFFFFFF */
    uint32_t reserved;
};
struct kopa_roce_qp_context { /* 64 */
    uint32_t qpn;
    uint32_t state; /* 0 RESET, 1 INIT, 2 RTR, 3 RTS, 4 SQD, 5 SQE, 6 ERR */
    uint32_t type;  /* 0 RC, 1 UC, 2 UD, 3 GSI */
    uint32_t dest_qpn;
    uint32_t dest_ip;  /* network byte order */
    uint32_t path_mtu; /* bytes, 256 .. 4096 */
    uint32_t sq_psn;   /* next packet sequence number sent */
    uint32_t rq_psn;   /* next packet sequence number expected */
    uint32_t sq_depth; /* work requests */
    uint32_t rq_depth;
    uint32_t sq_head;     /* producer index of the send queue */
    uint32_t sq_tail;     /* consumer index of the send queue */
    uint32_t retry_count; /* 0 .. 7 */
    uint32_t rnr_retry;   /* 0 .. 7 */
    uint8_t traffic_class;
    uint8_t priority; /* 0 .. 7 */
    uint8_t hop_limit;
    uint8_t reserved0;
    uint32_t reserved1;
};
#define KOPA_QPN_MAX 0xFFFFFFu

/* Ethernet registers: the dump of get_eth_reg_info (as many records as the block holds, at
 * most the caller's buffer) and one value by offset (get_network_register: u32 offset in, u32
 * value out). */
struct kopa_reg_record { /* 8 */
    uint32_t offset;
    uint32_t value;
};

/* Back-pressure state of the port's scheduler (get_ssu_reg, caller-given length: the record). */
struct kopa_backpressure_info {    /* 72 */
    uint32_t port_paused;          /* 1 while the port's transmission is held by the link partner */
    uint32_t prio_paused;          /* bit i: priority i is held */
    uint64_t prio_pause_frames[8]; /* pause frames received per priority */
};

/* Port self-check (get_eth_test_info: u8 test type in, the record out). */
#define KOPA_ETH_TEST_ALL 0u
#define KOPA_ETH_TEST_ITEMS 6u /* register, mac loopback, serdes loopback, link, optical, pcs */
struct kopa_eth_test_info {    /* 28 */
    uint32_t items;            /* items tested */
    uint32_t result[KOPA_ETH_TEST_ITEMS]; /* 0 pass, 1 fail, 2 not run */
};

/* Ping from the device (ping_fun): one echo request per call; the device waits for the reply
 * at most `timeout_ms`. */
struct kopa_ping_req { /* 16 */
    uint32_t dst_ip;   /* network byte order */
    uint32_t size;     /* payload bytes */
    uint32_t seq;      /* sequence number, from 1 */
    uint32_t timeout_ms;
};
#define KOPA_PING_REPLY 0u       /* an echo reply came back */
#define KOPA_PING_TIMEOUT 1u     /* nothing came back in time */
#define KOPA_PING_UNREACHABLE 2u /* the destination is unreachable (no neighbour answered) */
struct kopa_ping_reply {         /* 16 */
    uint32_t status;
    uint32_t rtt_us; /* round trip of a reply, microseconds */
    uint32_t ttl;
    uint32_t bytes; /* bytes of the reply */
};

/* RoCE performance test: started with the peer and the iterations; the status, report and
 * stop take the 4-byte query. A start while a test runs is -16; a report before any test, and
 * a stop without a running test, are -2. */
#define KOPA_PERFTEST_ITER_MIN 5u
#define KOPA_PERFTEST_ITER_MAX 20000u
struct kopa_roce_perftest_req { /* 16 */
    uint32_t port_id;
    uint32_t peer_ip;    /* network byte order */
    uint32_t iterations; /* 5 .. 20000 */
    uint32_t reserved;
};
struct kopa_roce_perftest_query { /* 4 */
    uint32_t port_id;
};
#define KOPA_PERFTEST_IDLE 0u
#define KOPA_PERFTEST_RUNNING 1u
#define KOPA_PERFTEST_DONE 2u
#define KOPA_PERFTEST_STOPPED 3u
#define KOPA_PERFTEST_FAILED 4u    /* the peer did not answer */
struct kopa_roce_perftest_status { /* 10 */
    uint8_t state;
    uint8_t percent; /* of the iterations done */
    uint32_t iterations_done;
    uint32_t bandwidth; /* Mbit/s of the latest sample; 0 before the first */
};
struct kopa_roce_perftest_report { /* 40: caller-given length */
    uint32_t state;
    uint32_t peer_ip; /* network byte order */
    uint32_t iterations;
    uint32_t iterations_done;
    uint32_t msg_size; /* bytes per message */
    uint32_t samples;
    uint32_t bw_min; /* Mbit/s over the samples */
    uint32_t bw_avg;
    uint32_t bw_max;
    uint32_t reserved;
};

/* Clock-data-recovery diagnostics. trig_query_cdr_info takes the 8-byte trigger and answers 8
 * bytes; get_cdr_reg_info reads up to 118 registers of one lane; query_mac_lane_cdr_info
 * answers the CDR state of each MAC lane. */
#define KOPA_CDR_TRIG_REG 0u     /* capture the CDR registers of the lanes */
#define KOPA_CDR_TRIG_EXT_LOG 1u /* capture the extended CDR log */
struct kopa_cdr_trigger {        /* 8 */
    uint32_t type;
    uint32_t lane_mask; /* bit i: lane i */
};
struct kopa_cdr_trigger_reply { /* 8 */
    uint32_t lanes;             /* lanes captured */
    uint32_t capture;           /* sequence number of the capture */
};
#define KOPA_CDR_REGS_MAX 118u
struct kopa_cdr_reg_block { /* 480: request (addresses) and reply (values) */
    uint32_t lane;
    uint32_t count;                  /* registers used, 1 .. 118 */
    uint32_t reg[KOPA_CDR_REGS_MAX]; /* request: addresses; reply: values */
};
struct kopa_cdr_lane_info { /* 28 */
    uint32_t locked;        /* 1 while the CDR holds lock */
    uint32_t loss_of_lock;  /* times it lost lock */
    int32_t freq_offset_ppm;
    uint32_t eye_height_mv;
    uint32_t eye_width_mui; /* milli unit intervals */
    uint32_t snr_centi_db;  /* signal to noise, 0.01 dB */
    uint32_t reserved;
};
struct kopa_mac_lane_cdr_info { /* 120 */
    uint32_t lanes;             /* lanes in use, 1..4 */
    uint32_t reserved;
    struct kopa_cdr_lane_info lane[4];
};

#pragma pack(pop)

/* ---- Operation catalogue ------------------------------------------------------------------------
 * X(name, opcode, size_in, size_out); KOPA_SIZE_CALLER marks a length given by the caller. */
#define KOPA_SIZE_CALLER 0xFFFFFFFFu

#define KOPA_OPERATIONS(X)                                                                         \
    X(set_net_detect_ip_address, 0x01, 4, 0)                                                       \
    X(get_net_detect_ip_address, 0x22, 0, 4)                                                       \
    X(set_default_gateway_address, 0x03, 12, 0)                                                    \
    X(del_default_gateway_address, 0x04, 12, 0)                                                    \
    X(get_default_gateway_address, 0x05, 0, 12)                                                    \
    X(lldp_get_neighbor_info, 0x02, 0, 2000)                                                       \
    X(get_mac_address, 0x06, 0, 6)                                                                 \
    X(set_mac_address, 0x0B, 6, 0)                                                                 \
    X(set_netdev_link, 0x07, 4, 0)                                                                 \
    X(get_netdev_link, 0x08, 0, 4)                                                                 \
    X(set_mtu, 0x09, 5, 0)                                                                         \
    X(get_mtu, 0x0A, 0, 5)                                                                         \
    X(set_dscp_map, 0x0C, 8, 0)                                                                    \
    X(get_dscp_map, 0x0D, 0, 64)                                                                   \
    X(set_port_shaping, 0x15, 4, 0)                                                                \
    X(get_port_shaping, 0x16, 0, 28)                                                               \
    X(get_route_table, 0x0F, 0, KOPA_SIZE_CALLER)                                                  \
    X(add_route_table, 0x1D, 12, KOPA_SIZE_CALLER)                                                 \
    X(del_route_table, 0x1E, 12, KOPA_SIZE_CALLER)                                                 \
    X(get_pci_info, 0x10, 0, KOPA_SIZE_CALLER)                                                     \
    X(get_roce_context, 0x11, 8, KOPA_SIZE_CALLER)                                                 \
    X(get_eth_reg_info, 0x12, 0, KOPA_SIZE_CALLER)                                                 \
    X(get_network_register, 0x23, 4, KOPA_SIZE_CALLER)                                             \
    X(get_optical_info, 0x13, 0, 156)                                                              \
    X(get_netdev_stat, 0x14, 0, 376)                                                               \
    X(get_tls_cfg, 0x18, 0, KOPA_SIZE_CALLER)                                                      \
    X(clear_netdev_stat, 0x21, 0, 0)                                                               \
    X(set_tls_cfg, 0x17, 58040, 0)                                                                 \
    X(clear_tls_cfg, 0x24, 4, 0)                                                                   \
    X(set_tls_enable, 0x19, 8, 0)                                                                  \
    X(set_tls_alarm, 0x1A, 8, 0)                                                                   \
    X(get_firmware_version, 0x1C, 0, KOPA_SIZE_CALLER)                                             \
    X(get_device_process, 0x20, 0, KOPA_SIZE_CALLER)                                               \
    X(get_vnic_status, 0x1F, 0, 4)                                                                 \
    X(get_tls_digital_envelope_pub_ky, 0x25, 0, 2052)                                              \
    X(set_roce_port, 0x26, 6, 0)                                                                   \
    X(get_roce_port, 0x27, 0, 6)                                                                   \
    X(set_cfg_status, 0x28, 8, 0)                                                                  \
    X(get_cfg_status, 0x29, 8, 8)                                                                  \
    X(get_netdev_status, 0x2A, 0, KOPA_SIZE_CALLER)                                                \
    X(set_generic_info, 0x2B, KOPA_SIZE_CALLER, 0)                                                 \
    X(get_link_his_stat, 0x2C, 0, KOPA_SIZE_CALLER)                                                \
    X(clear_link_his_stat, 0x2D, 0, 0)                                                             \
    X(get_roce_dfx_len, 0x2E, 0, KOPA_SIZE_CALLER)                                                 \
    X(get_roce_dfx_data, 0x2F, 4, KOPA_SIZE_CALLER)                                                \
    X(get_roce_perftest_status, 0x82, KOPA_SIZE_CALLER, 10)                                        \
    X(get_roce_perftest_report, 0x83, KOPA_SIZE_CALLER, KOPA_SIZE_CALLER)                          \
    X(stop_roce_perftest, 0x84, KOPA_SIZE_CALLER, 0)                                               \
    X(reset_roce_perftest, 0x100, 0, 2000)                                                         \
    X(get_eth_speed, 0x85, 0, 4)                                                                   \
    X(get_eth_duplex, 0x86, 0, 4)                                                                  \
    X(get_ssu_reg, 0x87, 0, KOPA_SIZE_CALLER)                                                      \
    X(get_serdes_ctle_info, 0x88, 0, 230)                                                          \
    X(get_serdes_dfe_info, 0x89, 0, 160)                                                           \
    X(get_serdes_ffe_info, 0x90, 0, 50)                                                            \
    X(get_fec_info, 0x91, 0, 4)                                                                    \
    X(set_fec_info, 0x103, 1, 0)                                                                   \
    X(get_pcs_info, 0x92, 0, 904)                                                                  \
    X(get_adapt_status_info, 0x99, 4, 144)                                                         \
    X(trig_query_cdr_info, 0x95, KOPA_SIZE_CALLER, 8)                                              \
    X(query_mac_lane_cdr_info, 0x96, 0, 120)                                                       \
    X(get_cdr_reg_info, 0x97, 480, 480)                                                            \
    X(get_pfc_enabled, 0x9A, 0, 8)                                                                 \
    X(set_pfc_enabled, 0x9B, KOPA_SIZE_CALLER, 0)                                                  \
    X(get_tc_cfg, 0x9C, 0, 96)                                                                     \
    X(set_tc_cfg, 0x9D, 64, 0)                                                                     \
    X(get_current_tc_used, 0x9E, 4, 4)                                                             \
    X(get_prio_tc_info, 0x101, 0, KOPA_SIZE_CALLER)                                                \
    X(set_prio_tc_info, 0x102, KOPA_SIZE_CALLER, 0)                                                \
    X(ping_fun, 0x9F, KOPA_SIZE_CALLER, KOPA_SIZE_CALLER)                                          \
    X(get_gratuitous_arp_info, 0x104, 4, 46)                                                       \
    X(set_gratuitous_arp_info, 0x105, KOPA_SIZE_CALLER, 0)                                         \
    X(set_optical_auto_adapt, 0x30, KOPA_SIZE_CALLER, 0)                                           \
    X(get_eth_test_info, 0x31, 1, KOPA_SIZE_CALLER)                                                \
    X(add_arp_entry, 0x106, 16, 0)                                                                 \
    X(del_arp_entry, 0x107, 16, 0)                                                                 \
    X(get_arp_table, 0x108, 0, KOPA_SIZE_CALLER)                                                   \
    X(add_ip_rule, 0x109, 16, 0)                                                                   \
    X(del_ip_rule, 0x10A, 16, 0)                                                                   \
    X(get_ip_rules, 0x10B, 0, KOPA_SIZE_CALLER)                                                    \
    X(add_ip_route, 0x10C, 20, 0)                                                                  \
    X(del_ip_route, 0x10D, 20, 0)                                                                  \
    X(get_ip_routes, 0x10E, 0, KOPA_SIZE_CALLER)                                                   \
    X(get_generic_info, 0x10F, 0, 8)                                                               \
    X(start_roce_perftest, 0x81, KOPA_SIZE_CALLER, 0)

/** Opcode constants: KOPA_OP_set_mtu, KOPA_OP_get_mtu, ... */
enum kopa_opcode {
#define KOPA_OP_ENUM(name, opcode, in, out) KOPA_OP_##name = (opcode),
    KOPA_OPERATIONS(KOPA_OP_ENUM)
#undef KOPA_OP_ENUM
};

#ifdef __cplusplus
}

static_assert(sizeof(ds_req) == KOPA_REQ_SIZE, "ds_req is 2044 bytes");
static_assert(sizeof(ds_rsp) == KOPA_RSP_SIZE, "ds_rsp is 2028 bytes");
static_assert(sizeof(kopa_ip_record) == 8, "ip record is 8 bytes");
static_assert(sizeof(kopa_gateway_record) == 12, "gateway record is 12 bytes");
static_assert(sizeof(kopa_link_set_record) == 4, "link record is 4 bytes");
static_assert(sizeof(kopa_mtu_record) == 5, "mtu record is 5 bytes");
static_assert(sizeof(kopa_route_record) == 12, "route record is 12 bytes");
static_assert(sizeof(kopa_roce_port_record) == 6, "roce port record is 6 bytes");
static_assert(sizeof(kopa_cfg_status_record) == 8, "cfg status record is 8 bytes");
static_assert(sizeof(kopa_envelope_pub_key) == 2052, "envelope key record is 2052 bytes");
static_assert(sizeof(kopa_tls_cert_info) == 124, "certificate info record is 124 bytes");
static_assert(sizeof(kopa_dscp_map_set) == 8 && sizeof(kopa_dscp_map) == 64, "dscp records");
static_assert(sizeof(kopa_shaping_info) == 28, "shaping record is 28 bytes");
static_assert(sizeof(kopa_tc_cfg_set) == 64 && sizeof(kopa_tc_cfg_info) == 96, "tc records");
static_assert(sizeof(kopa_garp_info) == 46, "gratuitous arp record is 46 bytes");
static_assert(sizeof(kopa_generic_set) == 8 && sizeof(kopa_generic_info) == 8, "generic records");
static_assert(sizeof(kopa_arp_record) == 16, "arp record is 16 bytes");
static_assert(sizeof(kopa_ip_rule_record) == 16 && sizeof(kopa_ip_route_record) == 20,
              "policy routing records");
static_assert(sizeof(kopa_netdev_stat) == KOPA_NETDEV_STAT_SIZE, "statistics are 47 counters");
static_assert(sizeof(kopa_optical_info) == KOPA_OPTICAL_INFO_SIZE, "optical record is 156 bytes");
static_assert(sizeof(kopa_netdev_status) == 40, "netdev status record is 40 bytes");
static_assert(sizeof(kopa_pci_info) == 32, "pci record is 32 bytes");
static_assert(sizeof(kopa_process_record) == 40, "process record is 40 bytes");
static_assert(sizeof(kopa_roce_context_query) == 8 && sizeof(kopa_roce_qp_context) == 64,
              "roce context records");
static_assert(sizeof(kopa_reg_record) == 8, "register record is 8 bytes");
static_assert(sizeof(kopa_backpressure_info) == 72, "backpressure record is 72 bytes");
static_assert(sizeof(kopa_eth_test_info) == 28, "self-check record is 28 bytes");
static_assert(sizeof(kopa_ping_req) == 16 && sizeof(kopa_ping_reply) == 16, "ping records");
static_assert(sizeof(kopa_roce_perftest_req) == 16 && sizeof(kopa_roce_perftest_query) == 4 &&
                  sizeof(kopa_roce_perftest_status) == 10 &&
                  sizeof(kopa_roce_perftest_report) == 40,
              "roce perftest records");
static_assert(sizeof(kopa_cdr_trigger) == 8 && sizeof(kopa_cdr_trigger_reply) == 8 &&
                  sizeof(kopa_cdr_reg_block) == 480 && sizeof(kopa_mac_lane_cdr_info) == 120,
              "cdr records");
#endif

#endif /* VORN_PLATFORM_KOPA_PLATFORM_H */
