// The common body of every device operation: argument checks, one channel exchange and the
// handling of the firmware's verdict. Private to the operation catalogue.
#pragma once

#include <cstdint>

#include "base/result.hpp"

/// Logs "logic id:%d is invalid! expect [0]-[15]" under the operation's name when `logic_id`
/// is out of range. Use through KOPA_LOGIC_ID_OK.
[[nodiscard]] bool kopa_logic_id_ok(uint32_t logic_id, const char *func, int line);

/// Logs "<what> is null, logic_id[%d]" under the operation's name when `ptr` is null. Use
/// through KOPA_ARG_OK.
[[nodiscard]] bool kopa_arg_ok(const void *ptr, const char *what, uint32_t logic_id,
                               const char *func, int line);

#define KOPA_LOGIC_ID_OK(logic_id) kopa_logic_id_ok((logic_id), __func__, __LINE__)
#define KOPA_ARG_OK(ptr, logic_id) kopa_arg_ok((ptr), #ptr, (logic_id), __func__, __LINE__)

/// Prints the permission line on standard error and logs it (firmware result -13).
void kopa_report_permission();

/// Sends `opcode` with `in_len` bytes of `in` (null when 0) to device `logic_id` and collects
/// its reply, a record of exactly `out_len` bytes, into `out` (null when 0). `name` is the
/// operation's name for the log lines "<name> fail ret[%d] logic_id[%d]" and "<name> error
/// result[%d]". Returns 0, the channel's negative code, or the firmware's non-zero result (-13
/// also prints the permission line). An accepted command whose reply does not fill the record
/// is a device failure: logged as "<name> reply carries %u bytes, expected %u, logic_id[%d]"
/// (or, when a piece the channel passed over made up the count, "<name> reply carries %u bytes,
/// %u of them copied, expected %u, logic_id[%d]") and returned as -22, so that no caller takes
/// unsent bytes for the device's answer. A command without reply (`out_len` 0) has nothing to
/// check.
[[nodiscard]] int kopa_exchange(const char *name, uint32_t logic_id, uint32_t opcode,
                                const void *in, uint32_t in_len, void *out, uint32_t out_len,
                                uint32_t client_pid = 0);

/// As kopa_exchange for a reply whose length the device chooses (texts, tables, dumps, a
/// number of records): whatever arrives within the `out_len` bytes of `out` is taken, an
/// empty reply included, and `copied` (when given) gets the number of bytes copied into `out`.
/// A reply the channel counted longer than it copied (a first piece longer than a packet, which
/// it passes over) is a device failure: logged as "<name> reply carries %u bytes, %u of them
/// copied, logic_id[%d]" and returned as -22, so that no caller sizes an answer by bytes it
/// never received.
[[nodiscard]] int kopa_exchange_variable(const char *name, uint32_t logic_id, uint32_t opcode,
                                         const void *in, uint32_t in_len, void *out,
                                         uint32_t out_len, uint32_t client_pid = 0,
                                         uint32_t *copied = nullptr);

/// A table of records of `record_size` bytes read into `records`: `*count` is the caller's room
/// in records on entry and the number of whole records copied on return (0 on failure). A reply
/// that ends inside a record is a device failure, logged as "<name> reply carries %u bytes, not
/// whole records of %u, logic_id[%d]" and returned as -22.
[[nodiscard]] int kopa_read_records(const char *name, uint32_t logic_id, uint32_t opcode,
                                    void *records, uint32_t record_size, uint32_t *count);

/// kopa_read_records for an array of T.
template <typename T>
[[nodiscard]] int kopa_read_table(const char *name, uint32_t logic_id, uint32_t opcode, T *records,
                                  uint32_t *count)
{
    return kopa_read_records(name, logic_id, opcode, records, static_cast<uint32_t>(sizeof(T)),
                             count);
}
