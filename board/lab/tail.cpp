#include "board/lab/tail.h"

#include <cstdio>
#include <fstream>

#include <fmt/format.h>

namespace lab {

void tail_t::add(const std::string &path, const std::string &title, bool words_only)
{
    files_.push_back({path, title, words_only, 0, {}});
}

void tail_t::show()
{
    for (file_t &file : files_) {
        std::ifstream stream(file.path);
        stream.seekg(file.at);
        for (char letter; stream.get(letter); file.at++) {
            if (letter != '\n') {
                file.line += letter;
                continue;
            }
            show_line(file);
            file.line.clear();
        }
    }
    std::fflush(stdout);
}

void tail_t::show_line(const file_t &file)
{
    const size_t bar = file.line.find(" | ");
    if (!file.words_only)
        fmt::print("{:<7} | {}\n", file.title, file.line);
    else if (bar != std::string::npos)
        fmt::print("{:<7}{}\n", file.title, file.line.substr(bar));
}

} // namespace lab
