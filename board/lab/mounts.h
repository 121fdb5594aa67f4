/// What a machine of the lab sees of the file system. Whoever starts the lab may be in a chroot: the
/// root folder of its processes is then not that of their mount namespace, and need be no mount point.
#pragma once

#include <filesystem>
#include <vector>

namespace lab {

/// Keeps what is mounted in the process's mount namespace from then on out of all others. The process
/// has one thread. Throws std::system_error.
void make_mounts_private();

/// Mounts /proc where there is none, as in a chroot of files alone: in a mount namespace that the process,
/// which has one thread, gets for it. Throws std::system_error.
void ensure_proc();

/// Gives the thread's mount namespace an /etc of its own, which starts as the machine's. Where no
/// overlay is allowed, as in some containers, it is a copy of what may be read. Throws std::system_error.
void make_etc();

/// Gives the thread's mount namespace a /tmp of its own. What is needed of the machine's stays where it
/// is: the entries of /tmp through which the working folder, this program and `programs` are reached,
/// and the folders lib/ beside theirs. A checkout there is seen as a whole, with all its builds.
///
/// programs  absolute, without symbolic links.
///
/// Throws std::system_error.
void make_tmp(const std::vector<std::filesystem::path> &programs);

/// Moves the calling thread into a mount namespace; `root`, a descriptor of a folder there, becomes its
/// root and its working folder. Makes system calls only. Returns false, with errno, when it cannot.
bool enter_mounts(int mount, int root);

} // namespace lab
