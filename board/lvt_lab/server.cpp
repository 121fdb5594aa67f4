#include "board/lvt_lab/server.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board/lab/process.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "board/lvt_lab/channel.h"
#include "board/lvt_lab/lab.h"
#include "tools/about.h"
#include "tools/ctl/ctl.h"
#include "tools/topology/read.h"
#include "tools/topology/story.h"

namespace lvt_lab {

namespace {

using nlohmann::json;

constexpr char ORDERS[] = "LVT_LAB_SERVER"; ///< "descriptor of the listener, of the network's text, with story, name"
constexpr auto EVENT_PATIENCE = std::chrono::milliseconds(500);
constexpr auto CAPTURE_PAUSE = std::chrono::milliseconds(50);

/// Whether the client has said that it wants no more, or is gone.
bool has_hung_up(const channel_t &client)
{
    pollfd polled = {client.number(), POLLIN | POLLRDHUP, 0};
    return poll(&polled, 1, 0) > 0;
}

class server_t {
public:
    explicit server_t(lab_t &lab) : lab_(lab) {}

    void serve(channel_t client)
    {
        while (const auto request = client.receive()) {
            json answer;
            try {
                if (!answer_to(client, *request, answer))
                    return;
            } catch (const std::exception &problem) {
                answer = {{"refused", problem.what()}};
            }
            if (!client.send(answer))
                return;
        }
    }

private:
    /// Returns false when all has been said.
    bool answer_to(channel_t &client, const json &request, json &answer)
    {
        const std::string verb = request.at("verb");
        if (verb == "show")
            answer = {{"view", to_json(lab_.view())}, {"event", lab_.journal().last()}};
        else if (verb == "act") {
            lab_.act(request.at("command"));
            answer = {{"event", lab_.last_command()}};
        } else if (verb == "events")
            return stream_events(client, request.value("after", lab_.journal().last()));
        else if (verb == "commanded")
            answer = {{"event", lab_.last_command()}};
        else if (verb == "enter")
            return enter(client, request.at("node"));
        else if (verb == "address")
            answer = {{"address", lab_.address(request.at("host"))}};
        else if (verb == "cables")
            answer = {{"cables", lab_.cables(request.at("word"))}};
        else if (verb == "ping")
            answer = ping(request.at("from"), request.at("to"), std::chrono::microseconds(request.at("within")));
        else if (verb == "capture")
            return capture(client, request.at("cables"));
        else if (verb == "down") {
            client.send({{"done", true}});
            _exit(EXIT_SUCCESS); // and the world with it
        } else
            answer = {{"refused", fmt::format("this lab does not know \"{}\": it is of another version", verb)}};
        return true;
    }

    json ping(const std::string &from, const std::string &to, std::chrono::microseconds within)
    {
        const std::string address = lab_.address(to);
        const lab::node_t &node = lab_.node(from);
        const auto began = std::chrono::steady_clock::now();
        const lab::command_t one_ping = {.argv = {"ping", "-n", "-q", "-c", "1", "-W", "0.5", address}};
        const bool answered = lab::within(std::chrono::ceil<std::chrono::milliseconds>(within),
                                          [&] { return node.run(one_ping).exit_code == 0; });
        return {{"answered", answered},
                {"seconds", std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count()}};
    }

    bool stream_events(channel_t &client, uint64_t known)
    {
        while (!has_hung_up(client))
            for (const event_t &event : lab_.journal().after(known, EVENT_PATIENCE)) {
                if (!client.send(to_json(event)))
                    return false;
                known = event.number;
            }
        return false;
    }

    bool enter(channel_t &client, const std::string &name)
    {
        const lab::place_t place = lab_.node(name).place();
        const fd_t user(open("/proc/self/ns/user", O_RDONLY | O_CLOEXEC));
        const fd_t processes(open("/proc/self/ns/pid", O_RDONLY | O_CLOEXEC));
        return client.send({{"done", true}}, {user.number(), processes.number(), place.net, place.mount, place.root});
    }

    bool capture(channel_t &client, const std::string &word)
    {
        const auto capture = lab_.capture(lab_.cables(word));
        if (!client.send({{"done", true}}))
            return false;
        for (bool ended = false; !ended;) {
            ended = has_hung_up(client);
            if (!client.send_octets(capture->take()))
                return false;
            if (!ended)
                std::this_thread::sleep_for(CAPTURE_PAUSE);
        }
        return false;
    }

