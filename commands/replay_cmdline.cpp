// The replay of saved command lines (ARP entries, policy rules and routes): every line of the
// device goes to the device again, from a view of the configuration file.
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "base/result.hpp"
#include "commands/replay.hpp"
#include "config/store.hpp"
#include "log/driver_log.hpp"

int32_t tool_cfg_cmdline_recovery(DevRef dev, const ConfView &conf, const char *pattern,
                                  CmdlineSend send)
{
    // Keyed by the logical id, unlike every other item: the lines are what the commands wrote.
    char wanted[kCfgLineSize];
    const int n = snprintf(wanted, sizeof(wanted), pattern, static_cast<int>(dev.logic_id));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(wanted)) {
        DRV_ERR("snprintf_s recovery pattern fail! ret : %d.", n);
        return kErrSysCopy;
    }
    if (conf.status() != 0)
        return kErrSysRead;
    return cfg_for_each_piece_with(
        conf.content(), wanted,
        [&](std::string_view piece) -> int {
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
        },
        conf.index());
}

int32_t tool_cfg_replay_now(int32_t (*replay)(DevRef dev, const ConfView &conf), DevRef dev)
{
    ConfView conf;
    (void)conf.open();
    return replay(dev, conf);
}

std::string tool_cmdline_key(const char *item, uint32_t logic_id)
{
    return std::string(item) + "_" + std::to_string(logic_id);
}

ItemSavedList tool_saved_cmdline_entries(std::string_view conf, const char *item, uint32_t logic_id,
                                         bool (*entry_of)(const char *line, ItemEntry *entry))
{
    ItemSavedList list;
    const std::string key = tool_cmdline_key(item, logic_id) + "=";
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        std::string line(piece.data(), strnlen(piece.data(), piece.size()));
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        if (!line.starts_with(key))
            return 0;
        list.any = true;
        ItemEntry entry;
        if (entry_of(line.c_str(), &entry))
            list.entries.push_back(std::move(entry));
        else
            list.refused.push_back(line);
        return 0;
    });
    return list;
}
