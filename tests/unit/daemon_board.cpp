#include "daemon_board.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "board/chip/ports.h"
#include "daemon/semaphores.h"
#include "platform/link_mon_intf.h"
#include "platform/lvt_com.h"

board_t board;

namespace {

constexpr size_t MUX_OCTETS = 124;
constexpr size_t TAG_OCTETS = 4;

std::string format(const char *text, ...) __attribute__((format(printf, 1, 2)));

std::string format(const char *text, ...)
{
    char line[200];
    va_list arguments;
    va_start(arguments, text);
    vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    return line;
}

/// Front port of a port control word, 0 for none.
uint32_t port_of_register(uint32_t reg)
{
    for (uint32_t port = 1; port <= BOARD_PORTS; port++)
        if (reg == 0x660 + 12 * chip_port_of_front(port))
            return port;
    return 0;
}

std::string words_of(const std::vector<mdio_op_t> &batch)
{
    const mdio_op_t &last = batch.back();
    if (batch.size() == 1 && last.op == 10 && last.mask == 0x70000 && port_of_register(last.reg))
        return format("state %u %u", port_of_register(last.reg), last.value >> 16);
    if (batch.size() == 2 && last.reg == 0x60C && last.value == 0x80000004)
        return "flush";
    if (batch.size() == 5 && last.reg == 0x60C && last.value == 0x80020022)
        return "trap on";
    if (batch.size() == 5 && last.reg == 0x60C && last.value == 0x80020023)
        return "trap off";
    if (batch.size() == 21 && last.reg == 0x400 && (last.value & ~0x7Fu) == 0x80000200)
        return format("rule %u", last.value & 0x7F);
    return "?" + batch_text(batch);
}

/// Takes over what waits in the multiplexer's pipe, so that the log keeps the true order.
void note_mux(std::vector<octets_t> *messages = nullptr)
{
    octets_t message(MUX_OCTETS);
    while (board.mux_reader >= 0 && read(board.mux_reader, message.data(), message.size()) == MUX_OCTETS) {
        board.log.push_back(format("mux %u %u", message[10], message[24]));
        board.mux_forwards[message[10]] = message[24] != 0;
        if (messages)
            messages->push_back(message);
    }
}

void note_if_asked(const char *what)
{
    if (!board.log_locks)
        return;
    note_mux();
    board.log.push_back(what);
}

/// Front port of a tag's last octet, 0 for none.
uint32_t port_of_tag(uint8_t octet)
{
    for (uint32_t port = 1; port <= BOARD_PORTS; port++)
        if (octet == (0x80 | 1u << chip_port_of_front(port)))
            return port;
    return 0;
}

bool execute(const mdio_op_t &op)
{
    uint32_t &word = board.registers[op.reg];
    switch (op.op) {
    case 9:
        word = op.reg == 0x60C || op.reg == 0x400 ? op.value & 0x7FFFFFFF : op.value;
        return true;
    case 10:
        word = (word & ~op.mask) | (op.value & op.mask);
        return true;
    case 11:
        return (word & op.mask) == op.value;
    default:
        return false;
    }
}

/// Files of the daemon under /tmp lie in the test's own folder.
std::string redirected(const char *path)
{
    for (const char *ours : {"/tmp/rstp_", "/tmp/lacp_if_pipe", "/tmp/port_mux_if_pipe"})
        if (!board.folder.empty() && strncmp(path, ours, strlen(ours)) == 0)
            return board.folder + (path + strlen("/tmp"));
    return path;
}

octets_t octets_of(const void *start, size_t count)
{
    const auto *octets = static_cast<const uint8_t *>(start);
    return {octets, octets + count};
}

} // namespace

void board_note_semaphore(const sem_t *sem, bool taken)
{
    const bool core = sem == &rstp_core_sem;
    note_if_asked(core ? taken ? "core+" : "core-" : taken ? "data+" : "data-");
    if (board.on_semaphore)
        board.on_semaphore(core, taken);
}

std::vector<std::string> board_log()
{
    note_mux();
    return std::move(board.log);
}

std::vector<std::string> board_chip_log()
{
    std::vector<std::string> log = board_log();
    std::erase_if(log, [](const std::string &line) { return line.starts_with("frame"); });
    return log;
}

std::vector<octets_t> board_mux_messages()
{
    std::vector<octets_t> messages;
    note_mux(&messages);
    return messages;
}

bool board_multiplexer_forwards(uint32_t port)
{
    note_mux();
    return board.mux_forwards[port];
}

