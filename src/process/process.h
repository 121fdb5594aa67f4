/// All that the daemon asks of its process. On a switch process.cpp answers with the system's calls; a
/// test or a simulator answers in its place, without a thread, a file or a clock.
///
/// Failures leave the reason in errno unless said otherwise. Nothing here takes a lock.
#pragma once

#include <netpacket/packet.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

// ---- pipes ------------------------------------------------------------------------------

enum pipe_mode_t { PIPE_WAITS, PIPE_NEVER_WAITS };

/// Opens a named pipe for reading and writing, so that it neither ends nor has to have another end.
/// Returns the descriptor, or -1, also for what is there but is no pipe.
int process_open_pipe(const char *path, pipe_mode_t mode);

/// Writes `length` octets at once. Returns what write does.
int process_write_pipe(int fd, const void *octets, size_t length);

/// Opens a pipe without ever waiting, writes `length` octets at once and closes it. Returns what write does.
int process_write_once(const char *path, const void *octets, size_t length);

/// Waits without end until one of the descriptors below `width` in `readable` can be read, and leaves
/// those that can. Returns how many, or -1.
int process_wait_pipes(int width, fd_set *readable);

// ---- frames -----------------------------------------------------------------------------

/// Opens a packet socket, puts the interface's index into `address` and binds it there. Failures are told
/// on standard error. Returns the descriptor, or -1.
int process_open_socket(const char *interface, sockaddr_ll *address);

/// Makes a socket hear nothing from now on, and forget what it heard.
void process_deafen_socket(int fd);

/// Sends a frame without waiting. Returns 0 or -1.
int process_send_frame(int fd, const void *frame, size_t length, const sockaddr_ll *address);

/// Reads an interface's hardware address and its kind (ARPHRD_ETHER). Returns 0 or -1.
int process_interface_address(const char *interface, sockaddr *address);

// ---- the status file --------------------------------------------------------------------

/// Makes the file `temporary` anew, whatever stood there, and opens it for writing. It follows no link and
/// waits for nobody. Returns null when that cannot be had.
FILE *process_create_file(const char *temporary);

/// Closes a file of process_create_file. When all of it was written, puts it in the place of `path`: in one
/// step, or by writing into what is there when that is a mount point. Else it is removed, and `path` stays
/// as it was. Returns -1 when a whole file could not be put in its place, else 0.
int process_place_file(FILE *file, const char *temporary, const char *path);

// ---- time, threads, memory --------------------------------------------------------------

/// Seconds since 1970.
time_t process_now();

/// Waits for a second. Returns 0, or another number when the wait was cut short.
int process_wait_second();

/// Sleeps for a second, or less when a signal comes.
void process_sleep_second();

/// Starts a thread with the system's defaults. Returns 0 or the error.
int process_start_thread(pthread_t *handle, void *(*body)(void *));

/// Gives memory, or null when there is none; free takes it back.
void *process_alloc(size_t size);
