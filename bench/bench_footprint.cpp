/// Memory and heap of the running daemon on a simulated board, as lines of a name and a figure:
///
///     bench_footprint memory DAEMON      resident and private memory, stacks; KiB
///     bench_footprint heap DAEMON        what it allocates after its start; blocks and octets
///
/// DAEMON may be a script that runs it under qemu's user mode; then only the emulated program's
/// memory is counted, not the emulator's.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <fmt/format.h>

#include "board/lab/switch_node.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "feed.h"
#include "heap_count.h"
#include "tools/about.h"
#include "tools/messages.h"

using namespace std::chrono_literals;

namespace {

constexpr int BPDUS = 100000;
constexpr int SETTINGS = 100; ///< messages with the groups' settings
constexpr int QUIET_TICKS = 10;

constexpr uint64_t STACK_LEAST = 1 << 20;       ///< what is mapped for a thread's stack, at least
constexpr uint64_t GUEST_FROM = 0x200000000000; ///< where nothing of the emulator's own is
constexpr uint64_t GUEST_TO = GUEST_FROM + (uint64_t{1} << 32);

// ---- memory -----------------------------------------------------------------------------

struct mapping_t {
    uint64_t from, to;
    std::string access, file;
    uint64_t resident = 0;  ///< KiB
    uint64_t anonymous = 0; ///< KiB of it that no file holds
};

std::vector<mapping_t> read_mappings(pid_t pid)
{
    std::vector<mapping_t> all;
    std::ifstream smaps(fmt::format("/proc/{}/smaps", pid));
    for (std::string line; std::getline(smaps, line);) {
        std::istringstream words(line);
        std::string first, offset, device, inode;
        words >> first;
        if (!first.ends_with(':')) {
            mapping_t mapping;
            if (std::sscanf(first.c_str(), "%lx-%lx", &mapping.from, &mapping.to) != 2)
                throw std::runtime_error("smaps: " + line);
            words >> mapping.access >> offset >> device >> inode >> mapping.file;
            all.push_back(mapping);
        } else if (first == "Rss:") {
            words >> all.back().resident;
        } else if (first == "Anonymous:") {
            words >> all.back().anonymous;
        }
    }
    return all;
}

/// The daemon's own mappings: all, or those of the emulated program.
std::vector<mapping_t> mappings(pid_t pid)
{
    std::vector<mapping_t> all = read_mappings(pid);
    const auto is_guests = [](const mapping_t &m) { return m.from >= GUEST_FROM && m.to <= GUEST_TO; };
    if (std::any_of(all.begin(), all.end(), is_guests))
        std::erase_if(all, [&](const mapping_t &m) { return !is_guests(m); });
    return all;
}

/// KiB of a mapping that are in memory.
uint64_t touched(pid_t pid, const mapping_t &mapping)
{
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    std::vector<uint64_t> pages((mapping.to - mapping.from) / page);
    const std::string path = fmt::format("/proc/{}/pagemap", pid);
    const fd_t pagemap(lab::checked(open(path.c_str(), O_RDONLY | O_CLOEXEC), path));
    const size_t octets = pages.size() * sizeof pages[0];
    const auto offset = static_cast<off_t>(mapping.from / page * sizeof pages[0]);
    if (pread(pagemap.number(), pages.data(), octets, offset) != static_cast<ssize_t>(octets))
        throw std::runtime_error(path + " cannot be read");
    const auto present = [](uint64_t entry) { return entry >> 63 != 0; };
    return static_cast<uint64_t>(std::count_if(pages.begin(), pages.end(), present)) * page / 1024;
}

void tell_stacks(pid_t pid)
{
    // Each thread's lies below those of the threads that were made before it.
    std::vector<mapping_t> stacks;
    for (const mapping_t &m : mappings(pid))
        if (m.file == "[stack]" || (m.access == "rw-p" && m.file.empty() && m.to - m.from >= STACK_LEAST))
            stacks.insert(stacks.begin(), m);
    if (stacks.size() != 3)
        throw std::runtime_error(fmt::format("the daemon has {} stacks instead of 3", stacks.size()));

    // What lies right above the main thread's can be shown as one mapping with it.
    stacks[1].to = std::min(stacks[1].to, stacks[1].from + (stacks[2].to - stacks[2].from));

    fmt::print("stack_initial {}\n", touched(pid, stacks[0]));
    fmt::print("stack_main {}\n", touched(pid, stacks[1]));
    fmt::print("stack_tick {}\n", touched(pid, stacks[2]));
}

void tell_memory(const char *when, pid_t pid)
{
    uint64_t resident = 0, own = 0;
    for (const mapping_t &m : mappings(pid)) {
        resident += m.resident;
        // The libraries' files are shared with the board's other programs, the daemon's with none.
        own += m.file.ends_with("/lvt_rstpd") ? m.resident : m.anonymous;
    }
    fmt::print("resident_{} {}\nprivate_{} {}\n", when, resident, when, own);
}

// ---- the daemon under measurement -------------------------------------------------------

class subject_t {
public:
    subject_t(const std::string &daemon, std::vector<std::string> environment)
        : device_({.daemon = daemon, .daemon_environment = std::move(environment)})
    {
    }

