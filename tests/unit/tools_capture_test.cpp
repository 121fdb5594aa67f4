/// lvt_rstpctl with capture files.
#include <cstring>
#include <sstream>
#include <thread>

#include <fmt/format.h>

#include "tools_ctl.h"
#include "tools_frames.h"

namespace {

/// A capture file in the classic format, of link type `link_type` (1: Ethernet).
std::string capture_of(const std::vector<octets_t> &frames, uint32_t link_type = 1)
{
    std::string file;
    const auto put = [&file](std::initializer_list<uint32_t> words) {
        for (const uint32_t word : words)
            file.append(reinterpret_cast<const char *>(&word), sizeof word);
    };
    put({0xA1B2C3D4, 4u << 16 | 2, 0, 0, 65535, link_type});
    for (const octets_t &frame : frames) {
        const auto size = static_cast<uint32_t>(frame.size());
        put({1795183695, 250, size, size});
        file.append(frame.begin(), frame.end());
    }
    return file;
}

/// The same in the newer format, with the time of the first frame in seconds, and a second more for each.
std::string newer_capture_of(const std::vector<octets_t> &frames, uint64_t seconds)
{
    std::string file;
    const auto put = [&file](std::initializer_list<uint32_t> words) {
        for (const uint32_t word : words)
            file.append(reinterpret_cast<const char *>(&word), sizeof word);
    };
    put({0x0A0D0D0A, 28, 0x1A2B3C4D, 1, 0xFFFFFFFF, 0xFFFFFFFF, 28}); // the section
    put({1, 32, 1, 65535, 1u << 16 | 9, 0, 0, 32});                   // its interface, whose times are seconds
    for (const octets_t &frame : frames) {
        const auto size = static_cast<uint32_t>(frame.size()), padded = (size + 3) / 4 * 4;
        put({6, 32 + padded, 0, static_cast<uint32_t>(seconds >> 32), static_cast<uint32_t>(seconds), size, size});
        file.append(frame.begin(), frame.end());
        file.append(padded - size, '\0');
        put({32 + padded});
        seconds++;
    }
    return file;
}

class capture_file : public ctl {
protected:
    std::string capture = path("trace.pcap");
};

} // namespace

TEST_F(capture_file, its_bpdus_are_injected)
{
    write_file(capture, capture_of({other_frame(), rst_frame(), tagged(rst_frame())}));
    run_t result = run_on_board("inject bpdu 1 --capture " + capture);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "2 of 3 frames sent\n");
    octets_t both = bpdu_message(2, rst_frame());
    both.insert(both.end(), both.begin(), both.begin() + static_cast<long>(both.size()));
    EXPECT_EQ(control.read_all(), both);

    result = run_on_board("inject bpdu 1 --dry-run --capture - <" + capture);
    EXPECT_TRUE(result.output.ends_with("\n2 of 3 frames would be sent\n")) << result.output;
    EXPECT_EQ(control.read_all().size(), 0u);

    result = run_on_board("inject bpdu 1 --frame 1 --capture " + capture);
    EXPECT_EQ(result.output, "1 of 3 frames sent\n");
    EXPECT_EQ(control.read_all(), bpdu_message(2, other_frame()));

    expect_refused("inject bpdu 1 --frame 4 --capture " + capture, capture + " has no frame 4: it has 3");
    expect_refused("inject bpdu 1 --frame=-2 --capture " + capture, capture + " has no frame -2: it has 3");
    expect_usage("inject bpdu 1 --frame x --capture " + capture, "--frame: \"x\" is not a number");
    expect_usage("inject bpdu 1 --frame 4", "--frame requires --capture");
}

