#include "tools/ctl/text_file.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "tools/ctl/ctl.h"

namespace {

constexpr int READING = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC; // a pipe without writer must not keep us waiting

file_t regular_file(int fd, const std::string &path)
{
    if (fd < 0)
        return {nullptr, std::fclose};
    file_t file(fdopen(fd, "r"), std::fclose);

    struct stat kind = {};
    if (fstat(fd, &kind) != 0 || !S_ISREG(kind.st_mode))
        throw refused_t(
            fmt::format("cannot read {}: not a regular file. Put one in its place, or name another.", path));
    return file;
}

} // namespace

file_t open_regular_file(const std::string &path) { return regular_file(open(path.c_str(), READING), path); }

file_t open_regular_file(int folder, const std::string &name, const std::string &path)
{
    return regular_file(openat(folder, name.c_str(), READING | O_NOFOLLOW), path);
}

std::optional<std::string> read_text_file(const std::string &path, size_t octets_max)
{
    const file_t file = path == "-" ? file_t(stdin, [](std::FILE *) { return 0; }) : open_regular_file(path);
    return read_text_file(file, path, octets_max);
}

std::optional<std::string> read_text_file(const file_t &file, const std::string &path, size_t octets_max)
{
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
