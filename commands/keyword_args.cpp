// Keyword/value pairs in any order, typed or saved.
#include "commands/keyword_args.hpp"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/checkers.hpp"
#include "log/driver_log.hpp"

namespace
{

struct Expectation {
    const char *word;
    const char *expected;
};

// What the checker of each keyword accepts, in the administrator's words.
constexpr Expectation kExpected[] = {
    {"ip", "an IPv4 address such as 10.0.0.5"},
    {"via", "an IPv4 address such as 10.0.0.1"},
    {"mac", "a MAC address such as 00:11:22:33:44:55"},
    {"dev", "eth0 to eth7"},
    {"table", "a table number from 0 to 255"},
    {"ip_mask", "a prefix length from 0 to 32"},
    {"dir", "from or to"},
};

const char *expected_of(const char *word)
{
    for (const Expectation &e : kExpected) {
        if (strcmp(e.word, word) == 0)
            return e.expected;
    }
    return "a valid value";
}

// "dev, ip or mac"
std::string keyword_list(std::span<const KeywordArg> args)
{
    std::string list;
    for (size_t i = 0; i < args.size(); ++i) {
        if (i != 0)
            list += i + 1 == args.size() ? " or " : ", ";
        list += args[i].word;
    }
    return list;
}

// A driver-log error line under the caller's name and line.
#define WHERE_ERR(where, fmt, ...)                                                                 \
    do {                                                                                           \
        if (drv_log_enabled(KELVAR_LEVEL_ERROR))                                                   \
            drv_log_write(KELVAR_LEVEL_ERROR, (where).func, (where).line, fmt, __VA_ARGS__);       \
    } while (0)

} // namespace

int32_t cmd_read_keywords(const CallSite &where, int argc, char **argv,
                          std::span<const KeywordArg> args, WordsFrom from)
{
    const bool typed = from == WordsFrom::kTyped;
    if (argc != static_cast<int>(2 * args.size())) {
        WHERE_ERR(where, "Keyword count error. (words=%d; expect=%zu)", argc, 2 * args.size());
        return typed ? kErrArgCount : kErrParamInvalid;
    }
    for (int i = 0; i < argc; i += 2) {
        size_t k = 0;
        while (k < args.size() && strcmp(argv[i], args[k].word) != 0)
            ++k;
        if (k == args.size()) {
            WHERE_ERR(where, "Unknown keyword. (word=\"%s\")", argv[i]);
            if (!typed)
                return kErrParamInvalid;
            fprintf(stderr, "Get unknown option \"%s\", do you mean %s\n", argv[i],
                    keyword_list(args).c_str());
            return kErrUnknownOption;
        }
        for (int j = 0; j < i; j += 2) {
            if (strcmp(argv[j], argv[i]) != 0)
                continue;
            WHERE_ERR(where, "repeat input %s.", argv[i]);
            if (typed)
                fprintf(stderr, "The keyword %s is given more than once.\n", argv[i]);
            return kErrParamInvalid;
        }
    }
    for (const KeywordArg &arg : args) {
        const char *given = "";
        for (int i = 0; i < argc; i += 2) {
            if (strcmp(argv[i], arg.word) == 0)
                given = argv[i + 1];
        }
        memset(arg.value, 0, arg.size);
        int32_t ret = kOk;
        if (arg.check == nullptr)
            ret = tool_get_param(argc, argv, arg.word, arg.value, arg.size);
        else if (!copy_text(arg.value, arg.size, given))
            ret = kErrParamInvalid;
        else
            ret = arg.check(arg.value);
        if (ret == kOk)
            continue;
        WHERE_ERR(where, "Keyword value check failed. (word=%s)", arg.word);
        if (typed)
            fprintf(stderr, "The value \"%s\" of %s is invalid, expected %s.\n", given, arg.word,
                    arg.expected != nullptr ? arg.expected : expected_of(arg.word));
        return kErrParamInvalid;
    }
    return kOk;
}

bool cmd_is_saved_line_of(const char *line, const char *key)
{
    return strncmp(line, key, strlen(key)) == 0;
}

int cmd_split_saved_line(const char *line, char *buf, uint32_t buf_size, char **words, int max)
{
    const char *eq = strchr(line, '=');
    if (eq == nullptr || !copy_text(buf, buf_size, eq + 1))
        return -1;
    int n = 0;
    char *save = nullptr;
    for (char *w = strtok_r(buf, " \t\r", &save); w != nullptr;
         w = strtok_r(nullptr, " \t\r", &save)) {
        if (n == max)
            return -1;
        words[n++] = w;
    }
    return n;
}
