// The secret buffer leaves nothing behind: its bytes are zero once it is gone, on a normal and
// on an early return, and the type refuses to be copied or moved.
#include "base/secure_buffer.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <type_traits>

namespace
{

static_assert(!std::is_copy_constructible_v<SecureBuffer<32>>);
static_assert(!std::is_copy_assignable_v<SecureBuffer<32>>);
static_assert(!std::is_move_constructible_v<SecureBuffer<32>>);

// Holds a secret in `storage` and leaves early when asked, as a failing path would.
bool use_secret(void *storage, bool fail)
{
    auto *secret = new (storage) SecureBuffer<64>;
    memset(secret->data(), 0xA5, secret->size());
    struct Scope {
        SecureBuffer<64> *s;
        ~Scope() { s->~SecureBuffer<64>(); }
    } scope{secret};
    if (fail)
        return false;
    return secret->data()[63] == 0xA5;
}

bool all_zero(const unsigned char *bytes, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        if (bytes[i] != 0)
            return false;
    }
    return true;
}

TEST(SecureBufferTest, IsWipedWhenItsScopeEndsOnEveryPath)
{
    for (bool fail : {false, true}) {
        alignas(SecureBuffer<64>) unsigned char storage[sizeof(SecureBuffer<64>)];
        memset(storage, 0xFF, sizeof(storage));
        (void)use_secret(storage, fail);
        EXPECT_TRUE(all_zero(storage, sizeof(storage))) << (fail ? "early return" : "success");
    }
}

TEST(SecureBufferTest, WipeZeroesAtOnce)
{
    SecureBuffer<16> key;
    memcpy(key.chars(), "0123456789abcdef", 16);
    key.wipe();
    EXPECT_TRUE(all_zero(key.data(), key.size()));
}

} // namespace
