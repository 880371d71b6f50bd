// The clock-data-recovery register log: a dump file per run in the current directory.
#pragma once

/// Makes the dump file name "device-<id>-CdrReg_<y><m><d><H><M><S><ms>.log" (plain decimals)
/// from the local time. 0, or -1 when the time cannot be read or the name cannot be formatted.
[[nodiscard]] int generate_file_name(int device_id);

/// Appends one formatted text (at most 1023 characters) to the dump file, as is.
void VornCdrRegPrintLog(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// The current dump file name ("" before generate_file_name).
const char *vorn_cdr_file_name();
