/// Following files that others write.
#pragma once

#include <string>
#include <vector>

namespace lab {

/// Shows what is appended to files, line by line.
class tail_t {
public:
    /// A file to follow from its beginning on; it need not be there yet.
    ///
    /// title       goes before each of its lines.
    /// words_only  shows of each line what follows its first " | ", and no line without one.
    void add(const std::string &path, const std::string &title, bool words_only = false);

    /// Prints the lines that have come since the last call.
    void show();

private:
    struct file_t {
        std::string path;
        std::string title;
        bool words_only;
        long at;          ///< what is before has been read
        std::string line; ///< whose end has not been written yet
    };

    static void show_line(const file_t &file);

    std::vector<file_t> files_;
};

} // namespace lab
