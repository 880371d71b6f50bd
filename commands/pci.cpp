// The -pci command: the device's PCIe address and identity, and the speed and width its link
// trained at against the most it can do, marked as lspci marks a downgraded link.
#include <cstdio>
#include <iterator>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpPci = "   [-g]        : get pci info \n";

/// Transfer rates of PCIe generations 1 to 6.
constexpr const char *kGenRates[] = {"2.5 GT/s", "5 GT/s",  "8 GT/s",
                                     "16 GT/s",  "32 GT/s", "64 GT/s"};

const char *link_speed_text(uint8_t gen, char *buf, uint32_t size)
{
    if (gen >= 1 && gen <= std::size(kGenRates) &&
        format_text(buf, size, "%s (gen %u)", kGenRates[gen - 1], gen))
        return buf;
    if (format_text(buf, size, "unknown (gen %u)", gen))
        return buf;
    return "unknown";
}

int32_t tool_pci_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_pci_info p{};
    int ret = kopa_get_pci_info(info->logic_id, &p);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get pci info", ret, info->logic_id);
    char speed[32];
    char max_speed[32];
    const char *down = " (downgraded)";
    printf("pci address: %04x:%02x:%02x.%x\n", p.domain, p.bus, p.device, p.function);
    printf("vendor id: 0x%04x\n", p.vendor_id);
    printf("device id: 0x%04x\n", p.device_id);
    printf("subsystem: 0x%04x:0x%04x\n", p.subsystem_vendor_id, p.subsystem_id);
    printf("link speed: %s%s\n", link_speed_text(p.link_speed, speed, sizeof(speed)),
           p.link_speed < p.max_link_speed ? down : "");
    printf("link width: x%u%s\n", p.link_width, p.link_width < p.max_link_width ? down : "");
    printf("max link speed: %s\n", link_speed_text(p.max_link_speed, max_speed, sizeof(max_speed)));
    printf("max link width: x%u\n", p.max_link_width);
    return kOk;
}

constexpr CmdOp kPciOps[] = {{"-g", 1, false, tool_pci_get_cmd}};

} // namespace

extern constexpr CmdDesc kPciCmd{
    .major = "-i",
    .name = "-pci",
    .handler = "tool_pci_cmd_execute",
    .description = "pci table cmd",
    .help = kHelpPci,
    .ops = kPciOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
