#include "board/lab/namespaces.h"

#include <exception>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sched.h>

#include "board/lab/process.h"

namespace lab {

namespace {

void write_if_allowed(const char *path, const char *text) { std::ofstream(path) << text; }

/// Only the frames that somebody means to send: no IPv6 and its own announcements.
void make_quiet()
{
    write_if_allowed("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
    write_if_allowed("/proc/sys/net/ipv6/conf/default/disable_ipv6", "1");
}

} // namespace

void in_thread(const std::function<void()> &action)
{
    std::exception_ptr thrown;
    std::thread thread([&] {
        try {
            action();
        } catch (...) {
            thrown = std::current_exception();
        }
    });
    thread.join();
    if (thrown)
        std::rethrow_exception(thrown);
}

void in_net(int net, const std::function<void()> &action)
{
    in_thread([&] {
        checked(setns(net, CLONE_NEWNET), "network namespace");
        action();
    });
}

fd_t enter_new_net()
{
    checked(unshare(CLONE_NEWNET), "network namespace");
    make_quiet();
    return fd_t(checked(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "network namespace"));
}

fd_t make_net()
{
    fd_t net;
    in_thread([&] { net = enter_new_net(); });
    return net;
}

} // namespace lab
