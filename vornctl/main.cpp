// The entry point of vornctl: the whole host at a glance (show), saved against live (verify),
// fabric and file lint (lint), node_exporter metrics (metrics), and the desired settings of the
// host applied as one transaction (apply). Only apply and verify --recover change a device.
// Options follow getopt_long's conventions; exit statuses are in vornctl.hpp.
#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/vornctl.hpp"

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace
{

/// One subcommand: its word, its options and its help.
struct CtlCommand {
    const char *name;
    const char *synopsis; ///< the options after the word
    const char *summary;  ///< one line
    const char *details;  ///< the options, one a line
    const char *short_options;
    const option *long_options;
    int (*run)(const CtlOptions &);
};

constexpr option kShowOptions[] = {{"device", required_argument, nullptr, 'i'},
                                   {"json", no_argument, nullptr, 'j'},
                                   {"brief", no_argument, nullptr, 'b'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
constexpr option kVerifyOptions[] = {{"device", required_argument, nullptr, 'i'},
                                     {"recover", no_argument, nullptr, 'r'},
                                     {"json", no_argument, nullptr, 'j'},
                                     {"help", no_argument, nullptr, 'h'},
                                     {nullptr, 0, nullptr, 0}};
constexpr option kLintOptions[] = {{"json", no_argument, nullptr, 'j'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
constexpr option kMetricsOptions[] = {{"output", required_argument, nullptr, 'o'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {nullptr, 0, nullptr, 0}};

constexpr option kApplyOptions[] = {{"check", no_argument, nullptr, 'c'},
                                    {"json", no_argument, nullptr, 'j'},
                                    {"no-rollback", no_argument, nullptr, 'n'},
                                    {"help", no_argument, nullptr, 'h'},
                                    {nullptr, 0, nullptr, 0}};

constexpr CtlCommand kCommands[] = {
    {"show", "[-i ID] [--json | --brief]", "every device (or one) live beside saved",
     "  -i, --device ID      only the device of physical id ID\n"
     "      --json           one JSON document (docs/vornctl.schema.json)\n"
     "      --brief          one line per device: health, link, recovery status, drift\n",
     "i:h", kShowOptions, ctl_show},
    {"verify", "[-i ID] [--recover] [--json]", "saved against live, one line per difference",
     "  -i, --device ID      only the device of physical id ID\n"
     "      --recover        recover the drifted devices, then verify again\n"
     "      --json           one JSON document instead of the lines\n",
     "i:h", kVerifyOptions, ctl_verify},
    {"lint", "[--json]", "RoCE consistency and /etc/vorn.conf hazards",
     "      --json           one JSON document instead of the findings' lines\n", "h", kLintOptions,
     ctl_lint},
    {"metrics", "--output FILE", "node_exporter textfile of every device",
     "  -o, --output FILE    the file to replace (a temporary file beside it is renamed over it)\n",
     "o:h", kMetricsOptions, ctl_metrics},
    {"apply", "FILE [--check] [--json] [--no-rollback]",
     "the desired settings of FILE (show --json form) as one transaction",
     "  FILE                 the document, - for standard input\n"
     "      --check          print the changes, make none\n"
     "      --json           one JSON document: each change's old and new value and outcome\n"
     "      --no-rollback    keep the changes made before one that fails\n",
     "h", kApplyOptions, ctl_apply},
};

constexpr const char *kExitStatuses =
    "Exit status:\n"
    "  0  done (verify: no drift; lint: nothing at warning or above)\n"
    "  1  verify: drift; lint: a finding at warning or above\n"
    "  2  a wrong command line\n"
    "  3  a device that /etc/vorn.conf saves settings for is absent or could not be verified\n"
    "     (not healthy, a value not read), or the devices cannot be listed; wins over 1\n"
    "  4  another failure: the file unreadable, the output not written, the setting lock busy,\n"
    "     a recovery failed, a document apply refuses, a change apply could not make\n";

void print_usage(FILE *out)
{
    fputs("usage: vornctl COMMAND [OPTIONS]\n", out);
    // The summaries in one column, whatever the longest synopsis.
    int width = 0;
    for (const CtlCommand &c : kCommands)
        width = std::max(width, static_cast<int>(strlen(c.synopsis)));
    for (const CtlCommand &c : kCommands)
        fprintf(out, "       vornctl %-8s %-*s %s\n", c.name, width, c.synopsis, c.summary);
    fputs("       vornctl help [COMMAND] | -h | --help | --version\n"
          "ID is the physical device id, as vorn_tool -i takes it.\n",
          out);
    fputs(kExitStatuses, out);
}

void print_command_help(const CtlCommand &c)
{
    printf("usage: vornctl %s %s\n%s\n\n%s  -h, --help           this help\n\n%s", c.name,
           c.synopsis, c.summary, c.details, kExitStatuses);
}

const CtlCommand *find_command(std::string_view name)
{
    for (const CtlCommand &c : kCommands) {
        if (name == c.name)
            return &c;
    }
    return nullptr;
}

int usage_error(const char *command, const std::string &what)
{
    fprintf(stderr, "vornctl%s%s: %s\nTry 'vornctl %s--help'.\n", command ? " " : "",
            command ? command : "", what.c_str(),
            command ? (std::string(command) + " ").c_str() : "");
    return kCtlExitUsage;
}

// Device ids are decimal digits only and at most two of them (physical ids are below 16 on
// every host this tool knows; a longer word would only wrap).
bool read_id(const char *text, uint32_t *id)
{
    const size_t len = strlen(text);
    if (len == 0 || len > 2 || check_str_is_num(text, static_cast<uint32_t>(len)) != 0)
        return false;
    *id = static_cast<uint32_t>(atoi(text));
    return true;
}

int finish_help()
{
    return ctl_stdout_ok() ? kCtlExitOk : kCtlExitFailure;
}

/// The options of `c` from argv[1] on (argv[0] is the command's word).
int run_command(const CtlCommand &c, int argc, char **argv)
{
    CtlOptions opts;
    optind = 0; // a fresh scan (glibc)
    opterr = 0;
    // ":" first: a missing value is told apart from an unknown option.
    const std::string short_options = std::string(":") + c.short_options;
    std::string seen;
    for (;;) {
        const int opt = getopt_long(argc, argv, short_options.c_str(), c.long_options, nullptr);
        if (opt == -1)
            break;
        if (opt != ':' && opt != '?' && seen.find(static_cast<char>(opt)) != std::string::npos)
            return usage_error(c.name, std::string(argv[optind - 1]) + " given twice");
        seen += static_cast<char>(opt);
        switch (opt) {
        case 'h':
            print_command_help(c);
            return finish_help();
        case 'i':
            if (!read_id(optarg, &opts.phy_id.emplace()))
                return usage_error(c.name, std::string("-i takes a physical device id, not \"") +
                                               optarg + "\"");
            break;
        case 'j':
            opts.json = true;
            break;
        case 'b':
            opts.brief = true;
            break;
        case 'r':
            opts.recover = true;
            break;
        case 'c':
            opts.check = true;
            break;
        case 'n':
            opts.no_rollback = true;
            break;
        case 'o':
            if (optarg[0] == '\0')
                return usage_error(c.name, "--output takes a file name");
            opts.output = optarg;
            break;
        case ':':
            return usage_error(c.name, std::string(argv[optind - 1]) + " takes a value");
        default:
            return usage_error(c.name, std::string("unknown option \"") + argv[optind - 1] + "\"");
        }
    }
    if (c.run == ctl_apply) {
        if (optind >= argc || argv[optind][0] == '\0')
            return usage_error(c.name, "FILE is needed");
        opts.file = argv[optind++];
    }
    if (optind < argc)
        return usage_error(c.name, std::string("unexpected word \"") + argv[optind] + "\"");
    if (opts.json && opts.brief)
        return usage_error(c.name, "--json and --brief exclude each other");
    if (c.run == ctl_metrics && opts.output.empty())
        return usage_error(c.name, "--output FILE is needed");
    return c.run(opts);
}

} // namespace

bool ctl_stdout_ok()
{
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return true;
    fprintf(stderr, "vornctl: cannot write the standard output: %s\n", strerror(errno));
    return false;
}

int ctl_load_host(std::optional<uint32_t> only, HostView *host)
{
    const int32_t ret = ctl_read_host(only, host);
    if (ret == kErrDeviceId) {
        fprintf(stderr, "vornctl: no device has the physical id %u\n", *only);
        return kCtlExitDevices;
    }
    if (ret != kOk) {
        fprintf(stderr, "vornctl: the devices cannot be listed (0x%x)\n",
                static_cast<unsigned>(ret));
        return kCtlExitDevices;
    }
    return kCtlExitOk;
}

int main(int argc, char **argv)
{
    // A write beyond the file-size limit fails with EFBIG instead of ending the run between a
    // device change and its save.
    (void)signal(SIGXFSZ, SIG_IGN);
    static const option kGlobal[] = {{"help", no_argument, nullptr, 'h'},
                                     {"version", no_argument, nullptr, 'V'},
                                     {nullptr, 0, nullptr, 0}};
    opterr = 0;
    // "+": the options before the command word only.
    for (;;) {
        const int opt = getopt_long(argc, argv, "+hV", kGlobal, nullptr);
        if (opt == -1)
            break;
        if (opt == 'h') {
            print_usage(stdout);
            return finish_help();
        }
        if (opt == 'V') {
            puts("vornctl " VORN_VERSION);
            return finish_help();
        }
        return usage_error(nullptr, std::string("unknown option \"") + argv[optind - 1] + "\"");
    }
    if (optind >= argc) {
        fputs("vornctl: missing command\n", stderr);
        print_usage(stderr);
        return kCtlExitUsage;
    }
    const std::string_view word = argv[optind];
    if (word == "help") {
        if (optind + 1 >= argc) {
            print_usage(stdout);
            return finish_help();
        }
        const CtlCommand *c = find_command(argv[optind + 1]);
        if (c == nullptr || optind + 2 < argc)
            return usage_error(nullptr, std::string("no help for \"") + argv[argc - 1] + "\"");
        print_command_help(*c);
        return finish_help();
    }
    const CtlCommand *c = find_command(word);
    if (c == nullptr)
        return usage_error(nullptr, std::string("unknown command \"") + argv[optind] + "\"");
    return run_command(*c, argc - optind, argv + optind);
}
