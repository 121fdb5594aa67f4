#include "tools/ctl/place.h"

#include <cerrno>
#include <climits>
#include <filesystem>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using path_t = std::filesystem::path;

constexpr int LINKS_MAX = 40; ///< as the kernel allows
constexpr int FOLDER = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// What the link says; nothing when the file is none, or not there.
std::optional<path_t> link_text(int folder, const std::string &name)
{
    char text[PATH_MAX];
    const ssize_t length = readlinkat(folder, name.c_str(), text, sizeof text);
    if (length < 0)
        return {};
    return path_t(std::string(text, static_cast<size_t>(length)));
}

/// Opens a folder below `root` that no link leads to.
int open_below(const std::string &root, const path_t &folder)
{
    int fd = open(root.c_str(), FOLDER);
    for (const path_t &part : folder.relative_path()) {
        if (fd < 0)
            return fd;
        const int next = openat(fd, part.c_str(), FOLDER | O_NOFOLLOW);
        const int error = errno;
        close(fd);
        errno = error;
        fd = next;
    }
    return fd;
}

/// What was found by the words of a link is what the link leads to.
bool is_same_file(const std::string &path, int folder, const std::string &name)
{
    struct stat led = {}, found = {};
    if (stat(path.c_str(), &led) != 0)
        return true; // a link to a file that is not there yet
    return fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 && led.st_dev == found.st_dev &&
           led.st_ino == found.st_ino;
}

path_t folder_of(const path_t &path) { return path.has_parent_path() ? path.parent_path() : path_t("."); }

} // namespace

folder_t::folder_t(const place_t &place) { find(place); }

folder_t::~folder_t()
{
    if (fd_ >= 0)
        close(fd_);
}

void folder_t::enter(int fd)
{
    error_ = fd < 0 ? errno : 0;
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

void folder_t::find(const place_t &place)
{
    const bool below = !place.root.empty();
    path_t path = below ? path_t(place.path).lexically_normal() : path_t(place.path);
    enter(below ? open_below(place.root, folder_of(path)) : open(folder_of(path).c_str(), FOLDER));
    for (int links = 0; fd_ >= 0; links++) {
        name_ = path.filename();
        const auto text = link_text(fd_, name_);
        if (!text && (below || links == 0 || is_same_file(place.path, fd_, name_)))
            return;
        if (!text || links == LINKS_MAX) {
            errno = ELOOP;
            enter(-1);
        } else if (below) { // without links in between the way can be told from its words
            path = (folder_of(path) / *text).lexically_normal();
            enter(open_below(place.root, folder_of(path)));
        } else {
            path = *text;
            enter(openat(fd_, folder_of(path).c_str(), FOLDER));
        }
    }
}
