// Rings of Linux bridges that lvt_bridge rules, while hosts speak.
#include "ruled_net.h"

#include <array>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace lab;

namespace {

//   a          A host is at port 3 of each.
//  / \.
// b - c
class bridge_ring : public ruled_test_t, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        const std::vector<std::string> options =
            GetParam() ? std::vector<std::string>{"--rapid"} : std::vector<std::string>{};
        for (const int priority : {4096, 8192, 12288})
            bridges_.push_back(&add_ruled(priority, 3, {1, 2}, options));
        for (ruled_bridge_t *bridge : bridges_) {
            hosts_.push_back(&add_host_at(*bridge, 3));
            bridge->start();
        }
        a_to_b_ = &connect(a(), 1, b(), 1);
        b_to_c_ = &connect(b(), 2, c(), 2);
        a_to_c_ = &connect(a(), 2, c(), 1);
        ASSERT_TRUE(settles());
    }

    testing::AssertionResult settles() const
    {
        for (const auto &[bridge, ports] : {std::pair{&a(), "1 designated forwards, 2 designated forwards"},
                                            std::pair{&b(), "1 root forwards, 2 designated forwards"},
                                            std::pair{&c(), "1 root forwards, 2 alternate discards"}})
            if (const auto result = becomes(*bridge, fmt::format("{}, 3 designated forwards", ports), BY_TIMERS);
                !result)
                return result;
        return testing::AssertionSuccess();
    }

    ruled_bridge_t &a() const { return *bridges_[0]; }
    ruled_bridge_t &b() const { return *bridges_[1]; }
    ruled_bridge_t &c() const { return *bridges_[2]; }
    static std::string mode() { return GetParam() ? "rapid" : "by default"; }

    std::vector<ruled_bridge_t *> bridges_;
    std::vector<host_t *> hosts_;
    const cable_t *a_to_b_ = nullptr, *b_to_c_ = nullptr, *a_to_c_ = nullptr;
};

#ifdef LVT_RAPID
const auto modes = testing::Bool();
#else
const auto modes = testing::Values(false);
#endif
INSTANTIATE_TEST_SUITE_P(, bridge_ring, modes, [](const auto &one) { return one.param ? "rapid" : "plain"; });

TEST_P(bridge_ring, no_frame_comes_twice_while_cables_are_pulled_and_plugged)
{
    std::vector<station_t> stations;
    for (const host_t *host : hosts_)
        stations.emplace_back(host->node());
    const std::vector<std::pair<std::string, station_t *>> others = {{"host at b", &stations[1]},
                                                                     {"host at c", &stations[2]}};
    EXPECT_EQ(c().kernel_state("lan2"), c().discards());

    const auto during = [&](const std::string &what, const auto &action) {
        stream_t stream(stations[0], {&stations[1], &stations[2]});
        ASSERT_TRUE(eventually(
            AT_ONCE, [&] { return stream.sent(); }, Gt(200u)));
        action();
        const uint32_t then = stream.sent();
        ASSERT_TRUE(eventually(
            AT_ONCE, [&] { return stream.sent(); }, Gt(then + 500)));
        expect_each_once(stream, others, fmt::format("{}, {}", mode(), what));
        // They are the next stream's again, with numbers from 1.
        for (station_t &station : stations)
            station.forget();
    };
    during("a-c is pulled", [&] {
        a_to_c_->pull();
        EXPECT_TRUE(becomes(c(), "2 root forwards, 3 designated forwards", BY_TIMERS));
        EXPECT_TRUE(hosts_[0]->reaches(*hosts_[2], BY_TIMERS));
    });
    during("a-c is plugged in", [&] {
        a_to_c_->plug();
        EXPECT_TRUE(settles());
    });
    during("a-b is pulled", [&] {
        a_to_b_->pull();
        EXPECT_TRUE(becomes(b(), "2 root forwards, 3 designated forwards", BY_TIMERS));
        EXPECT_TRUE(hosts_[0]->reaches(*hosts_[1], BY_TIMERS));
    });
    during("a-b is plugged in", [&] {
        a_to_b_->plug();
        EXPECT_TRUE(settles());
    });
}

// ---- a bulk transfer ----------------------------------------------------------------------------

/// What octet `at` of a transfer is.
constexpr uint8_t octet_at(size_t at) { return static_cast<uint8_t>(at * 31 + at / 251); }

sockaddr_in address_of(const host_t &host)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(4000);
    inet_pton(AF_INET, host.address().c_str(), &address.sin_addr);
    return address;
}

fd_t tcp_socket(const host_t &host)
{
    fd_t made;
    host.node().in_net([&] { made = fd_t(checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "TCP socket")); });
    const timeval patience = {.tv_sec = 40, .tv_usec = 0};
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO})
        checked(setsockopt(made.number(), SOL_SOCKET, direction, &patience, sizeof patience), "TCP socket");
    return made;
}

TEST_P(bridge_ring, a_bulk_transfer_survives_a_pulled_cable)
{
    const fd_t listening = tcp_socket(*hosts_[2]), sending = tcp_socket(*hosts_[0]);
    const sockaddr_in address = address_of(*hosts_[2]);
    checked(bind(listening.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address), "TCP socket");
    checked(listen(listening.number(), 1), "TCP socket");
    checked(::connect(sending.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address), "TCP");
    const fd_t receiving(checked(accept4(listening.number(), nullptr, nullptr, SOCK_CLOEXEC), "TCP connection"));

    std::atomic<size_t> received = 0, wrong = 0;
    std::atomic<bool> enough = false;
    size_t sent = 0;
    std::thread receiver([&] {
        std::array<uint8_t, 65536> octets;
        for (ssize_t got; (got = recv(receiving.number(), octets.data(), octets.size(), 0)) > 0;)
            for (ssize_t i = 0; i < got; i++)
                wrong += octets[static_cast<size_t>(i)] != octet_at(received++);
    });
    std::thread sender([&] {
        std::array<uint8_t, 65536> octets;
        while (!enough) {
            for (size_t i = 0; i < octets.size(); i++)
                octets[i] = octet_at(sent + i);
            for (size_t at = 0; at < octets.size();) {
                const ssize_t put = send(sending.number(), &octets[at], octets.size() - at, MSG_NOSIGNAL);
                if (put <= 0)
                    return;
                at += static_cast<size_t>(put);
                sent += static_cast<size_t>(put);
            }
        }
    });
    const auto goes_on = [&](const char *when) {
        const size_t before = received;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(eventually(
            40s, [&] { return received.load(); }, Gt(before + (8 << 20))))
            << when;
        const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - start;
        fmt::print("{}: 8 MiB {} took {:.2f} s\n", mode(), when, lasted.count());
    };
    goes_on("before");
    a_to_c_->pull();
    EXPECT_TRUE(becomes(c(), "2 root forwards, 3 designated forwards", BY_TIMERS));
    goes_on("after the cable was pulled");
    enough = true;
    sender.join();
    shutdown(sending.number(), SHUT_WR);
    receiver.join();
    EXPECT_EQ(received, sent);
    EXPECT_EQ(wrong, 0u);
}

} // namespace
