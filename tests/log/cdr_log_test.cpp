// The clock-data-recovery register dump file: a dump goes whole into one file of the running
// user, and a file planted under its name, or swapped in between two texts, fails it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "log/cdr_reg_log.hpp"

namespace
{

namespace fs = std::filesystem;

std::string slurp(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class CdrLogTest : public ::testing::Test
{
  protected:
    std::string dir_;
    fs::path old_cwd_;

    void SetUp() override
    {
        std::string tmpl = fs::temp_directory_path().string() + "/cdr-log-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir_ = tmpl;
        old_cwd_ = fs::current_path();
        fs::current_path(dir_);
    }
    void TearDown() override
    {
        fs::current_path(old_cwd_);
        fs::remove_all(dir_);
    }
    /// A new dump of two texts; `between` runs after the first.
    bool dump(const std::function<void(const std::string &)> &between = {})
    {
        EXPECT_EQ(generate_file_name(5), 0);
        VornCdrRegPrintLog("lane %u\n", 0U);
        if (between)
            between(vorn_cdr_file_name());
        VornCdrRegPrintLog("lane %u\n", 1U);
        return vorn_cdr_dump_ok();
    }
};

TEST_F(CdrLogTest, DumpGoesWholeIntoOneFileOfTheUser)
{
    ASSERT_TRUE(dump());
    const std::string name = vorn_cdr_file_name();
    EXPECT_EQ(slurp(name), "lane 0\nlane 1\n");
    // Two dumps within one millisecond share the name; the second appends to the first.
    ASSERT_EQ(generate_file_name(5), 0);
    if (name == vorn_cdr_file_name()) {
        VornCdrRegPrintLog("again\n");
        EXPECT_TRUE(vorn_cdr_dump_ok());
    }
}

TEST_F(CdrLogTest, PlantedOrSwappedFileFailsTheDumpAndGetsNothing)
{
    const std::string other = dir_ + "/other";
    const struct {
        const char *what;
        std::function<void(const std::string &)> plant; ///< under the name, before the first text
        std::function<void(const std::string &)> between;
        bool needs_root;
    } cases[] = {
        {"a link",
         [&](const std::string &name) { ASSERT_EQ(symlink(other.c_str(), name.c_str()), 0); },
         {},
         false},
        {"a FIFO without reader",
         [](const std::string &name) { ASSERT_EQ(mkfifo(name.c_str(), 0600), 0); },
         {},
         false},
        {"a directory", [](const std::string &name) { fs::create_directory(name); }, {}, false},
        {"another user's file",
         [](const std::string &name) {
             std::ofstream(name) << "";
             ASSERT_EQ(chown(name.c_str(), 65534, 65534), 0);
         },
         {},
         true},
        {"a file swapped in between",
         {},
         [&](const std::string &name) {
             std::ofstream(other) << "";
             fs::rename(other, name);
         },
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        if (c.needs_root && geteuid() != 0)
            continue;
        std::ofstream(other) << "";
        ASSERT_EQ(generate_file_name(5), 0);
        const std::string name = vorn_cdr_file_name();
        if (c.plant)
            c.plant(name);
        VornCdrRegPrintLog("lane %u\n", 0U);
        if (c.between)
            c.between(name);
        VornCdrRegPrintLog("lane %u\n", 1U);
        EXPECT_FALSE(vorn_cdr_dump_ok());
        EXPECT_EQ(slurp(c.between ? name : other), "") << "the planted file got the dump";
        fs::remove_all(name);
        fs::remove_all(other);
    }
}

} // namespace
