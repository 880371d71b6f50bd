// Fuzzes the reply decoding of every device operation: the channel and the operation catalogue
// talk to a scripted firmware (fuzz/reply_script) whose every reply record the input shapes.
//
// Input: one byte picks the operation, one the logical id (16 now and then), the next 8 bytes
// are the operation's own arguments (caller-given lengths, counts), the rest is the reply script.
//
// Every buffer an operation fills is allocated to its exact size, so that a write or read past
// it is caught. Besides the sanitizers, each operation keeps the contract of its reply
// (fuzz/reply_ops):
// - a failed call prints nothing;
// - a record read that succeeds has had its whole record copied out of the replies;
// - a table read that succeeds answers no more records than the caller's room, and exactly the
//   records the replies carried;
// - a text read that succeeds has received at least its terminator;
// - a read of the device's length that succeeds took no more than the caller's room.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.hpp"
#include "fuzz/reply_ops.hpp"
#include "fuzz/reply_script.hpp"
#include "platform/kopa_platform.h"

namespace
{

void check_reply(const ReplyOp &op, const ReplyCall &c, uint64_t copied)
{
    const std::string name = op.name;
    switch (op.reply) {
    case Reply::kNone:
        break;
    case Reply::kRecord: {
        const uint32_t size = op.record != 0 ? op.record : catalogue_out(name);
        if (copied != size)
            fuzz_fault("reply_fuzz", name,
                       "accepted a reply of " + std::to_string(copied) + " bytes for a " +
                           std::to_string(size) + "-byte record");
        break;
    }
    case Reply::kTable:
        if (c.count > c.room || uint64_t{c.count} * op.record != copied)
            fuzz_fault("reply_fuzz", name,
                       "answered " + std::to_string(c.count) + " records with room for " +
                           std::to_string(c.room) + " and " + std::to_string(copied) +
                           " bytes received");
        break;
    case Reply::kText:
        if (copied == 0 || copied > KOPA_PKT_PAYLOAD)
            fuzz_fault("reply_fuzz", name, "took a text of " + std::to_string(copied) + " bytes");
        break;
    case Reply::kBlock:
        if (copied > c.room)
            fuzz_fault("reply_fuzz", name,
                       "took " + std::to_string(copied) + " bytes with room for " +
                           std::to_string(c.room));
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    (void)fuzz_dir();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (void)fuzz_take_stdout();
    FuzzBytes in(data, size);
    const ReplyOp &op = reply_ops()[in.u8() % reply_ops().size()];
    const uint8_t id = in.u8();
    const uint32_t logic_id = id < 0xF0 ? id % KOPA_MAX_DEVICES : KOPA_MAX_DEVICES;

    // The operation's arguments take the next 8 bytes, the reply script the rest.
    const size_t arg_bytes = in.size() < 8 ? in.size() : 8;
    FuzzBytes arg_in(in.data(), arg_bytes);
    const ReplyScript &script =
        reply_script_start(FuzzBytes(in.data() + arg_bytes, in.size() - arg_bytes));
    FuzzBuffers buf;
    ReplyCall c{arg_in, buf, logic_id};
    const int ret = op.run(c);
    const std::string printed = fuzz_take_stdout();
    if (ret != 0) {
        if (!printed.empty())
            fuzz_fault("reply_fuzz", op.name, "printed after a failed reply: " + printed);
        return 0;
    }
    check_reply(op, c, script.copied);
    return 0;
}
