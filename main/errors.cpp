// The user-facing texts of result codes, the parameter lists of commands, and the help output.
#include "main/errors.hpp"

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/cmd_table.hpp"

namespace
{

constexpr const char *kEnterHelp = "Enter [ vorn_tool -h ] for more details.\n";
constexpr const char *kCmdFailed = "Cmd execute failed!\n";

// Every user-facing text is repeated to the driver log, without its newline.
void say(const char *func, int line, const char *text)
{
    (void)fputs(text, stderr);
    if (drv_log_enabled(KELVAR_LEVEL_ERROR)) {
        size_t len = strlen(text);
        if (len > 0 && text[len - 1] == '\n')
            --len;
        drv_log_write(KELVAR_LEVEL_ERROR, func, line, "%.*s", static_cast<int>(len), text);
    }
}

#define SAY(text) say(__func__, __LINE__, (text))

bool valid_row(int32_t cmd_index)
{
    return cmd_index >= 0 && cmd_index < kCmdListMax;
}

int32_t row_of(const cmd_parse_info *info)
{
    return info != nullptr ? info->cmd_index : -1;
}

} // namespace

void uda_cmd_pram_list_print(int32_t cmd_index)
{
    if (!valid_row(cmd_index) || g_cmd_list[cmd_index].empty())
        return;
    const cmd_record &row = g_cmd_list[cmd_index];
    const char *help = row.cmd->help != nullptr ? row.cmd->help : "";
    (void)fprintf(stderr, "[ vorn_tool %s dev_id %s ] needs the following parameters:\n",
                  row.cmd->major, row.cmd->name);
    (void)fprintf(stderr, "%s\n", help);
    DRV_DBG("[ vorn_tool %s dev_id %s ] needs the following parameters:", row.cmd->major,
            row.cmd->name);
    DRV_DBG("%s", help);
}

void uda_param_cmd_count_err_print(int32_t cmd_index)
{
    SAY("The total count of input parameters is wrong!\n");
    uda_cmd_pram_list_print(cmd_index);
}

void uda_param_cmd_err_tips_print(const char *name, int32_t cmd_index)
{
    char text[256];
    (void)snprintf(text, sizeof(text), "The value of %s you input is out of the valid range!\n",
                   name != nullptr ? name : "");
    SAY(text);
    uda_cmd_pram_list_print(cmd_index);
}

void uda_handle_major_err(int32_t code)
{
    switch (code) {
    case kErrMajorType:
        SAY("Get invalid major cmd type. The valid major cmd type should be \"-a\" or \"-i\".\n");
        SAY(kEnterHelp);
        break;
    case kErrMajorCount:
        SAY("Get invalid major cmd number. Please check your input.\n");
        SAY(kEnterHelp);
        break;
    case kErrMajorCmd:
        SAY("Get invalid major cmd.\n");
        SAY(kEnterHelp);
        break;
    case kErrDeviceId:
        SAY("Get invalid device id.\n");
        break;
    case kErrParamLen:
        SAY("Get invalid input param len.\n");
        break;
    default:
        SAY(kCmdFailed);
        break;
    }
}

void uda_handle_param_err(int32_t code, const cmd_parse_info *info)
{
    int32_t row = row_of(info);
    switch (code) {
    case kErrParamInvalid:
        SAY("Get invalid parameters!\n");
        uda_cmd_pram_list_print(row);
        break;
    case kErrUnknownOption:
        uda_cmd_pram_list_print(row);
        break;
    case kErrSeeHelp:
        SAY(kEnterHelp);
        break;
    case kErrArgCount:
        uda_param_cmd_count_err_print(row);
        break;
    case kErrMacInvalid:
        SAY("The mac address you configured is invalid or saved by system\n");
        break;
    case kErrReported:
        break;
    case kErrIpConflict:
        SAY("The ip address configured is conflicted!\n");
        break;
    case kErrGatewaySegment:
        SAY("The segment of configured gateway doesn't match that of the configured ip adress!\n");
        break;
    case kErrRangeDscp:
        uda_param_cmd_err_tips_print("dscp", row);
        break;
    case kErrRangeTc:
        uda_param_cmd_err_tips_print("tc", row);
        break;
    case kErrRangeBwLimit:
        uda_param_cmd_err_tips_print("bw limit", row);
        break;
    case kErrRangeRoceContext:
        uda_param_cmd_err_tips_print("roce context param", row);
        break;
    case kErrRangeMtu:
        uda_param_cmd_err_tips_print("mtu", row);
        break;
    default:
        uda_handle_tls_param_err(code, info);
        break;
    }
}

