// Stand-in for the board library libLvtCom.so: the console is the file that LVT_CONSOLE names,
// or standard output.
#include "platform/lvt_com.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <pthread.h>

namespace {

pthread_once_t once = PTHREAD_ONCE_INIT;
FILE *console;

void console_open()
{
    const char *path = getenv("LVT_CONSOLE");
    if (path != nullptr && *path != '\0')
        console = fopen(path, "ae");
    if (console == nullptr)
        console = stdout;
}

} // namespace

int osPrintfConsole(const char *format, ...)
{
    pthread_once(&once, console_open);

    va_list arguments;
    va_start(arguments, format);
    flockfile(console);
    const int printed = vfprintf(console, format, arguments);
    fflush(console);
    funlockfile(console);
    va_end(arguments);
    return printed;
}
