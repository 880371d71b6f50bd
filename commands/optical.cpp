// The -optical command: the optical module in the port's cage, as `ethtool -m` shows one: its
// identity, its temperature, supply voltage, laser bias and transmit and receive power per
// channel with their warning and alarm thresholds, and a mark on each reading beyond them.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/escape.hpp"
#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpOptical = "   [-g]        : get optical module info \n";

/// How one kind of reading is shown: the unit of its record value in the displayed unit.
struct Quantity {
    const char *label;  ///< "Module temperature", "Laser bias current" ...
    const char *limits; ///< name of its thresholds: "Module temperature", "Laser output power"
    double per_unit;    ///< record units per displayed unit
    const char *format; ///< of the displayed value
    const char *unit;   ///< "degrees C", "V", "mA", "mW"
    bool dbm;           ///< power: also shown in dBm
};

constexpr Quantity kTemperature{
    "Module temperature", "Module temperature", 256.0, "%.2f", "degrees C", false};
constexpr Quantity kVoltage{"Module voltage", "Module voltage", 10000.0, "%.4f", "V", false};
constexpr Quantity kBias{"Laser bias current", "Laser bias current", 500.0, "%.3f", "mA", false};
constexpr Quantity kTxPower{
    "Transmit avg optical power", "Laser output power", 10000.0, "%.4f", "mW", true};
constexpr Quantity kRxPower{
    "Rcvr signal avg optical power", "Laser rx power", 10000.0, "%.4f", "mW", true};

/// The four thresholds of a reading, widened so that the temperature's signed ones fit.
struct Limits {
    long high_alarm, high_warning, low_warning, low_alarm;
};

Limits limits_of(const kopa_optical_limits &l)
{
    return {l.high_alarm, l.high_warning, l.low_warning, l.low_alarm};
}

Limits limits_of(const kopa_optical_temp_limits &l)
{
    return {l.high_alarm, l.high_warning, l.low_warning, l.low_alarm};
}

const char *identifier_name(uint8_t id)
{
    switch (id) {
    case 0x03:
        return "SFP";
    case 0x0D:
        return "QSFP+";
    case 0x11:
        return "QSFP28";
    case 0x18:
        return "QSFP-DD";
    case 0x19:
        return "OSFP";
    default:
        return "unknown";
    }
}

void label(const char *text)
{
    printf("%-41s : ", text);
}

/// "0.8000 mW / -0.97 dBm", "38.50 degrees C" ...
void print_value(const Quantity &q, long raw)
{
    const double value = static_cast<double>(raw) / q.per_unit;
    printf(q.format, value);
    printf(" %s", q.unit);
    if (q.dbm)
        printf(" / %.2f dBm", raw == 0 ? -INFINITY : 10.0 * std::log10(value));
}

/// The mark of a reading beyond its thresholds, "" inside them.
const char *mark(long raw, const Limits &l)
{
    if (raw > l.high_alarm)
        return " [high alarm]";
    if (raw < l.low_alarm)
        return " [low alarm]";
    if (raw > l.high_warning)
        return " [high warning]";
    if (raw < l.low_warning)
        return " [low warning]";
    return "";
}

/// One reading; `channel` 0 for a module-wide one, else the channel number from 1.
void print_reading(const Quantity &q, long raw, const Limits &l, uint32_t channel)
{
    char text[64];
    if (channel == 0 || !format_text(text, sizeof(text), "%s (Channel %u)", q.label, channel))
        label(q.label);
    else
        label(text);
    print_value(q, raw);
    printf("%s\n", mark(raw, l));
}

void print_limits(const Quantity &q, const Limits &l)
{
    const struct {
        const char *name;
        long raw;
    } rows[] = {{"high alarm", l.high_alarm},
                {"low alarm", l.low_alarm},
                {"high warning", l.high_warning},
                {"low warning", l.low_warning}};
    for (const auto &row : rows) {
        char text[64];
        if (!format_text(text, sizeof(text), "%s %s threshold", q.limits, row.name))
            continue;
        label(text);
        print_value(q, row.raw);
        printf("\n");
    }
}

/// A blank-padded text field of the module, escaped, without its padding.
template <size_t N> void print_text(const char *name, const char (&field)[N])
{
    size_t len = strnlen(field, N);
    while (len > 0 && field[len - 1] == ' ')
        --len;
    label(name);
    print_escaped(stdout, field, len);
    printf("\n");
}

int32_t tool_optical_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_optical_info o{};
    int ret = kopa_get_optical_info(info->logic_id, &o);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get optical info", ret, info->logic_id);
    if (o.present == 0) {
        label("Optical module");
        printf("not present\n");
        return kOk;
    }
    label("Identifier");
    printf("0x%02x (%s)\n", o.identifier, identifier_name(o.identifier));
    print_text("Vendor name", o.vendor);
    print_text("Vendor PN", o.part_number);
    print_text("Vendor SN", o.serial);

    const uint32_t lanes = o.lanes < KOPA_OPTICAL_LANES ? o.lanes : KOPA_OPTICAL_LANES;
    const Limits temperature = limits_of(o.temperature_limits);
    const Limits voltage = limits_of(o.voltage_limits);
    const Limits bias = limits_of(o.bias_limits);
    const Limits tx = limits_of(o.tx_power_limits);
    const Limits rx = limits_of(o.rx_power_limits);
    print_reading(kTemperature, o.temperature, temperature, 0);
    print_reading(kVoltage, o.voltage, voltage, 0);
    for (uint32_t i = 0; i < lanes; ++i)
        print_reading(kBias, o.bias[i], bias, i + 1);
    for (uint32_t i = 0; i < lanes; ++i)
        print_reading(kTxPower, o.tx_power[i], tx, i + 1);
    for (uint32_t i = 0; i < lanes; ++i)
        print_reading(kRxPower, o.rx_power[i], rx, i + 1);
    print_limits(kTemperature, temperature);
    print_limits(kVoltage, voltage);
    print_limits(kBias, bias);
    print_limits(kTxPower, tx);
    print_limits(kRxPower, rx);
    return kOk;
}

constexpr CmdOp kOpticalOps[] = {{"-g", 1, false, tool_optical_get_cmd}};

} // namespace

extern constexpr CmdDesc kOpticalCmd{
    .major = "-i",
    .name = "-optical",
    .handler = "tool_optical_cmd_execute",
    .description = "get optical info cmd",
    .help = kHelpOptical,
    .ops = kOpticalOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