    lab::switch_t &device() { return device_; }
    pid_t pid() { return device_.daemon().pid(); }

    /// Starts board and daemon, and waits for the first tick.
    void start()
    {
        device_.start();
        next_tick();
    }

    void next_tick()
    {
        const auto before = stamp_;
        if (!lab::within(10s, [&] { return (stamp_ = stamp()) != before; }))
            throw std::runtime_error("the daemon does not tick\n" + device_.story());
    }

    /// Waits until the daemon has handled, not only read, `count` BPDUs.
    void wait_for_received(uint32_t count)
    {
        uint32_t received = 0;
        const auto all = [&] {
            received = frames(&port_status_t::received);
            return received >= count;
        };
        if (!lab::within(20s, all) || received != count)
            throw std::runtime_error(fmt::format("{} of {} BPDUs were received", received, count));
        next_tick();
    }

    /// BPDUs of all ports, as the last status file tells.
    uint32_t frames(frame_counts_t port_status_t::*counts) const
    {
        uint32_t sum = 0;
        if (const std::optional<bridge_status_t> status = device_.status())
            for (const port_status_t &port : status->ports)
                sum += (port.*counts).all();
        return sum;
    }

private:
    /// Of the status file; each is a new file.
    std::pair<ino_t, int64_t> stamp() const
    {
        struct stat status = {};
        stat(device_.node().path(lab::STATUS_FILE).c_str(), &status);
        return {status.st_ino, status.st_mtim.tv_sec * 1000000000 + status.st_mtim.tv_nsec};
    }

