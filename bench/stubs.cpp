/// A board that takes everything and does nothing.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/link_mon_intf.h"
#include "platform/lvt_com.h"
#include "platform/mdio_intf.h"
#include "process/process.h"

int mdio_intf_access_multi(mdio_multi_t *) { return 0; }

int link_mon_intf_param_get(link_mon_status_t *status)
{
    memset(status, 0, sizeof *status);
    return 0;
}

int osPrintfConsole(const char *, ...) { return 0; }

/// Every pipe is the null device, so that a message costs its system calls.
int process_open_pipe(const char *, pipe_mode_t) { return open("/dev/null", O_RDWR); }
int process_write_pipe(int fd, const void *octets, size_t length)
{
    return static_cast<int>(write(fd, octets, length));
}
int process_write_once(const char *, const void *octets, size_t length)
{
    const int fd = open("/dev/null", O_RDWR);
    const int result = process_write_pipe(fd, octets, length);
    close(fd);
    return result;
}
int process_wait_pipes(int, fd_set *) { return -1; }

int process_open_socket(const char *, sockaddr_ll *) { return 0; }
void process_deafen_socket(int) {}
int process_send_frame(int, const void *, size_t, const sockaddr_ll *) { return 0; }
int process_interface_address(const char *, sockaddr *) { return -1; }

FILE *process_create_file(const char *) { return nullptr; }
int process_place_file(FILE *, const char *, const char *) { return -1; }

time_t process_now() { return 0; }
int process_wait_second() { return -1; }
void process_sleep_second() {}
int process_start_thread(pthread_t *, void *(*)(void *)) { return -1; }
void *process_alloc(size_t size) { return malloc(size); }
