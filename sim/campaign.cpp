#include "sim/campaign.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <set>

#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/could_not.h"

namespace sim {

namespace {

constexpr unsigned MOST_JOBS = 1024;
constexpr int A_MOMENT_MS = 100;

/// What the processes share.
struct board_t {
    std::atomic<uint64_t> next;
    std::atomic<uint64_t> done;
    std::atomic<uint64_t> switch_seconds;
    std::atomic<uint64_t> events;
    std::array<std::atomic<uint64_t>, FAULTS> seeds_with;
    std::array<std::array<std::atomic<uint64_t>, PROPERTIES>, FAULTS> excused, smallest_seed;
    std::array<std::atomic<uint64_t>, MOST_JOBS> trying; ///< by process: the seed; 0: none
};

/// Tabs and line ends part what goes through the pipe.
std::string plain(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\t' || c == '\n'; }, ' ');
    return text.substr(0, 1000); // so that each line is written in one piece
}

void note_outcome(board_t &board, uint64_t seed, const outcome_t &outcome)
{
    board.switch_seconds += outcome.switch_seconds;
    board.events += outcome.events;
    for (unsigned fault = 0; fault < FAULTS; fault++)
        board.seeds_with[fault] += outcome.faults >> fault & 1;
    for (const finding_t &finding : outcome.findings) {
        if (finding.promised)
            continue;
        uint64_t excuses = 0;
        for (const exception_t &exception : exceptions())
            if (exception.property == finding.property)
                excuses |= outcome.faults & bit(exception.fault);
        if (std::popcount(excuses) != 1)
            continue;
        const auto fault = static_cast<size_t>(std::countr_zero(excuses));
        board.excused[fault][finding.property]++;
        std::atomic<uint64_t> &smallest = board.smallest_seed[fault][finding.property];
        for (uint64_t known = smallest; (known == 0 || seed < known) && !smallest.compare_exchange_weak(known, seed);) {
        }
    }
}

void try_one(board_t &board, uint64_t seed, const wishes_t &wishes, int pipe)
{
    const story_t story = draw(seed, wishes);
    const outcome_t outcome = try_story(story);
    note_outcome(board, seed, outcome);
    for (const finding_t &finding : outcome.findings) {
        if (!finding.promised)
            continue;
        const std::string line =
            fmt::format("{}\t{}\t{}\t{}.{:06} s: {}\n", seed, property_name(finding.property),
                        plain(story_words(story)), finding.at / SECOND, finding.at % SECOND, plain(finding.words));
        if (write(pipe, line.data(), line.size()) < 0)
            _exit(3);
    }
}

[[noreturn]] void work(board_t &board, unsigned place, uint64_t last, const wishes_t &wishes, int pipe)
{
    for (uint64_t seed; (seed = board.next++) <= last; board.done++) {
        board.trying[place] = seed;
        try_one(board, seed, wishes, pipe);
    }
    board.trying[place] = 0;
    _exit(0);
}

/// Lines of the pipe, as they get whole.
struct lines_t {
    std::string rest;
    std::vector<failure_t> &failures;

    void take(std::string_view octets)
    {
        rest += octets;
        for (size_t end; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
            std::array<std::string, 4> fields;
            size_t from = 0;
            for (size_t i = 0; i < fields.size(); i++) {
                const size_t tab = i + 1 < fields.size() ? rest.find('\t', from) : end;
                fields[i] = rest.substr(from, tab - from);
                from = tab + 1;
            }
            failures.push_back({std::stoull(fields[0]), fields[1], fields[2], fields[3]});
        }
    }
};

} // namespace

uint64_t report_t::seeds() const
{
    uint64_t count = 0;
    for (const auto &[first, last] : ranges)
        count += last - first + 1;
    return count;
}

uint64_t report_t::failed_seeds() const
{
    std::set<uint64_t> seeds;
    for (const failure_t &failure : failures)
        seeds.insert(failure.seed);
    return seeds.size();
}

std::string story_words(const story_t &story)
{
    size_t switches = 0;
    for (const story_node_t &node : story.nodes)
        switches += node.kind == node_kind_t::SWITCH;
    const std::string faults = faults_text(story.faults);
    return fmt::format("{}, {} switches{}{}", story.name, switches, faults.empty() ? "" : ", ", faults);
}

report_t try_seeds(uint64_t first, uint64_t last, unsigned jobs, const wishes_t &wishes, const progress_t &progress)
{
    report_t report;
    report.ranges = {{first, last}};
    const auto begin = std::chrono::steady_clock::now();
    void *const memory = mmap(nullptr, sizeof(board_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    int ends[2];
    if (memory == MAP_FAILED || pipe(ends) != 0)
        throw could_not_t(fmt::format("cannot share with other processes: {}", std::strerror(errno)));
    board_t &board = *new (memory) board_t{};
    board.next = first;
    jobs = static_cast<unsigned>(std::min<uint64_t>({jobs, MOST_JOBS, report.seeds()}));
    std::fflush(nullptr);

    std::vector<pid_t> workers(jobs, 0);
    const pid_t own = getpid();
    const auto start = [&](unsigned place) {
        const pid_t pid = fork();
        if (pid < 0)
            throw could_not_t(fmt::format("cannot start a process: {}", std::strerror(errno)));
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[0]);
            if (getppid() != own || !std::freopen("/dev/null", "w", stdout)) // the switches' consoles
                _exit(3);
            work(board, place, last, wishes, ends[1]);
        }
        workers[place] = pid;
    };
    for (unsigned place = 0; place < jobs; place++)
        start(place);

    lines_t lines = {{}, report.failures};
    char octets[65536];
    for (size_t running = jobs; running > 0;) {
        pollfd reader = {ends[0], POLLIN, 0};
        if (poll(&reader, 1, A_MOMENT_MS) > 0)
            if (const ssize_t got = read(ends[0], octets, sizeof octets); got > 0)
                lines.take({octets, static_cast<size_t>(got)});
        if (progress)
            progress(board.done, board.switch_seconds);
        for (unsigned place = 0; place < jobs; place++) {
            int status = 0;
            if (!workers[place] || waitpid(workers[place], &status, WNOHANG) != workers[place])
                continue;
            workers[place] = 0;
            running--;
            const uint64_t seed = board.trying[place].exchange(0);
            if (seed == 0)
                continue;
            const std::string how = WIFSIGNALED(status) ? fmt::format("signal {}", WTERMSIG(status))
                                                        : fmt::format("status {}", WEXITSTATUS(status));
            report.failures.push_back({seed, "no-crash", story_words(draw(seed, wishes)), "ends with " + how});
            board.done++;
            start(place);
            running++;
        }
    }
    close(ends[1]);
    for (ssize_t got; (got = read(ends[0], octets, sizeof octets)) > 0;)
        lines.take({octets, static_cast<size_t>(got)});
    close(ends[0]);
    if (progress)
        progress(board.done, board.switch_seconds);

    std::stable_sort(report.failures.begin(), report.failures.end(),
                     [](const failure_t &a, const failure_t &b) { return a.seed < b.seed; });
    for (size_t fault = 0; fault < FAULTS; fault++) {
        report.seeds_with[fault] = board.seeds_with[fault];
        for (size_t property = 0; property < PROPERTIES; property++)
            report.excused[fault][property] = {board.excused[fault][property], board.smallest_seed[fault][property]};
    }
    report.switch_seconds = board.switch_seconds;
    report.events = board.events;
    munmap(memory, sizeof(board_t));
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return report;
}

} // namespace sim
