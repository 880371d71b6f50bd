// The pass phrase of a TLS private key: read from the terminal without echo, then held to the
// length, kind and weak-password rules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/secure_buffer.hpp"

inline constexpr uint32_t kPwdMinLen = 8;
inline constexpr uint32_t kPwdMaxLen = 15;
inline constexpr size_t kPwdBufLen = 32;
inline constexpr uint32_t kWeakDictMaxLines = 10000;
inline constexpr size_t kWeakDictLineMax = 1024;

using PwdBuffer = SecureBuffer<kPwdBufLen>;

/// The prompt, on standard output.
inline constexpr const char *kPwdPrompt = "Please enter pass phrase for pri key:";

/// Reads one line from the terminal on standard input with echo off (the newline is still
/// echoed), after the prompt; the terminal's settings are restored before returning, and also
/// when the run is ended by a signal meanwhile. 0, or 0x300A when standard input is no terminal
/// or gives no line (the buffer is wiped then).
[[nodiscard]] int32_t tool_get_passwd(PwdBuffer &pwd);

/// Removes every `c` from the text in `buf` (`cap` bytes, zero-terminated within them).
void tool_filter_str(char *buf, size_t cap, char c);

/// One of the 32 special characters a pass phrase may carry (the double quote is not one).
[[nodiscard]] bool is_special_char(char c);

/// 0 when `len` bytes of `pwd` hold at least two of: digit, lower-case letter, upper-case
/// letter, special character; 0x2017 when fewer, or when a byte is none of them.
[[nodiscard]] int32_t tool_check_pwd_complexity(const char *pwd, uint32_t len);

/// The weak-password dictionary of `user` (root's own, or the one in the user's home), under
/// the test root in a test build.
[[nodiscard]] std::string weak_dict_path(const char *user);

/// Looks `len` bytes of `pwd` up in the dictionary at `path`, a line per word. 0 when absent
/// from it; 0x2018 when present (case-sensitive, whole line); 0x201A when there is no
/// dictionary, 0x201B when it is empty, 0x201C above 10000 lines, 0x3002 for a line longer
/// than 1024 characters. Every buffer that held a line is wiped.
[[nodiscard]] int32_t crypto_check_weak_pwd(const char *pwd, uint32_t len, const char *path);

/// Tells the user what the weak-password check found; 0 for the results that let the pass
/// phrase pass (0, 0x201A, 0x201B), 0x201D for the others.
[[nodiscard]] int32_t weak_pwd_check_ret_print(int32_t ret);

/// Removes the newline and applies the length (0x2016), kind (0x2017) and weak-password
/// (0x201D) rules for `user`; `*len` gets the pass phrase's length.
[[nodiscard]] int32_t tool_check_pwd(PwdBuffer &pwd, uint32_t *len, const char *user);