    lab_t &lab_;
};

/// Reads back what start_server wrote.
std::string text_of(const fd_t &file)
{
    std::ifstream stream(fmt::format("/proc/self/fd/{}", file.number()));
    return {std::istreambuf_iterator<char>(stream), {}};
}

int run_server()
{
    int listener_number = -1, network_number = -1, with_story = 0, name_at = 0;
    const char *orders = getenv(ORDERS);
    if (sscanf(orders, "%d:%d:%d:%n", &listener_number, &network_number, &with_story, &name_at) != 3)
        throw std::runtime_error(fmt::format("{}={} is not for people to set", ORDERS, orders));
    const std::string name = orders + name_at;
    unsetenv(ORDERS);
    const fd_t listener(listener_number), text(network_number);
    rlimit files; // a large lab has thousands of them
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
    for (const fd_t *fd : {&listener, &text})
        fcntl(fd->number(), F_SETFD, FD_CLOEXEC);

    lab_t lab(name, topology::read_network(text_of(text), name));
    lab.up(with_story != 0);
    [[maybe_unused]] const int moved = chdir("/"); // keeps no other folder busy

    // Who started it may have given up meanwhile.
    pollfd reader = {STDERR_FILENO, 0, 0};
    if (poll(&reader, 1, 0) > 0 && reader.revents & POLLERR)
        return EXIT_FAILURE;
    fmt::print(stderr, "{}", READY);
    const fd_t nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing.number(), standard);

    server_t server(lab);
    while (auto client = accept_client(listener))
        std::thread([&server, client = std::make_shared<channel_t>(std::move(*client))] {
            server.serve(std::move(*client));
        }).detach();
    return EXIT_FAILURE;
}

} // namespace

bool is_server() { return getenv(ORDERS) != nullptr; }

int serve(char **argv)
{
    int status = EXIT_FAILURE;
    try {
        lab::enter_world(argv);
        status = run_server();
    } catch (const lab::cannot_run_t &reason) {
        fmt::print(stderr, "{}", reason.what());
        status = EXIT_UNTOLD;
    } catch (const std::exception &problem) {
        fmt::print(stderr, "lvt_lab: {}\n", problem.what());
    }
    std::fflush(nullptr);
    _exit(status); // threads that serve clients go on until then
}

std::string start_server(const serve_args_t &args, int &exit_code)
{
    const fd_t listener = listen_for_clients(args.name);
    if (!listener)
        throw refused_t(errno == EADDRINUSE
                            ? fmt::format("a lab \"{0}\" is up already: lvt_lab down --lab {0}, or give "
                                          "this one another name with --lab",
                                          args.name)
                            : fmt::format("cannot listen for clients: {}", std::strerror(errno)));
    const std::string text = topology::network_text(args.network);
    const fd_t network(lab::checked(memfd_create("network", MFD_CLOEXEC), "memory for the network"));
    for (size_t at = 0; at < text.size();)
        at += static_cast<size_t>(
            lab::checked(static_cast<int>(write(network.number(), &text[at], text.size() - at)), "the network"));
    int ends[2];
    lab::checked(pipe2(ends, O_CLOEXEC), "pipe");
    const fd_t report(ends[0]);
    fd_t report_end(ends[1]);

    std::fflush(nullptr);
    const std::string program = lab::own_program();
    const std::string orders = fmt::format("{}={}:{}:{}:{}", ORDERS, listener.number(), network.number(),
                                           static_cast<int>(args.with_story), args.name);
    const pid_t child = lab::checked(fork(), "fork");
    if (child == 0) {
        setsid();
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nothing, STDIN_FILENO);
        dup2(nothing, STDOUT_FILENO);
        dup2(report_end.number(), STDERR_FILENO);
        for (const fd_t *fd : {&listener, &network})
            fcntl(fd->number(), F_SETFD, 0);
        putenv(const_cast<char *>(orders.c_str()));
        execl(program.c_str(), "lvt_lab", "serve", args.name.c_str(), nullptr);
        _exit(EXIT_UNTOLD);
    }
    report_end = fd_t();
    std::string said;
    char octets[4096];
    for (ssize_t got; !said.ends_with(READY) && (got = read(report.number(), octets, sizeof octets)) != 0;)
        if (got > 0)
            said.append(octets, static_cast<size_t>(got));
        else if (errno != EINTR)
            break;
    exit_code = EXIT_SUCCESS;
    if (!said.ends_with(READY)) {
        int status = 0;
        waitpid(child, &status, 0);
        exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
    }
    return said;
}

} // namespace lvt_lab
