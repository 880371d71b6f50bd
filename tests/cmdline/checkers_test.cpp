// Edges of the argument checkers and of the free-order option parser.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/option_parser.hpp"

namespace
{

struct CheckCase {
    int32_t (*check)(const char *);
    const char *text;
    int32_t want;
};

class CheckersTest : public ::testing::Test
{
};

TEST_F(CheckersTest, TextCheckersAcceptOnlyCanonicalFormsInRange)
{
    const std::vector<CheckCase> cases = {
        {tool_check_ip, "10.0.0.1", kOk},
        {tool_check_ip, "255.255.255.255", kOk},
        {tool_check_ip, "010.0.0.1", kErrParamInvalid},
        {tool_check_ip, "10.0.0", kErrParamInvalid},
        {tool_check_ip, "10.0.0.256", kErrParamInvalid},
        {tool_check_ip, "10.0.0.1 ", kErrParamInvalid},
        {tool_check_ip, "+10.0.0.1", kErrParamInvalid},
        {tool_check_ip, "-1.0.0.1", kErrParamInvalid},
        {tool_check_ip, "10.0.0.1.5", kErrParamInvalid},
        {tool_check_ip_mask_bit, "0", kOk},
        {tool_check_ip_mask_bit, "32", kOk},
        {tool_check_ip_mask_bit, "33", kErrParamInvalid},
        {tool_check_ip_mask_bit, "08", kErrParamInvalid},
        {tool_check_dev, "eth7", kOk},
        {tool_check_dev, "eth8", kErrParamInvalid},
        {tool_check_dev, "eth07", kErrParamInvalid},
        {tool_check_table, "255", kOk},
        {tool_check_table, "256", kErrParamInvalid},
        {tool_check_mac, "aa:BB:cc:00:11:22", kOk},
        {tool_check_mac, "aa-bb-cc-00-11-22", kErrParamInvalid},
        {tool_check_mac, "aa:bb:cc:00:11:2", kErrParamInvalid},
        {tool_check_mac, "aa:bb:cc:00:11:22:", kErrParamInvalid},
        {tool_check_mac, "ag:bb:cc:00:11:22", kErrParamInvalid},
        {tool_check_dir, "from", kOk},
        {tool_check_dir, "to", kOk},
        {tool_check_dir, "tox", kErrParamInvalid},
        {tool_check_num, "", kOk},
        {tool_check_num, "0123", kOk},
        {tool_check_num, "12a", kErrParamInvalid},
        {tool_check_num_iter, "5", kOk},
        {tool_check_num_iter, "20000", kOk},
        {tool_check_num_iter, "4", kErrParamInvalid},
        {tool_check_num_iter, "20001", kErrParamInvalid},
        {tool_check_num_iter, "1e3", kErrParamInvalid},
        {tool_check_num_iter, "99999999999999999999", kErrParamInvalid},
        {tool_check_vfe, "vfe_0", kOk},
        {tool_check_vfe, "vfe_3x", kOk},
        {tool_check_vfe, "vfe_8", kErrParamInvalid},
        {tool_check_vfe, "vf_1", kErrParamInvalid},
    };
    for (const CheckCase &c : cases)
        EXPECT_EQ(c.check(c.text), c.want) << "text \"" << c.text << "\"";
}

TEST_F(CheckersTest, ParamTableDispatchesByExactKeyword)
{
    EXPECT_EQ(tool_check_param("via", "1.2.3.4"), kOk);
    EXPECT_EQ(tool_check_param("address", "1.2.3"), kErrParamInvalid);
    EXPECT_EQ(tool_check_param("-n", "4"), kErrParamInvalid);
    EXPECT_EQ(tool_check_param("addr", "1.2.3.4"), kErrParamInvalid);
}

TEST_F(CheckersTest, GetParamLooksAtEveryOtherWordAndBoundsTheCopy)
{
    char a0[] = "dev", a1[] = "eth1", a2[] = "ip", a3[] = "10.1.1.1", a4[] = "table";
    char *argv[] = {a0, a1, a2, a3, a4};
    char out[20] = {};
    EXPECT_EQ(tool_get_param(5, argv, "ip", out, sizeof(out)), kOk);
    EXPECT_STREQ(out, "10.1.1.1");
    // "eth1" sits at an odd index: a value, never a keyword.
    char none[20] = {};
    EXPECT_EQ(tool_get_param(5, argv, "eth1", none, sizeof(none)), kErrParamInvalid);
    // The last word is never a keyword.
    EXPECT_EQ(tool_get_param(5, argv, "table", none, sizeof(none)), kErrParamInvalid);
    char small[8] = {};
    EXPECT_EQ(tool_get_param(5, argv, "ip", small, sizeof(small)), kErrParamInvalid);
}

TEST_F(CheckersTest, NumberHelpersHonourLengthAndOverflowRules)
{
    EXPECT_EQ(check_str_is_num("12x", 2), 0);
    EXPECT_EQ(check_str_is_num("12x", 3), -22);
    // Only the first 8 characters are read.
    EXPECT_EQ(tool_para_overflow_check("123456789", 99999999, 0x2001), 0);
    EXPECT_EQ(tool_para_overflow_check("9703", 9702, 0x200E), 0x200E);
    EXPECT_EQ(tool_para_overflow_check("9702", 9702, 0x200E), 0);

    int64_t v = -5;
    EXPECT_EQ(str_to_off_t("0x1F", &v), 0);
    EXPECT_EQ(v, 31);
    EXPECT_EQ(str_to_off_t("0Xff", &v), 0);
    EXPECT_EQ(v, 255);
    EXPECT_EQ(str_to_off_t("1234", &v), 0);
    EXPECT_EQ(v, 1234);
    EXPECT_EQ(str_to_off_t("", &v), 0);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(str_to_off_t("0x", &v), 0);
    EXPECT_EQ(v, 0);
    EXPECT_LT(str_to_off_t("0x1G", &v), 0);
    EXPECT_LT(str_to_off_t("12a", &v), 0);
    EXPECT_EQ(str_to_off_t("0x7fffffffffffffff", &v), 0);
    EXPECT_EQ(v, INT64_MAX);
    EXPECT_EQ(str_to_off_t("0x8000000000000000", &v), -1);
    EXPECT_EQ(str_to_off_t("0x100000000000000000", &v), -1);
    EXPECT_EQ(str_to_off_t(nullptr, &v), -1);
}

TEST_F(CheckersTest, Ipv4ConversionKeepsNetworkOrderBothWays)
{
    uint32_t addr = 0;
    ASSERT_EQ(tool_inet_pton_ipv4_address("10.1.2.3", &addr), kOk);
    EXPECT_EQ(addr, htonl(0x0A010203));
    char buf[20];
    ASSERT_EQ(tool_ipv4_int_to_str(addr, buf, sizeof(buf)), kOk);
    EXPECT_STREQ(buf, "10.1.2.3");
    char tiny[8];
    EXPECT_EQ(tool_ipv4_int_to_str(addr, tiny, sizeof(tiny)), kErrSysCopy);
    EXPECT_EQ(tool_inet_pton_ipv4_address("10.1.2", &addr), kErrReported);
    EXPECT_EQ(tool_inet_pton_ipv4_address(nullptr, &addr), kErrSysNull);
}

TEST_F(CheckersTest, NetSegmentComparesOnlyMaskedBitsAndNamesTheBadInput)
{
    EXPECT_EQ(tool_check_ip_net_segment("10.0.0.2", "10.0.0.1", "255.255.255.0"), kOk);
    EXPECT_EQ(tool_check_ip_net_segment("10.0.1.2", "10.0.0.1", "255.255.255.0"),
              kErrGatewaySegment);
    EXPECT_EQ(tool_check_ip_net_segment("10.0.1.2", "10.0.0.1", "255.255.0.0"), kOk);

    testing::internal::CaptureStderr();
    EXPECT_EQ(tool_check_ip_net_segment("10.0.0.2", "10.0.0", "255.0.0.0"), kErrReported);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "The IP address is invalid!\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(tool_check_ip_net_segment("10.0.0.2", "10.0.0.1", "mask"), kErrReported);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "The netmask is invalid!\n");
}

class OptionParserTest : public ::testing::Test
{
  protected:
    option_parser parser_{};
    const char *time_ = nullptr;
    const char *verbose_ = nullptr;

