// Exact access to one saved item of one device for the command handlers.
#pragma once

#include <cstdint>

/// Reads the value of "<item>_<phy_id>" from the configuration file. The key is matched up to
/// and including its "=", so the line of another device whose id starts with the same digits
/// (mtu_10 for mtu_1) never answers. Store codes: 0, 12294 when absent, 12289 when the value
/// does not fit, or a file access code.
[[nodiscard]] int tool_conf_read_item(uint32_t phy_id, const char *item, char *value_out,
                                      uint32_t value_size);

/// Removes the line "<item>_<phy_id>=..." only: neither the lines of devices whose id starts
/// with the same digits nor lines whose value merely contains the key (a saved route's
/// "gateway_1.2.3.4" for the item "gateway" of device 1). Store codes: 0 or a file access code.
[[nodiscard]] int tool_conf_del_item(uint32_t phy_id, const char *item);

/// Builds the exact key "<item>_<phy_id>=" into `key`. 0, or 12289 when it does not fit.
[[nodiscard]] int tool_conf_item_key(uint32_t phy_id, const char *item, char *key, uint32_t size);
