// A small parser of free-order options, each allowed once.
#include "cmdline/option_parser.hpp"

#include <cstring>

#include "base/result.hpp"
#include "log/driver_log.hpp"

namespace
{

bool spelled(const option_item &item, const char *word)
{
    return (item.name1 != nullptr && strcmp(item.name1, word) == 0) ||
           (item.name2 != nullptr && strcmp(item.name2, word) == 0);
}

} // namespace

int32_t major_command_option(option_parser *parser, const char *name1, const char *name2,
                             bool takes_value, const char **value)
{
    if (parser == nullptr || (name1 == nullptr && name2 == nullptr) || value == nullptr) {
        DRV_ERR("Invalid input parameter");
        return kErrParamInvalid;
    }
    if (parser->count >= kOptionMax) {
        DRV_ERR("Do not support more than %d options", kOptionMax);
        return kErrParamInvalid;
    }
    parser->items[parser->count] = option_item{name1, name2, takes_value, value, false};
    ++parser->count;
    return kOk;
}

int32_t check_option_param(const option_parser *parser, int index, int argc)
{
    if (parser->items[index].takes_value && parser->pos + 1 >= argc) {
        DRV_ERR("check_option_param error");
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t cmp_option(option_parser *parser, int index, int argc, char **argv)
{
    option_item &item = parser->items[index];
    if (item.seen) {
        DRV_ERR("repeat input %s.", argv[parser->pos]);
        return kErrParamInvalid;
    }
    item.seen = true;
    int32_t ret = check_option_param(parser, index, argc);
    if (ret != kOk)
        return ret;
    if (item.takes_value) {
        ++parser->pos;
        *item.value = argv[parser->pos];
    } else {
        *item.value = argv[parser->pos];
    }
    return kOk;
}

int32_t command_parse(option_parser *parser, int argc, char **argv)
{
    if (parser == nullptr || (argc > 0 && argv == nullptr)) {
        DRV_ERR("Invalid input parameter");
        return kErrParamInvalid;
    }
    for (parser->pos = 0; parser->pos < argc; ++parser->pos) {
        int taker = -1;
        for (int i = 0; i < parser->count; ++i) {
            if (spelled(parser->items[i], argv[parser->pos])) {
                taker = i;
                break;
            }
        }
        if (taker < 0) {
            DRV_ERR("Do not find the options");
            return kErrOptionUnknown;
        }
        int32_t ret = cmp_option(parser, taker, argc, argv);
        if (ret != kOk)
            return ret;
    }
    return kOk;
}
