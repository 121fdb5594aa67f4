/// Becoming root in a user namespace, for those who are not root already.
#pragma once

#include <sys/types.h>

namespace lab {

/// Who starts the world.
struct user_t {
    uid_t uid;
    gid_t gid;
    int flags; ///< CLONE_NEWUSER when the capabilities have to come from a user namespace; else 0
};

user_t this_user();

/// Completes a new user namespace, made by `user` with user.flags: there the user is root.
/// Does nothing when there is none. Throws std::system_error.
void take_root(const user_t &user);

/// Whether root here is an ordinary user outside.
bool in_own_user_namespace();

} // namespace lab