TEST_F(capture_file, goes_as_fast_as_it_is_read)
{
    constexpr size_t count = 3000; // several times what the pipe holds
    write_file(capture, capture_of(std::vector<octets_t>(count, rst_frame())));
    const size_t size = count * bpdu_message(2, rst_frame()).size();
    size_t taken = 0;
    std::thread daemon([&] {
        pollfd input = {control.fd, POLLIN, 0};
        while (taken < size && poll(&input, 1, 10'000) == 1)
            taken += control.read_all().size();
    });
    const run_t result = run_on_board("inject bpdu 1 --capture " + capture);
    daemon.join();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "3000 of 3000 frames sent\n");
    EXPECT_EQ(taken, size);

    // Nobody reads.
    const run_t stuck = run_on_board("inject bpdu 1 --capture " + capture);
    EXPECT_EQ(stuck.status, 3);
    const size_t sent = control.read_all().size() / (size / count);
    EXPECT_EQ(stuck.output, fmt::format("lvt_rstpctl: {} is full: the daemon hangs or is stopped. Look at what it "
                                        "printed last, and start it again.\nOnly {} of 3000 BPDUs were sent.\n",
                                        control.path, sent));
}

TEST_F(capture_file, that_is_none)
{
    write_file(capture, capture_of({other_frame()}));
    expect_refused("inject bpdu 1 --capture " + capture, "none of the 1 frames of " + capture + " is a BPDU");

    write_file(capture, capture_of({rst_frame()}, 113));
    expect_refused("inject bpdu 1 --capture " + capture,
                   capture + " holds no Ethernet frames: capture on one interface, not on \"any\"");

    const std::string whole = capture_of({rst_frame(), rst_frame()});
    write_file(capture, whole.substr(0, whole.size() - 1));
    const run_t damaged = run_on_board("inject bpdu 1 --capture " + capture);
    EXPECT_EQ(damaged.status, 1);
    EXPECT_TRUE(damaged.output.starts_with("lvt_rstpctl: " + capture + " is damaged after frame 1: "))
        << damaged.output;

    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0); // nobody writes there
    for (const char *command : {"inject bpdu 1", "decode"})
        expect_refused(fmt::format("{} --capture {}", command, path("fifo")),
                       "cannot read " + path("fifo") + ": not a regular file. Put one in its place, or name another.");
    expect_refused("decode --capture " + path("none"), path("none") + " cannot be read: No such file or directory");

    write_file(capture, "hello");
    const run_t text = run_on_board("inject bpdu 1 --capture " + capture);
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(text.output.starts_with("lvt_rstpctl: " + capture + " is no capture file that can be read: "))
        << text.output;
    EXPECT_EQ(control.read_all().size(), 0u);
}

TEST_F(capture_file, is_explained)
{
    write_file(capture, capture_of({other_frame(), rst_frame()}));
    const run_t result = run_on_board("decode --brief --capture " + capture);
    EXPECT_EQ(result.status, 0);
    std::istringstream lines(result.output);
    std::string line;
    std::getline(lines, line);
    EXPECT_TRUE(line.starts_with("frame 1, 2026-11-") && line.ends_with(".000250: frame of 60 octets, no BPDU"))
        << line;
    std::getline(lines, line);
    EXPECT_NE(line.find(": RST BPDU of 4096/02:00:00:00:99:00, root "), std::string::npos) << line;
}

TEST_F(capture_file, may_name_interfaces)
{
    // Two interfaces, the first without a name.
    std::string file;
    const auto put = [&file](std::initializer_list<uint32_t> words, bool swapped = false) {
        for (uint32_t word : words) {
            word = swapped ? __builtin_bswap32(word) : word;
            file.append(reinterpret_cast<const char *>(&word), sizeof word);
        }
    };
    const auto put_frame = [&](uint32_t interface, bool swapped = false) {
        const octets_t frame = rst_frame();
        const auto size = static_cast<uint32_t>(frame.size());
        const uint32_t padded = (size + 3) / 4 * 4;
        put({6, 32 + padded, interface, 0, 0, size, size}, swapped);
        file.append(frame.begin(), frame.end());
        file.append(padded - size, '\0');
        put({32 + padded}, swapped);
    };
    put({0x0A0D0D0A, 28, 0x1A2B3C4D, 1, 0xFFFFFFFF, 0xFFFFFFFF, 28});
    put({1, 20, 1, 65535, 20});
    put({1, 36, 1, 65535, 6u << 16 | 2});
    file.append(
        "sw1p\x1b"
        "2\0\0",
        8);
    put({0, 36});
    put_frame(1);
    put_frame(0);
    write_file(capture, file);
    const std::string told = run_on_board("decode --brief --capture " + capture).output;
    EXPECT_NE(told.find(" on sw1p\\x1b2: RST BPDU"), std::string::npos) << told;
    EXPECT_EQ(told.find(" on ", told.find("frame 2")), std::string::npos) << told;
    const std::string json = run_on_board("decode -j --capture - <" + capture).output;
    EXPECT_NE(json.find(R"("interface":"sw1p\u001b2")"), std::string::npos) << json;
    EXPECT_NE(json.find(R"("interface":null)"), std::string::npos) << json;

    file.clear(); // and in the other order of octets
    put({0x0A0D0D0A}, false);
    put({28, 0x1A2B3C4D, 1u << 16, 0xFFFFFFFF, 0xFFFFFFFF, 28}, true);
    put({1, 32, 1u << 16, 65535}, true);
    put({2u << 16 | 4}, true);
    file.append("eth1", 4);
    put({0, 32}, true);
    put_frame(0, true);
    write_file(capture, file);
    const std::string swapped = run_on_board("decode --brief --capture " + capture).output;
    EXPECT_NE(swapped.find(" on eth1: RST BPDU"), std::string::npos) << swapped;
}

