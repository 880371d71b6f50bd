// The user-facing text of every result code, as the entry point prints it on standard error.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "main/cmd_table.hpp"
#include "main/errors.hpp"

namespace
{

class ErrorsTest : public ::testing::Test
{
  protected:
    static constexpr int32_t kMtuRow = 9;

    static std::string usage()
    {
        return std::string("[ vorn_tool -i dev_id -mtu ] needs the following parameters:\n") +
               g_cmd_list[kMtuRow].cmd->help + "\n";
    }

    // What the entry point prints for `code`: the printer of its class.
    static std::string printed(int32_t code)
    {
        cmd_parse_info info{};
        info.cmd_index = kMtuRow;
        ::testing::internal::CaptureStderr();
        switch (result_class(code)) {
        case 0x1000:
            uda_handle_major_err(code);
            break;
        case 0x2000:
            uda_handle_param_err(code, &info);
            break;
        case 0x3000:
            uda_handle_tool_sys_err(code);
            break;
        case 0x4000:
            uda_handle_kopa_err(code);
            break;
        default:
            break;
        }
        return ::testing::internal::GetCapturedStderr();
    }
};

TEST_F(ErrorsTest, EachCodePrintsItsTextAndUsageWhereAsked)
{
    const std::string enter = "Enter [ vorn_tool -h ] for more details.\n";
    const std::string failed = "Cmd execute failed!\n";
    struct Case {
        int32_t code;
        std::string err;
    };
    const std::vector<Case> cases = {
        {0x1001,
         "Get invalid major cmd type. The valid major cmd type should be \"-a\" or \"-i\".\n" +
             enter},
        {0x1002, "Get invalid major cmd number. Please check your input.\n" + enter},
        {0x1003, "Get invalid major cmd.\n" + enter},
        {0x1004, failed},
        {0x1005, "Get invalid device id.\n"},
        {0x1007, "Get invalid input param len.\n"},
        {0x2001, "Get invalid parameters!\n" + usage()},
        {0x2002, "The file path input is invalid!\n" + failed},
        {0x2003, usage()},
        {0x2004, enter},
        {0x2005, "The total count of input parameters is wrong!\n" + usage()},
        {0x2006, "The mac address you configured is invalid or saved by system\n"},
        {0x2007, ""},
        {0x2008, "The ip address configured is conflicted!\n"},
        {0x2009, "The segment of configured gateway doesn't match that of the configured ip "
                 "adress!\n"},
        {0x200A, "The value of dscp you input is out of the valid range!\n" + usage()},
        {0x200C, "The value of bw limit you input is out of the valid range!\n" + usage()},
        {0x200E, "The value of mtu you input is out of the valid range!\n" + usage()},
        {0x200F, "No certificate found, please set certs firstly!\n" + failed},
        {0x2010, "Get invalid alarm time!\n" + usage() + failed},
        {0x2015, "The crl certificate should be the last config item!\n" + usage() + failed},
        {0x2016,
         "Your input password length is illegal, length must between [8] and [15]\n" + failed},
        {0x2017,
         "The complexity of password you input is too low, please choose another one!\n" + failed},
        {0x2018, failed},
        {0x2019, "The certificate length is invalid!\n" + failed},
        {0x201E, "The host flag should be the last config item!\n" + usage() + failed},
        {0x3001, failed},
        {0x3004, "Write file failed, cmd execute failed! pls check cmd run permission.\n"},
        {0x3005, "Read file failed, cmd execute failed! pls check cmd run permission.\n"},
        {0x3006, "Read file failed, cmd execute failed! pls check cmd run permission.\n"},
        {0x3007, "Delete file failed, cmd execute failed! pls check cmd run permission.\n"},
        {0x3009, ""},
        {0x300B, "vorn_tool is busy, please try again.\n"},
        {0x4001, "Command execute failed!\n"},
        {0x4002, "The device id is invalid, please check your input!\n"},
        {0x4003, "Get gateway failed, because no gateway was preset there!\n"},
        {0x4004, "Get device health status failed!\n"},
        {0x4005, "The device is not exist!\n"},
        {0x4006, "The certificates are illegal!\n"},
        {0x4007, "Failed to verify the certificate chain, make sure the certificate chain is "
                 "correct!\n"},
        {0x4008, failed},
    };
    for (const Case &c : cases)
        EXPECT_EQ(printed(c.code), c.err) << std::hex << "code 0x" << c.code;
}

} // namespace
