// Keyword/value pairs in any order ("dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:55"), as the ARP
// command takes them and as the saved ARP and policy-routing lines hold them.
#pragma once

#include <cstdint>
#include <span>

#include "commands/cmd_common.hpp"

/// One keyword and the buffer its value goes to; a value that does not fit the buffer with its
/// terminator is refused.
struct KeywordArg {
    const char *word;
    char *value;
    uint32_t size;
    /// The value's checker (0 or a refusal); null: the checker of the parameter check table,
    /// through tool_get_param.
    int32_t (*check)(const char *value) = nullptr;
    /// What the value may be, for the refusal; null: the words of the parameter check table.
    const char *expected = nullptr;
};

/// Who gave the words: an administrator on the command line, or a saved line being replayed.
enum class WordsFrom : uint8_t { kTyped, kSaved };

/// Reads the pairs argv[0] argv[1], argv[2] argv[3] ...: every keyword of `args` exactly once,
/// in any order, and no other word; each value is read and checked. The
/// reason of a refusal goes to the driver log (under `where`) and, for typed words, to standard
/// error as one line naming the word and what was expected. Returns 0; kErrUnknownOption for a
/// typed word that is no keyword of `args`; kErrParamInvalid for a keyword given twice, a bad
/// value, or saved words that are not exactly the pairs of `args`.
[[nodiscard]] int32_t cmd_read_keywords(const CallSite &where, int argc, char **argv,
                                        std::span<const KeywordArg> args, WordsFrom from);

/// Whether `line` is a saved line under `key` (with its "=", such as "arp_3="): it begins with
/// it. A line that only contains the key further on (a comment "#arp_3=...") is not.
[[nodiscard]] bool cmd_is_saved_line_of(const char *line, const char *key);

/// Splits the value of a saved line "<key>=<words>" (blanks, tabs or a carriage return between
/// words) into `words` of at most `max` entries, pointing into `buf`, a copy of the line. Returns
/// the number of words, or -1 when the line has no "=" or more than `max` words.
[[nodiscard]] int cmd_split_saved_line(const char *line, char *buf, uint32_t buf_size, char **words,
                                       int max);
