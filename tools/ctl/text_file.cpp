#include "tools/ctl/text_file.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "tools/ctl/ctl.h"

file_t open_regular_file(const std::string &path)
{
    // A pipe without writer would keep the opening waiting.
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return {nullptr, std::fclose};
    file_t file(fdopen(fd, "r"), std::fclose);

    struct stat kind = {};
    if (fstat(fd, &kind) != 0 || !S_ISREG(kind.st_mode))
        throw refused_t(
            fmt::format("cannot read {}: not a regular file. Put one in its place, or name another.", path));
    return file;
}

std::optional<std::string> read_text_file(const std::string &path, size_t octets_max)
{
    const file_t file = open_regular_file(path);
    if (!file)
        return {};
    std::string text(octets_max + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    if (std::ferror(file.get()))
        return {};
    if (text.size() > octets_max)
        throw refused_t(fmt::format("cannot read {}: it has more than {} octets", path, octets_max));
    return text;
}
