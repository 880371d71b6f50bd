// The entry point of vorn_tool: identity, parse and dispatch, the final message and exit code.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/identity.hpp"
#include "log/driver_log.hpp"
#include "main/dispatch.hpp"
#include "main/errors.hpp"

namespace
{

// Standard output is buffered and standard error is not: when both go to one file (2>&1, |&), a
// message on standard error would overtake the results printed before it. Then standard output
// is written line by line, as on a terminal; every text of the tool ends its line.
void keep_output_order()
{
    struct stat out {
    };
    struct stat err {
    };
    if (fstat(STDOUT_FILENO, &out) == 0 && fstat(STDERR_FILENO, &err) == 0 &&
        out.st_dev == err.st_dev && out.st_ino == err.st_ino)
        (void)setvbuf(stdout, nullptr, _IOLBF, 0);
}

// Results that did not reach standard output (a full disk, a closed pipe) are no success.
int32_t check_stdout(int32_t ret)
{
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return ret;
    const int err = errno;
    (void)fprintf(stderr, "vorn_tool: cannot write the standard output: %s\n", strerror(err));
    DRV_ERR("write stdout fail, errno[%d]", err);
    return ret != kOk ? ret : kErrExec;
}

} // namespace

int main(int argc, char **argv)
{
    keep_output_order();
    // A write beyond the file-size limit fails with EFBIG, and the store reports it, instead of
    // the signal ending the run between the device change and its save.
    (void)signal(SIGXFSZ, SIG_IGN);

    cmd_parse_info info{};
    int ret = vorn_get_usr_name();
    if (ret != 0) {
        DRV_ERR("VORN get user name fail. (ret=%d)", ret);
        return ret;
    }
    ret = vorn_get_usr_ip();
    if (ret != 0) {
        DRV_ERR("vorn_get_usr_ip fail! ret[%d]", ret);
        return ret;
    }
    // The operating system keeps the low 8 bits as the exit status.
    return finish_cmd_line(check_stdout(parse_cmd(argc, argv, &info)), &info);
}
