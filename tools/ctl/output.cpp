#include "tools/ctl/output.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/ctl/ctl.h"

std::optional<screen_t> screen()
{
    const char *kind = std::getenv("TERM");
    if (!isatty(STDOUT_FILENO) || (kind && std::string_view(kind) == "dumb"))
        return {};
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    return screen_t{size.ws_row, size.ws_col};
}

void flush_output()
{
    if (std::fflush(stdout) != 0)
        throw refused_t(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
}

void flush_for_reader()
{
    flush_output();
    pollfd reader = {STDOUT_FILENO, 0, 0};
    if (poll(&reader, 1, 0) == 1 && reader.revents & POLLERR)
        throw refused_t("nobody reads the output any more");
}
