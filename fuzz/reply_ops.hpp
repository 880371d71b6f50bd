// The calls of every device operation for the reply fuzzer, one row each with the contract of its
// reply; a test holds the rows to the operation catalogue (platform/kopa_platform.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.hpp"

/// The buffers of one call, each exactly as large as the operation is told it is.
class FuzzBuffers
{
  public:
    FuzzBuffers() = default;
    FuzzBuffers(const FuzzBuffers &) = delete;
    FuzzBuffers &operator=(const FuzzBuffers &) = delete;
    ~FuzzBuffers();
    void *bytes(size_t n);
    template <typename T> T *of(size_t count = 1)
    {
        return static_cast<T *>(bytes(sizeof(T) * count));
    }

  private:
    std::vector<void *> owned_;
};

/// One call: its arguments come from `in`, its buffers from `buf`.
struct ReplyCall {
    FuzzBytes &in;
    FuzzBuffers &buf;
    uint32_t id;
    uint32_t room = 0;  ///< kTable: records the caller had room for; kBlock: bytes
    uint32_t count = 0; ///< kTable: records the read answered
    /// A caller-given length of the reply: 1 to 6000 bytes, across the packet size.
    uint32_t len()
    {
        room = 1 + in.u16() % 6000;
        return room;
    }
};

/// What a successful call must have received, besides the sanitizers' rules.
enum class Reply {
    kNone,   ///< no reply: a command without answer, or the generic pass-through
    kRecord, ///< exactly one record (`record` bytes, or the catalogue's size when 0)
    kTable,  ///< whole records of `record` bytes, no more than the caller's room
    kText,   ///< a terminated text of 1 to 2000 bytes
    kBlock,  ///< bytes of the device's choosing, no more than the caller's room
};

struct ReplyOp {
    const char *name;
    std::function<int(ReplyCall &)> run;
    Reply reply = Reply::kNone;
    uint32_t record = 0;
};

/// The reply size the catalogue gives the operation `name` (KOPA_SIZE_CALLER when the caller
/// gives it); 0 for a name that is no row.
uint32_t catalogue_out(std::string_view name);

/// One row per operation of the catalogue, then the silent reads and the pass-through.
const std::vector<ReplyOp> &reply_ops();