TEST_F(capture_file, may_have_times_that_are_none)
{
    const std::string summary =
        ": RST BPDU of 4096/02:00:00:00:99:00, root 4096/02:00:00:00:99:00, cost 0, port 1, priority 128 "
        "(designated, proposal)\n";
    for (const uint64_t seconds : {uint64_t{INT64_MAX} - 1, uint64_t{INT64_MAX} + 1, uint64_t{9'223'372'036}}) {
        write_file(capture, newer_capture_of({rst_frame(), rst_frame()}, seconds));
        const run_t result = run_on_board("decode --brief --capture " + capture);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output,
                  "frame 1, at no time that can be told" + summary + "frame 2, at no time that can be told" + summary);
    }
    write_file(capture, newer_capture_of({rst_frame()}, 1795183695));
    const run_t result = run_on_board("decode --brief --capture " + capture);
    EXPECT_TRUE(result.output.starts_with("frame 1, 2026-11-")) << result.output;
}

TEST_F(capture_file, only_its_bpdus_are_explained)
{
    octets_t in_vlan = rst_frame();
    in_vlan.insert(in_vlan.begin() + 12, {0x81, 0x00, 0x00, 0x05});
    write_file(capture, capture_of({other_frame(), rst_frame(), in_vlan}));
    const run_t result = run_on_board("decode --brief --bpdu --capture " + capture);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.output.starts_with("frame 2, ")) << result.output;
    EXPECT_NE(result.output.find("\nframe 3, "), std::string::npos) << result.output;
    write_file(capture, capture_of({other_frame()}));
    expect_refused("decode --bpdu --capture " + capture, capture + " holds no BPDUs");
    expect_usage("decode --bpdu 00", "--bpdu goes with --capture");
}

TEST_F(capture_file, is_explained_as_it_comes)
{
    const std::string two = capture_of({rst_frame(), other_frame()});
    const std::string one = capture_of({rst_frame()});
    pipe_reader_t told(path("told"));
    ASSERT_EQ(mkfifo(path("captured").c_str(), 0600), 0);
    const int writer = open(path("captured").c_str(), O_RDWR | O_CLOEXEC);
    std::thread command([&] { run("decode -j --capture - <" + path("captured") + " >" + told.path + " #"); });
    ASSERT_EQ(write(writer, one.data(), one.size()), static_cast<ssize_t>(one.size()));
    const octets_t line = told.read_next(); // while the command waits for the next frame
    EXPECT_NE(std::string(line.begin(), line.end()).find("\"time\":\"2026-11-2"), std::string::npos);
    EXPECT_NE(std::string(line.begin(), line.end()).find(".000250Z\""), std::string::npos);
    const std::string rest = two.substr(one.size());
    EXPECT_EQ(write(writer, rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
    const octets_t next = told.read_next();
    EXPECT_NE(std::string(next.begin(), next.end()).find("no BPDU"), std::string::npos);
    close(writer);
    command.join();
}

TEST_F(capture_file, is_explained_until_it_is_damaged)
{
    const std::string whole = capture_of({rst_frame(), rst_frame()});
    write_file(capture, whole.substr(0, whole.size() - 1));
    const run_t damaged = run_on_board("decode --brief --capture " + capture);
    EXPECT_EQ(damaged.status, 1);
    EXPECT_TRUE(damaged.output.starts_with("frame 1, ")) << damaged.output;
    EXPECT_NE(damaged.output.find("lvt_rstpctl: " + capture + " is damaged after frame 1: "), std::string::npos)
        << damaged.output;

    write_file(capture, capture_of({}));
    expect_refused("decode --capture " + capture, capture + " holds no frames");
}