    void SetUp() override
    {
        ASSERT_EQ(major_command_option(&parser_, "-t", "--time", true, &time_), kOk);
        ASSERT_EQ(major_command_option(&parser_, "-v", nullptr, false, &verbose_), kOk);
    }

    int32_t parse(std::vector<std::string> words)
    {
        words_ = std::move(words);
        ptrs_.clear();
        for (auto &w : words_)
            ptrs_.push_back(w.data());
        return command_parse(&parser_, static_cast<int>(ptrs_.size()), ptrs_.data());
    }

  private:
    std::vector<std::string> words_;
    std::vector<char *> ptrs_;
};

TEST_F(OptionParserTest, TakesOptionsInAnyOrderByEitherSpelling)
{
    ASSERT_EQ(parse({"-v", "--time", "10"}), kOk);
    EXPECT_STREQ(time_, "10");
    EXPECT_STREQ(verbose_, "-v");
}

TEST_F(OptionParserTest, RefusesRepeatsMissingValuesAndUnknownWords)
{
    EXPECT_EQ(parse({"-t", "1", "--time", "2"}), kErrParamInvalid);
    parser_.items[0].seen = parser_.items[1].seen = false;
    EXPECT_EQ(parse({"-v", "-t"}), kErrParamInvalid);
    parser_.items[0].seen = parser_.items[1].seen = false;
    EXPECT_EQ(parse({"-x"}), kErrOptionUnknown);
    parser_.items[0].seen = parser_.items[1].seen = false;
    // A value is consumed whole, even when it looks like an option.
    EXPECT_EQ(parse({"-t", "-v"}), kOk);
    EXPECT_STREQ(time_, "-v");
}

TEST_F(OptionParserTest, RegistrationRejectsBadInputAndA65thOption)
{
    const char *out = nullptr;
    EXPECT_EQ(major_command_option(nullptr, "-a", nullptr, false, &out), kErrParamInvalid);
    EXPECT_EQ(major_command_option(&parser_, nullptr, nullptr, false, &out), kErrParamInvalid);
    EXPECT_EQ(major_command_option(&parser_, "-a", nullptr, false, nullptr), kErrParamInvalid);
    for (int i = parser_.count; i < kOptionMax; ++i)
        ASSERT_EQ(major_command_option(&parser_, "-z", nullptr, false, &out), kOk);
    EXPECT_EQ(major_command_option(&parser_, "-y", nullptr, false, &out), kErrParamInvalid);
}

} // namespace
