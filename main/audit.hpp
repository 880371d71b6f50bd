// The audit of the command line: every argument written to the run log, secrets masked.
#pragma once

/// Writes every argument to the run log in order: a value that follows a black-listed option
/// word of the command becomes "********", any other has each character outside
/// [-./0-9A-Z_a-z] replaced by '*'.
void record_cmd_to_log(int argc, char **argv);

/// True when argv[index] is the value of a black-listed option of the command argv[3].
bool check_cmd_is_in_black_list(int index, char **argv);

/// Logs argv[index] with every character outside [-./0-9A-Z_a-z] replaced by '*' (in place).
void record_normal_cmd_to_log(int index, char *text);

/// Logs argv[index] as "********"; `buffer` is wiped.
void record_black_list_cmd_to_log(int index, char *buffer);
