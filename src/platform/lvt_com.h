/// Operator console, from the board library libLvtCom.so.
#pragma once

/// Prints to the board's console as printf does; returns the characters printed,
/// or a negative number.
extern "C" int osPrintfConsole(const char *format, ...) __attribute__((format(printf, 1, 2)));
