// A buffer for secrets: a pass phrase, a symmetric key, a record that carries them. It cannot be
// copied or moved, so no second copy is made behind the reader's back, and it wipes itself with
// OPENSSL_cleanse (which the compiler may not drop as a dead store) when it goes out of scope,
// on every path out of the function that holds it.
#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>

template <size_t N> class SecureBuffer
{
  public:
    static_assert(N > 0, "a secret has a size");

    SecureBuffer() = default;
    ~SecureBuffer() { wipe(); }
    SecureBuffer(const SecureBuffer &) = delete;
    SecureBuffer &operator=(const SecureBuffer &) = delete;
    SecureBuffer(SecureBuffer &&) = delete;
    SecureBuffer &operator=(SecureBuffer &&) = delete;

    [[nodiscard]] uint8_t *data() { return bytes_; }
    [[nodiscard]] const uint8_t *data() const { return bytes_; }
    [[nodiscard]] char *chars() { return reinterpret_cast<char *>(bytes_); }
    [[nodiscard]] const char *chars() const { return reinterpret_cast<const char *>(bytes_); }
    [[nodiscard]] static constexpr size_t size() { return N; }

    /// Zeroes the secret now (it is zeroed again at the end of its scope).
    void wipe() { OPENSSL_cleanse(bytes_, N); }

  private:
    alignas(16) uint8_t bytes_[N] = {};
};
