// Exact per-device access to saved items, over the store's prefix read and substring delete.
#include "commands/conf_item.hpp"

#include <cstdio>

#include "config/store.hpp"
#include "log/driver_log.hpp"

int tool_conf_item_key(uint32_t phy_id, const char *item, char *key, uint32_t size)
{
    int n = snprintf(key, size, "%s_%u=", item, phy_id);
    if (n < 0 || static_cast<uint32_t>(n) >= size) {
        DRV_ERR("build cfg key fail! ret[%d] item[%s] phy_id[%u]", n, item, phy_id);
        return kErrSysCopy;
    }
    return 0;
}

int tool_conf_read_item(uint32_t phy_id, const char *item, char *value_out, uint32_t value_size)
{
    char key[kCfgLineSize];
    int ret = tool_conf_item_key(phy_id, item, key, sizeof(key));
    return ret != 0 ? ret : cfg_inner_read_conf(cfg_conf_path(), key, value_out, value_size);
}

int tool_conf_del_item(uint32_t phy_id, const char *item)
{
    char key[kCfgLineSize];
    int ret = tool_conf_item_key(phy_id, item, key, sizeof(key));
    return ret != 0 ? ret : cfg_inner_del_conf(cfg_conf_path(), key);
}