uint32_t board_port_state(uint32_t port)
{
    for (const auto &[reg, word] : board.registers)
        if (port_of_register(reg) == port)
            return word >> 16 & 7;
    return 0;
}

std::string batch_text(const std::vector<mdio_op_t> &batch)
{
    std::string text;
    for (const mdio_op_t &op : batch)
        text += format("%u %X %X %X\n", op.op, op.reg, op.mask, op.value);
    return text;
}

std::string board_console() { return std::exchange(board.console, {}); }

// ---- the board's libraries ----------------------------------------------------------------

int mdio_intf_access_multi(mdio_multi_t *request)
{
    note_mux();
    const std::vector<mdio_op_t> batch(request->operations, request->operations + request->count);
    const bool fails = board.chip_fails || board.failing_batches.contains(board.batches.size());
    board.batches.push_back(batch);
    const std::string words = words_of(batch);
    if (board.on_engine_call && (words.starts_with("state") || words == "flush"))
        board.on_engine_call(words);
    board.log.push_back(words);
    if (fails)
        return -1;
    for (const mdio_op_t &op : batch)
        if (!execute(op))
            return -1;
    return 0;
}

int link_mon_intf_param_get(link_mon_status_t *status)
{
    if (board.link_monitor_fails)
        return 1;
    memset(status, 0xA5, sizeof *status); // nothing but the six words may be read
    memcpy(status->status, board.link_words, sizeof board.link_words);
    return 0;
}

int osPrintfConsole(const char *text, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, text);
    const int count = vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    board.console += line;
    return count;
}

// ---- the process ----------------------------------------------------------------------------

int process_open_pipe(const char *path, pipe_mode_t mode)
{
    if (board.on_open)
        board.on_open(path);
    return system_open_pipe(redirected(path).c_str(), mode);
}

int process_write_pipe(int fd, const void *octets, size_t length) { return system_write_pipe(fd, octets, length); }

int process_write_once(const char *path, const void *octets, size_t length)
{
    if (board.on_open)
        board.on_open(path);
    return system_write_once(redirected(path).c_str(), octets, length);
}

int process_wait_pipes(int width, fd_set *readable)
{
    if (board.on_wait)
        if (const std::optional<int> result = board.on_wait(width, readable)) {
            if (*result < 0)
                errno = EINTR;
            return *result;
        }
    return system_wait_pipes(width, readable);
}

int process_open_socket(const char *interface, sockaddr_ll *address)
{
    board.socket_interface = interface;
    board.socket_address = octets_of(address, sizeof *address);
    address->sll_ifindex = 42;
    return board.socket_result;
}

void process_deafen_socket(int fd) { system_deafen_socket(fd); }

int process_send_frame(int fd, const void *octets, size_t length, const sockaddr_ll *to)
{
    note_mux();
    const octets_t frame = octets_of(octets, length);
    board.frames.push_back({fd, frame, octets_of(to, sizeof *to)});
    if (board.on_engine_call)
        board.on_engine_call("frame");
    board.log.push_back(frame.size() < 25
                            ? "?short frame"
                            : format("frame %u %s", port_of_tag(frame[15]), kind_of(frame[TAG_OCTETS + TYPE_AT])));
    return (errno = board.send_error) != 0 ? -1 : 0;
}

int process_interface_address(const char *interface, sockaddr *address)
{
    board.cpu_mac_interface = interface;
    if ((errno = board.cpu_mac_error) != 0)
        return -1;
    address->sa_family = board.cpu_family;
    memcpy(address->sa_data, board.cpu_mac.data(), board.cpu_mac.size());
    return 0;
}

FILE *process_create_file(const char *temporary)
{
    note_if_asked("file");
    return system_create_file(redirected(temporary).c_str());
}

int process_place_file(FILE *file, const char *temporary, const char *path)
{
    note_if_asked("file");
    return system_place_file(file, redirected(temporary).c_str(), redirected(path).c_str());
}

time_t process_now() { return board.now ? *board.now : system_now(); }

int process_wait_second()
{
    const int result = board.on_second ? board.on_second() : system_wait_second();
    if (result < 0)
        errno = EINTR;
    return result;
}

void process_sleep_second() { board.on_sleep ? board.on_sleep() : system_sleep_second(); }

int process_start_thread(pthread_t *handle, void *(*body)(void *))
{
    return board.on_thread ? board.on_thread(body) : system_start_thread(handle, body);
}

void *process_alloc(size_t size)
{
    if (board.allocations_left == 0)
        return nullptr;
    if (board.allocations_left > 0)
        board.allocations_left--;
    return system_alloc(size);
}
