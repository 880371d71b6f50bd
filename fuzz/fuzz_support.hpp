// What every fuzz target of the tool shares: a private directory under $TMPDIR for the files the
// code under test writes, quiet standard streams, and small helpers to take bytes of an input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A directory made by mkdtemp under $TMPDIR (else /tmp) on first use, removed with everything
/// in it when the process ends normally. The emulator's state directory (KOPA_EMU_DIR) is set to
/// "<dir>/emu" and the test root of the tool's absolute paths (VORN_TEST_ROOT) to "<dir>/root",
/// both created empty, so that no file outside the directory is ever touched. Aborts when the
/// directory cannot be made.
const std::string &fuzz_dir();

/// For LLVMFuzzerInitialize: standard input reads from /dev/null (the pass-phrase prompt of -tls
/// meets its end at once), and, unless the command line already says otherwise, libFuzzer is
/// told to send the target's standard output and error to /dev/null (-close_fd_mask=3) while its
/// own reports and the sanitizers' keep the real standard error.
void fuzz_quiet(int *argc, char ***argv);

/// Reports a broken rule of the target ("<target>: <what>: <detail>") on the real standard error
/// (kept aside by fuzz_quiet) and aborts, which libFuzzer takes for a crash and keeps the input.
[[noreturn]] void fuzz_fault(const char *target, const std::string &what,
                             const std::string &detail = "");

/// What the target printed on standard output since the last call (the first call puts a memory
/// file in place of standard output, over whatever libFuzzer made of it, and answers ""). Each
/// call starts the capture afresh.
std::string fuzz_take_stdout();

/// Whole contents of a file, "" when it cannot be read.
std::string fuzz_slurp(const std::string &path);
/// Replaces a file's contents (creating it with `mode`); false on failure.
bool fuzz_spill(const std::string &path, const std::string &text, unsigned mode = 0640);

/// Takes bytes off the front of a fuzz input; past its end every read answers zero.
class FuzzBytes
{
  public:
    FuzzBytes(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] size_t size() const { return size_; }
    [[nodiscard]] const uint8_t *data() const { return data_; }
    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    /// Up to `max` bytes (fewer when the input ends).
    std::string bytes(size_t max);
    /// A length byte (modulo `max` + 1), then that many bytes.
    std::string word(size_t max);
    /// The rest of the input.
    std::string rest();

  private:
    const uint8_t *data_;
    size_t size_;
};

/// Splits `text` at blanks and tabs into words (empty words dropped).
std::vector<std::string> fuzz_words(const std::string &text);

/// An argument vector of separately allocated copies of `words` (each exactly as long as its
/// word, so that a read past a word's end is caught), null-terminated.
class FuzzArgv
{
  public:
    explicit FuzzArgv(const std::vector<std::string> &words);
    ~FuzzArgv();
    FuzzArgv(const FuzzArgv &) = delete;
    FuzzArgv &operator=(const FuzzArgv &) = delete;
    [[nodiscard]] int argc() const { return static_cast<int>(words_.size()); }
    [[nodiscard]] char **argv() { return ptrs_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<char *> ptrs_;
};
