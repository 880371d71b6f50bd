// Fuzzes the configuration store's read, rewrite and delete on arbitrary file contents, keys and
// values: nothing may crash or overrun, a successful rewrite ends the file with the new line and
// keeps it within the size limit, a refused one leaves the file as it was.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "config/store.hpp"

namespace
{

std::string take_word(const uint8_t *&data, size_t &size)
{
    if (size == 0)
        return "";
    size_t len = data[0] % 48;
    ++data;
    --size;
    len = len < size ? len : size;
    std::string word;
    for (size_t i = 0; i < len; ++i)
        word += (data[i] == '\n' || data[i] == '\0') ? '_' : static_cast<char>(data[i]);
    data += len;
    size -= len;
    return word;
}

std::string slurp(const std::string &path)
{
    std::string text;
    if (FILE *f = fopen(path.c_str(), "rb")) {
        char buf[65536];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0)
            text.append(buf, n);
        fclose(f);
    }
    return text;
}

void spill(const std::string &path, const uint8_t *data, size_t size)
{
    if (FILE *f = fopen(path.c_str(), "wb")) {
        fwrite(data, 1, size, f);
        fclose(f);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string path = "/tmp/vorn-store-fuzz-" + std::to_string(getpid()) + ".conf";
    std::string key = take_word(data, size);
    std::string value = take_word(data, size);
    if (key.empty())
        return 0;

    spill(path, data, size);
    char out[64];
    memset(out, 'x', sizeof out);
    int ret = cfg_inner_read_conf(path.c_str(), key.c_str(), out, sizeof out);
    if (ret == 0 && memchr(out, '\0', sizeof out) == nullptr)
        abort();

    std::string before = slurp(path);
    ret = cfg_inner_write_conf(path.c_str(), key.c_str(), value.c_str());
    std::string after = slurp(path);
    std::string line = key + "=" + value + "\n";
    if (ret == 0 && (after.size() < line.size() || after.size() >= kCfgFileMax ||
                     after.compare(after.size() - line.size(), line.size(), line) != 0))
        abort();
    if (ret != 0 && after != before)
        abort();

    ret = cfg_inner_del_conf(path.c_str(), key.c_str());
    if (ret == 0 && slurp(path).size() > after.size())
        abort();
    return 0;
}
