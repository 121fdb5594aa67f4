/// The board under the daemon, as one record that tests set and read. It answers the three board
/// libraries, and what the daemon asks of its process. What a test does not set below goes on to the real
/// process, whose functions are called system_ here (see daemon.cmake).
#pragma once

#include <semaphore.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "board/chip/ports.h"
#include "heard_bpdu.h"
#include "platform/mdio_intf.h"
#include "process/process.h"
#include "tools/hex.h"

struct sent_frame_t {
    int fd;
    octets_t octets;
    octets_t address;
};

struct board_t {
    // ---- switch chip ------------------------------------------------------------------
    std::vector<std::vector<mdio_op_t>> batches; ///< every request, in order
    std::map<uint32_t, uint32_t> registers;      ///< commands are done at once: busy bits are never left
    std::set<size_t> failing_batches;            ///< by their index in `batches`
    bool chip_fails = false;                     ///< all of them

    // ---- link monitor and console -----------------------------------------------------
    uint32_t link_words[BOARD_PORTS] = {};
    bool link_monitor_fails = false;
    std::string console;

    // ---- sockets ----------------------------------------------------------------------
    std::vector<sent_frame_t> frames;
    int send_error = 0;           ///< errno of sending; 0: frames are taken
    int socket_result = 77;       ///< the descriptor of a new socket
    octets_t socket_address;      ///< what was asked for
    std::string socket_interface; ///< and where
    octets_t cpu_mac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x50};
    uint16_t cpu_family = 1;       ///< hardware type of the CPU interface
    int cpu_mac_error = 0;         ///< errno of the address request
    std::string cpu_mac_interface; ///< asked for

    // ---- files, pipes, memory, threads, time ------------------------------------------
    std::string folder;                    ///< stands for /tmp, for the daemon's own files there
    int mux_reader = -1;                   ///< reading end of the port multiplexer's pipe
    std::map<uint32_t, bool> mux_forwards; ///< by logical port: what the multiplexer heard last
    int allocations_left = -1;             ///< then they fail; below 0: never
    std::optional<int64_t> now;            ///< seconds since 1970
    std::function<std::optional<int>(int width, fd_set *readable)> on_wait; ///< for the pipes; nothing: as it comes
    std::function<int()> on_second;
    std::function<int(void *(*body)(void *))> on_thread;
    std::function<void()> on_sleep;
    std::function<void(const std::string &path)> on_open;
    std::function<void(const std::string &line)> on_engine_call; ///< before a state, flush or frame is logged
    std::function<void(bool core, bool taken)> on_semaphore;     ///< when one was taken or is about to be given back
    bool log_locks = false;                                      ///< and the status file's opening and placing

    /// All that the board saw, in order and in words, see board_log().
    std::vector<std::string> log;
};

extern board_t board;

/// What sem_watch calls.
void board_note_semaphore(const sem_t *sem, bool taken);

// The real process, see process/process.h.
int system_open_pipe(const char *path, pipe_mode_t mode);
int system_write_pipe(int fd, const void *octets, size_t length);
int system_write_once(const char *path, const void *octets, size_t length);
int system_wait_pipes(int width, fd_set *readable);
int system_open_socket(const char *interface, sockaddr_ll *address);
void system_deafen_socket(int fd);
int system_send_frame(int fd, const void *frame, size_t length, const sockaddr_ll *address);
int system_interface_address(const char *interface, sockaddr *address);
FILE *system_create_file(const char *temporary);
int system_place_file(FILE *file, const char *temporary, const char *path);
time_t system_now();
int system_wait_second();
void system_sleep_second();
int system_start_thread(pthread_t *handle, void *(*body)(void *));
void *system_alloc(size_t size);

/// Everything since the last call, in order:
///   "state P C"  port P's state field was set to C     "rule E"       bypass rule E was written
///   "flush"      all addresses were deleted            "mux P F"      the multiplexer heard of port P
///   "trap on|off" the trap was armed or disarmed       "frame P KIND" a BPDU left through front port P
/// Anything else shows as "?...". With `log_locks` there are also
///   "data+" "core+"  a semaphore was taken             "data-" "core-"  it is about to be given back
///   "file"       the status file is opened, or put in its place
std::vector<std::string> board_log();

/// The same without frames.
std::vector<std::string> board_chip_log();

/// Messages waiting in the multiplexer's pipe, whole; they are taken into the log as well.
std::vector<octets_t> board_mux_messages();

/// What the multiplexer heard last of front port 1 to 6.
bool board_multiplexer_forwards(uint32_t port);

/// State field of front port 1 to 6 in the chip.
uint32_t board_port_state(uint32_t port);

/// A batch as text: a line "op reg mask value" (decimal, then hexadecimal) for each operation.
std::string batch_text(const std::vector<mdio_op_t> &batch);

/// What the console showed since the last call.
std::string board_console();
