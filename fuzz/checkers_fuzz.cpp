// Fuzzes the argument checkers with arbitrary words: nothing may crash, and the checkers must
// agree with one another (an address the strict checker accepts converts and prints back to the
// same text; a MAC text the checker accepts converts to bytes).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cmdline/checkers.hpp"
#include "commands/port_settings.hpp"
#include "fuzz/fuzz_support.hpp"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    (void)fuzz_dir(); // the driver log of the refusals goes there
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *text = reinterpret_cast<const char *>(data);
    std::string word(text, strnlen(text, size));
    const char *w = word.c_str();

    (void)tool_check_ip_mask_bit(w);
    (void)tool_check_dev(w);
    (void)tool_check_table(w);
    (void)tool_check_dir(w);
    (void)tool_check_num(w);
    (void)tool_check_num_iter(w);
    (void)tool_check_vfe(w);
    (void)tool_para_overflow_check(w, 9702, 0x200E);
    (void)check_str_is_num(w, static_cast<uint32_t>(word.size()));
    int64_t off = 0;
    (void)str_to_off_t(w, &off);

    if (tool_check_ip(w) == 0) {
        uint32_t addr = 0;
        char back[20] = {};
        if (tool_inet_pton_ipv4_address(w, &addr) != 0 ||
            tool_ipv4_int_to_str(addr, back, sizeof back) != 0 || word != back)
            fuzz_fault("checkers_fuzz", "an accepted address does not print back", word);
    }
    if (tool_check_mac(w) == 0) {
        uint8_t mac[6] = {};
        if (tool_mac_str2char(w, mac, sizeof mac) != 0)
            fuzz_fault("checkers_fuzz", "an accepted MAC address does not convert", word);
    }
    if (word.size() == 17) // the tool checks the length before the reserved list
        (void)tool_mac_filter_check(w);
    return 0;
}
