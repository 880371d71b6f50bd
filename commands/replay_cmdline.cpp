// The replay of saved command lines (ARP entries, policy rules and routes): every line of the
// device goes to the device again, under the configuration file's lock.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/result.hpp"
#include "commands/replay.hpp"
#include "config/store.hpp"
#include "log/driver_log.hpp"

int32_t tool_cfg_cmdline_recovery(DevRef dev, const char *pattern, CmdlineSend send)
{
    // Keyed by the logical id, unlike every other item: the lines are what the commands wrote.
    char wanted[kCfgLineSize];
    const int n = snprintf(wanted, sizeof(wanted), pattern, static_cast<int>(dev.logic_id));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(wanted)) {
        DRV_ERR("snprintf_s recovery pattern fail! ret : %d.", n);
        return kErrSysCopy;
    }
    ConfSession conf(ConfAccess::kRead);
    int ret = conf.open();
    if (ret != 0)
        return kErrSysRead;
    return cfg_for_each_piece_with(conf.content(), wanted, [&](std::string_view piece) -> int {
        const std::string_view text(piece.data(), strnlen(piece.data(), piece.size()));
        if (text.find(wanted) == std::string_view::npos)
            return 0;
        char line[kCfgLineSize];
        const size_t len = text.size() - (text.ends_with('\n') ? 1 : 0);
        memcpy(line, text.data(), len);
        line[len] = '\0';
        const int32_t sent = send(dev, line);
        if (sent != 0)
            DRV_ERR("Recovery configure failed. (ret=%d, cmdline=\"%s\")", sent, line);
        return sent;
    });
}
