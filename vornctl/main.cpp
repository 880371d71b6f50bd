// The entry point of vornctl: the whole host at a glance (show), saved against live (verify),
// fabric and file lint (lint) and node_exporter metrics (metrics). Only verify --recover
// changes a device.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cmdline/checkers.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

constexpr const char *kUsage =
    "usage: vornctl show [-i ID] [--json]     every device (or one) live beside saved\n"
    "       vornctl verify [-i ID] [--recover] saved against live, one line per difference\n"
    "       vornctl lint                      RoCE consistency and /etc/vorn.conf hazards\n"
    "       vornctl metrics --output FILE     node_exporter textfile of every device\n"
    "       vornctl -h | --help\n"
    "ID is the physical device id, as vorn_tool -i takes it.\n"
    "Exit status: 0 done (verify: no drift; lint: nothing at warning or above), 1 verify found\n"
    "drift or lint found a warning or an error, 2 a wrong command line or a failure.\n";

int usage_error(const char *what, std::string_view word)
{
    fprintf(stderr, "vornctl: %s \"%.*s\"\n%s", what, static_cast<int>(word.size()), word.data(),
            kUsage);
    return kCtlExitError;
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

} // namespace

bool ctl_stdout_ok()
{
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return true;
    fprintf(stderr, "vornctl: cannot write the standard output: %s\n", strerror(errno));
    return false;
}

int main(int argc, char **argv)
{
    // A write beyond the file-size limit fails with EFBIG instead of ending the run between a
    // device change and its save.
    (void)signal(SIGXFSZ, SIG_IGN);
    if (argc < 2)
        return usage_error("missing command", "");
    const std::string_view cmd = argv[1];
    if (cmd == "-h" || cmd == "--help" || cmd == "help") {
        fputs(kUsage, stdout);
        return ctl_stdout_ok() ? kCtlExitOk : kCtlExitError;
    }
    const bool show = cmd == "show", verify = cmd == "verify", lint = cmd == "lint",
               metrics = cmd == "metrics";
    if (!show && !verify && !lint && !metrics)
        return usage_error("unknown command", cmd);
    CtlOptions opts;
    for (int i = 2; i < argc; ++i) {
        const std::string_view word = argv[i];
        const bool has_value = i + 1 < argc;
        if (word == "-i" && (show || verify)) {
            uint32_t id = 0;
            if (!has_value || !read_id(argv[i + 1], &id))
                return usage_error("-i takes a physical device id, not",
                                   has_value ? argv[i + 1] : "");
            if (opts.phy_id)
                return usage_error("given twice:", word);
            opts.phy_id = id;
            ++i;
        } else if (word == "--json" && show && !opts.json) {
            opts.json = true;
        } else if (word == "--recover" && verify && !opts.recover) {
            opts.recover = true;
        } else if (word == "--output" && metrics && opts.output.empty()) {
            if (!has_value || argv[i + 1][0] == '\0')
                return usage_error("--output takes a file name, not", has_value ? argv[i + 1] : "");
            opts.output = argv[++i];
        } else {
            return usage_error("unexpected word", word);
        }
    }
    if (metrics && opts.output.empty())
        return usage_error("metrics needs", "--output FILE");
    if (show)
        return ctl_show(opts);
    if (verify)
        return ctl_verify(opts);
    if (lint)
        return ctl_lint(opts);
    return ctl_metrics(opts);
}
