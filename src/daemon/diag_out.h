/// What the daemon asks of its diagnostics; diag/ answers.
#pragma once

/// 1 when the text begins with "debug", else 0.
int is_dbg_msg(const char *text);

/// Interprets one command line of the debug pipe. The text is cut into words in place. Takes no lock.
void excute_dbg_cmd(char *text);

/// Rewrites the status file; readers never see a part of it. Called by the tick thread, without the
/// engine's lock. Returns 0, or -1 when it could not be opened or put in place; the next tick tries
/// again. Without room for it the file stays as it was, and the result is 0.
int lvt_rstp_monitor_info_write();