    lab::switch_t device_;
    std::pair<ino_t, int64_t> stamp_ = {};
};

void measure_memory(const std::string &daemon)
{
    subject_t subject(daemon, {fmt::format("QEMU_GUEST_BASE={:#x}", GUEST_FROM)});
    subject.start();
    tell_memory("boot", subject.pid());

    feed_t feed(subject.device().node());
    feed.take_part();
    feed.bpdus(BPDUS);
    subject.wait_for_received(BPDUS);
    tell_memory("later", subject.pid());
    tell_stacks(subject.pid());
}

// ---- heap -------------------------------------------------------------------------------

void measure_heap(const std::string &daemon, const std::string &counter)
{
    constexpr size_t FRAME_BUFFER = 76, SCRATCH = 7;

    const fd_t file(lab::checked(memfd_create("heap", MFD_CLOEXEC), "memfd"));
    lab::checked(ftruncate(file.number(), sizeof(heap_counts_t)), "memfd");
    void *shared = mmap(nullptr, sizeof(heap_counts_t), PROT_READ | PROT_WRITE, MAP_SHARED, file.number(), 0);
    if (shared == MAP_FAILED)
        throw std::runtime_error("the counts cannot be mapped");
    heap_counts_t &counts = *static_cast<heap_counts_t *>(shared);

    subject_t subject(
        daemon, {"LD_PRELOAD=" + counter, fmt::format("{}=/proc/{}/fd/{}", HEAP_COUNT_FILE, getpid(), file.number())});
    subject.start();
    for (heap_use_t &use : counts.of)
        use.most = use.held;
    const heap_counts_t before = counts;

    feed_t feed(subject.device().node());
    feed.take_part(); // a message of ports' settings needs a scratch block, too
    for (int i = 0; i < SETTINGS; i++) {
        feed.put(aggr_config_message(LVT_RSTP_PORT_DEFAULTS));
        feed.put(work_flush_message());
    }
    feed.bpdus(BPDUS);
    subject.wait_for_received(BPDUS);

    uint64_t per_file = 0;
    heap_counts_t after = counts;
    for (int i = 0; i < QUIET_TICKS; i++) {
        const uint64_t last = after.of[HEAP_C_LIBRARY].blocks;
        subject.next_tick();
        after = counts;
        per_file = std::max(per_file, after.of[HEAP_C_LIBRARY].blocks - last);
    }
    const uint32_t sent = subject.frames(&port_status_t::sent);
    if (sent == 0 || after.of[HEAP_C_LIBRARY].blocks == 0)
        throw std::runtime_error("nothing was sent, or nothing counted");

    const auto since = [&](heap_owner_t owner) { return after.of[owner].blocks - before.of[owner].blocks; };
    const auto most = [&](heap_owner_t owner) { return after.of[owner].most - before.of[owner].held; };
    const uint64_t frames = after.daemons_blocks[FRAME_BUFFER] - before.daemons_blocks[FRAME_BUFFER];
    const uint64_t scratch = after.daemons_blocks[SCRATCH] - before.daemons_blocks[SCRATCH];
    int64_t left = 0;
    for (int owner = 0; owner < HEAP_OWNERS; owner++)
        left += static_cast<int64_t>(after.of[owner].held - before.of[owner].held);

    fmt::print("heap_per_sent {:g}\n", 1.0 * frames / sent);
    fmt::print("heap_per_settings {:g}\n", 1.0 * scratch / (2 * SETTINGS + 1));
    fmt::print("heap_others {}\n", since(HEAP_DAEMON) - frames - scratch);
    fmt::print("heap_most {}\n", most(HEAP_DAEMON));
    fmt::print("heap_per_status_file {}\n", per_file);
    fmt::print("heap_status_file_most {}\n", most(HEAP_C_LIBRARY));
    fmt::print("heap_left {}\n", left);
    if (since(HEAP_BOARD) != 0)
        fmt::print(stderr, "The stand-ins of the board's libraries allocated {} blocks\n", since(HEAP_BOARD));
}

} // namespace

int main(int argc, char **argv)
try {
    constexpr char USAGE[] = "usage: bench_footprint memory|heap DAEMON";
    if (told_about(argc, argv, USAGE))
        return EXIT_SUCCESS;
    const std::string what = argc == 3 ? argv[1] : "";
    if (what != "memory" && what != "heap") {
        fmt::print(stderr, "{}\n", USAGE);
        return EXIT_NOT_UNDERSTOOD;
    }
    lab::enter_world(argv);
    personality(ADDR_NO_RANDOMIZE); // where it is allowed, the figures are the same in every run
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    if (what == "memory")
        measure_memory(argv[2]);
    else
        measure_heap(argv[2], folder.parent_path() / "lib" / "libbench_heap_count.so");
    return 0;
} catch (const lab::cannot_run_t &lacking) {
    fmt::print(stderr, "{}\n", lacking.what());
    return EXIT_UNTOLD;
} catch (const std::exception &error) {
    fmt::print(stderr, "bench_footprint: {}\n", error.what());
    return 1;
}
