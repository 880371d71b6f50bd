// The clock-data-recovery register log: a dump file per run in the current directory.
#pragma once

/// Makes the dump file name "device-<id>-CdrReg_<y><m><d><H><M><S><ms>.log" (plain decimals)
/// from the local time, and starts a new dump under it. 0, or -1 when the time cannot be read or
/// the name cannot be formatted.
[[nodiscard]] int generate_file_name(int device_id);

/// Appends one formatted text (at most 1023 characters) to the dump file, as is. The file is
/// opened for each text (created when missing, never through a link, never waiting on a FIFO)
/// and written only when it is a regular file owned by the running user and the very file (device
/// and inode) of the dump's earlier texts; after a failure the dump writes nothing more.
void VornCdrRegPrintLog(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Whether every text since generate_file_name went whole into the dump's one file.
[[nodiscard]] bool vorn_cdr_dump_ok();

/// The current dump file name ("" before generate_file_name).
const char *vorn_cdr_file_name();
