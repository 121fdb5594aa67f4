#include "board/lab/mounts.h"

#include <cerrno>
#include <fstream>
#include <map>

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "board/lab/process.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

int make_private() { return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr); }

fd_t folder(const char *path) { return fd_t(checked(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC), path)); }

void make_tmpfs() { checked(mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777"), "tmpfs on /tmp"); }

/// The entries of the folder `tmp` that lead to these paths, each held open.
std::map<fs::path, fd_t> entries(const fs::path &tmp, const std::vector<fs::path> &paths)
{
    std::map<fs::path, fd_t> found;
    for (const fs::path &path : paths) {
        const fs::path way = path.lexically_relative(tmp);
        if (way.empty() || *way.begin() == "." || *way.begin() == "..")
            continue; // leads elsewhere, or no further
        const fs::path entry = tmp / *way.begin();
        if (fd_t fd(open(entry.c_str(), O_PATH | O_CLOEXEC)); fd.number() >= 0)
            found.emplace(entry, std::move(fd));
    }
    return found;
}

/// Copies what may be read of a folder.
void copy_readable(const fs::path &from, const fs::path &to)
{
    std::error_code refused;
    for (const auto &entry : fs::directory_iterator(from, fs::directory_options::skip_permission_denied, refused)) {
        const fs::path copy = to / entry.path().filename();
        if (entry.is_symlink(refused)) {
            fs::copy_symlink(entry.path(), copy, refused);
        } else if (entry.is_directory(refused)) {
            fs::create_directory(copy, refused);
            copy_readable(entry.path(), copy);
        } else if (entry.is_regular_file(refused)) {
            fs::copy_file(entry.path(), copy, refused);
        }
    }
}

} // namespace

void make_mounts_private()
{
    if (make_private() == 0)
        return;
    if (errno != EINVAL)
        checked(-1, "private mounts");

    // The root folder is no mount point, as in a chroot. That of the namespace is one; to enter the own
    // namespace leads there. /proc may be missing yet, so the namespace is named by the process.
    const fd_t root = folder("/"), here = folder(".");
    const fd_t self(checked(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)), "the own process"));
    checked(setns(self.number(), CLONE_NEWNS), "the own mount namespace");
    checked(make_private(), "private mounts");
    checked(fchdir(root.number()), "/");
    checked(chroot("."), "/");
    checked(fchdir(here.number()), "working folder");
}

void ensure_proc()
{
    if (access("/proc/self", F_OK) == 0)
        return;
    checked(unshare(CLONE_NEWNS), "mount namespace");
    make_mounts_private();
    checked(mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr), "/proc");
}

void make_etc()
{
    make_tmpfs(); // for what is written; it stays with the overlay
    fs::create_directory("/tmp/upper");
    fs::create_directory("/tmp/work");
    const char folders[] = "lowerdir=/etc,upperdir=/tmp/upper,workdir=/tmp/work";
    const bool done = mount("overlay", "/etc", "overlay", 0, folders) == 0;
    checked(umount("/tmp"), "/tmp");
    if (done)
        return;
    const fd_t machines = folder("/etc");
    checked(mount("tmpfs", "/etc", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755"), "tmpfs on /etc");
    copy_readable(fmt::format("/proc/thread-self/fd/{}", machines.number()), "/etc");
}

void make_tmp(const std::vector<fs::path> &programs)
{
    std::error_code gone; // a working folder that was removed is no path
    std::vector<fs::path> paths = {fs::current_path(gone), own_program()};
    paths.insert(paths.end(), programs.begin(), programs.end());
    for (size_t i = 1, count = paths.size(); i < count; i++)
        paths.push_back(paths[i].parent_path().parent_path() / "lib");
    const std::map<fs::path, fd_t> kept = entries(fs::canonical("/tmp"), paths);

    make_tmpfs();
    for (const auto &[entry, fd] : kept) {
        const std::string source = fmt::format("/proc/thread-self/fd/{}", fd.number());
        if (fs::is_directory(source))
            fs::create_directory(entry);
        else
            std::ofstream(entry, std::ios::app);
        checked(mount(source.c_str(), entry.c_str(), nullptr, MS_BIND | MS_REC, nullptr), entry);
    }
}

bool enter_mounts(int mount, int root)
{
    // A sanitizer's own thread shares the root folder; the kernel wants it unshared for this.
    return unshare(CLONE_FS) == 0 && setns(mount, CLONE_NEWNS) == 0 && fchdir(root) == 0 && chroot(".") == 0;
}

} // namespace lab
