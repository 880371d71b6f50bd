// The driver-log channel: diagnostic lines handed to the driver's log facility.
#pragma once

#include "platform/kopa_platform.h"

/// True when the facility's configured level lets lines of `level` through. Checked before
/// anything is formatted, so a quiet driver log costs one call.
bool drv_log_enabled(int level);

/// Formats "[kelvar]<level tag><time tag>[curpid: <pid>, <tid>][drv][<module>][<func> <line>]"
/// followed by the text and hands the whole line to kelvar_log_print with log type 10.
void drv_log_write(int level, const char *func, int line, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));

#define DRV_LOG(level, fmt, ...)                                                                   \
    do {                                                                                           \
        if (drv_log_enabled(level))                                                                \
            drv_log_write((level), __func__, __LINE__, fmt __VA_OPT__(, ) __VA_ARGS__);            \
    } while (0)

#define DRV_ERR(fmt, ...) DRV_LOG(KELVAR_LEVEL_ERROR, fmt __VA_OPT__(, ) __VA_ARGS__)
#define DRV_WARN(fmt, ...) DRV_LOG(KELVAR_LEVEL_WARNING, fmt __VA_OPT__(, ) __VA_ARGS__)
#define DRV_DBG(fmt, ...) DRV_LOG(KELVAR_LEVEL_DEBUG, fmt __VA_OPT__(, ) __VA_ARGS__)
