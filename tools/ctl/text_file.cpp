#include "tools/ctl/text_file.h"

#include <cerrno>
#include <cstdio>

std::optional<std::string> read_text_file(const std::string &path)
{
    std::FILE *const file = std::fopen(path.c_str(), "re");
    if (!file)
        return {};

    std::string text;
    char buffer[4096];
    for (size_t count; (count = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
        text.append(buffer, count);

    const bool whole = !std::ferror(file);
    const int error = errno;
    std::fclose(file);
    errno = error;
    return whole ? std::optional(text) : std::nullopt;
}
