/// Where a configuration file is, and the way there.
#pragma once

#include <string>

/// A file by the name that a person knows it by.
struct place_t {
    std::string root; ///< the folder of the board that `path` is below; empty: `path` is this machine's own
    std::string path; ///< below `root` absolute

    std::string text() const { return root + path; }
};

/// The folder that holds a file, opened, so that what is read there, locked and written is the same,
/// whatever path leads to it.
///
/// Below a board's root only the file itself may be a link, and one that leads to / leads to the root:
/// the text of a link is understood where the link is, and a root such as /proc/PID/root is one whose
/// text, "/", means another folder to everybody who reads it.
class folder_t {
public:
    explicit folder_t(const place_t &place);
    ~folder_t();
    folder_t(const folder_t &) = delete;
    folder_t &operator=(const folder_t &) = delete;

    int number() const { return fd_; }                ///< -1: it could not be opened, for the reason error()
    int error() const { return error_; }              ///< an errno value
    const std::string &name() const { return name_; } ///< the file's name in the folder; no link

private:
    void find(const place_t &place);
    void enter(int fd);

    int fd_ = -1;
    int error_ = 0;
    std::string name_;
};
