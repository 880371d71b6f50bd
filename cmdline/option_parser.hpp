// A small parser of free-order options ("-t 10 --verbose ..."), each allowed once.
#pragma once

#include <cstdint>

inline constexpr int kOptionMax = 64; ///< options one parser can hold

/// One registered option.
struct option_item {
    const char *name1;  ///< first spelling (may be null)
    const char *name2;  ///< second spelling (may be null)
    bool takes_value;   ///< the next word is the option's value
    const char **value; ///< receives the value word, or the option word for a flag
    bool seen;          ///< already given on this command line
};

/// The options of one command and the position of the parse.
struct option_parser {
    int count; ///< registered options
    int pos;   ///< index of the word being parsed
    option_item items[kOptionMax];
};

/// Registers an option. 0x2001 for a null parser, two null spellings, a null output, or a
/// 65th option.
[[nodiscard]] int32_t major_command_option(option_parser *parser, const char *name1,
                                           const char *name2, bool takes_value, const char **value);

/// Parses every word: the first registered option whose spelling equals the word takes it (and
/// its value). 0, 0x1004 for a word no option takes, 0x2001 for a repeated option or a missing
/// value.
[[nodiscard]] int32_t command_parse(option_parser *parser, int argc, char **argv);

/// Takes the word at the parser's position for option `index`: refuses a repeat, marks it seen,
/// and stores its value (consuming the value word). 0 or 0x2001.
[[nodiscard]] int32_t cmp_option(option_parser *parser, int index, int argc, char **argv);

/// 0 when option `index` has the value it needs at the parser's position, else 0x2001.
[[nodiscard]] int32_t check_option_param(const option_parser *parser, int index, int argc);