void uda_handle_tls_param_err(int32_t code, const cmd_parse_info *info)
{
    const char *text = nullptr;
    bool list = false;
    char pwd_text[128];
    switch (code) {
    case kErrFilePath:
        text = "The file path input is invalid!\n";
        break;
    case kErrTlsNoCerts:
        text = "No certificate found, please set certs firstly!\n";
        break;
    case kErrTlsAlarm:
        text = "Get invalid alarm time!\n";
        list = true;
        break;
    case kErrTlsEnable:
        text = "Get invalid enable value!\n";
        list = true;
        break;
    case kErrTlsNoKey:
        text = "No pri key, cannot assign ca without pri key!\n";
        list = true;
        break;
    case kErrTlsKeyCert:
        text = "Pri key doesn't match to pub cert!\n";
        list = true;
        break;
    case kErrTlsChain:
        text = "The certificate chain is not continuous!\n";
        list = true;
        break;
    case kErrTlsCrlLast:
        text = "The crl certificate should be the last config item!\n";
        list = true;
        break;
    case kErrPwdLength:
        (void)snprintf(pwd_text, sizeof(pwd_text),
                       "Your input password length is illegal, length must between [%d] and [%d]\n",
                       8, 15);
        text = pwd_text;
        break;
    case kErrPwdComplexity:
        text = "The complexity of password you input is too low, please choose another one!\n";
        break;
    case kErrCertLength:
        text = "The certificate length is invalid!\n";
        break;
    case kErrHostLast:
        text = "The host flag should be the last config item!\n";
        list = true;
        break;
    default:
        break;
    }
    if (text != nullptr)
        SAY(text);
    if (list)
        uda_cmd_pram_list_print(row_of(info));
    SAY(kCmdFailed);
}

void uda_handle_tool_sys_err(int32_t code)
{
    switch (code) {
    case kErrSysWrite:
        SAY("Write file failed, cmd execute failed! pls check cmd run permission.\n");
        break;
    case kErrSysRead:
    case kErrSysNotFound:
        SAY("Read file failed, cmd execute failed! pls check cmd run permission.\n");
        break;
    case kErrSysDelete:
        SAY("Delete file failed, cmd execute failed! pls check cmd run permission.\n");
        break;
    case kErrCertExpired:
        break;
    case kErrBusy:
        SAY("vorn_tool is busy, please try again.\n");
        break;
    default:
        SAY(kCmdFailed);
        break;
    }
}

void uda_handle_kopa_err(int32_t code)
{
    switch (code) {
    case kErrKopa:
        SAY("Command execute failed!\n");
        break;
    case kErrKopaDevId:
        SAY("The device id is invalid, please check your input!\n");
        break;
    case kErrKopaNoGateway:
        SAY("Get gateway failed, because no gateway was preset there!\n");
        break;
    case kErrKopaHealth:
        SAY("Get device health status failed!\n");
        break;
    case kErrKopaGone:
        SAY("The device is not exist!\n");
        break;
    case kErrKopaTlsIllegal:
        SAY("The certificates are illegal!\n");
        break;
    case kErrKopaTlsChain:
        SAY("Failed to verify the certificate chain, make sure the certificate chain is "
            "correct!\n");
        break;
    default:
        SAY(kCmdFailed);
        break;
    }
}

void uda_help_cmd_print()
{
    for (int i = 0; i < kCmdListMax && !g_cmd_list[i].empty(); ++i) {
        const cmd_record &row = g_cmd_list[i];
        const char *help = row.cmd->help != nullptr ? row.cmd->help : "";
        (void)printf("vorn_tool %s %s %s\n", row.cmd->major, row.dev_token(), row.cmd->name);
        (void)printf("%s\n", help);
        DRV_DBG("vorn_tool %s %s %s", row.cmd->major, row.dev_token(), row.cmd->name);
        DRV_DBG("%s", help);
    }
}

void uda_handle_result(int32_t code, const cmd_parse_info *info)
{
    switch (result_class(code)) {
    case 0x1000:
        uda_handle_major_err(code);
        break;
    case 0x2000:
        uda_handle_param_err(code, info);
        break;
    case 0x3000:
        uda_handle_tool_sys_err(code);
        break;
    case 0x4000:
        uda_handle_kopa_err(code);
        break;
    default:
        SAY(kCmdFailed);
        break;
    }
}

int32_t finish_cmd_line(int32_t code, const cmd_parse_info *info)
{
    if (code == kOk) {
        RUN_LOG_PROMPT("vorn tool execution succeed!\n");
        return code;
    }
    uda_handle_result(code, info);
    RUN_LOG_PROMPT("vorn tool execution failed! ret:0x%x\n", static_cast<unsigned>(code));
    return code;
}
