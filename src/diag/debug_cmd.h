/// Text commands of the debug pipe.
#pragma once

/// 1 when the text begins with "debug", else 0.
int is_dbg_msg(const char *text);

/// Interprets one command line. The text is cut into words in place.
void excute_dbg_cmd(char *text);

/// Prints the help text to the console.
void lvt_debug_menu();
