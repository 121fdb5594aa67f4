#include "daemon/rstp_daemon.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "daemon/diag_out.h"
#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "daemon/rstp_msg.h"
#include "daemon/semaphores.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "platform/lvt_com.h"
#include "process/process.h"
#include "shared_value.h"
#include "state.h"
#include "switch/sw_cfg.h"

LVT_PROCESS sem_t rstp_core_sem;
LVT_PROCESS sem_t rstp_data_sem;
#ifdef LVT_GATHER_STATE
LVT_PROCESS void (*sem_watch)(const sem_t *sem, bool taken);
#endif

namespace {

constexpr uint32_t WORK_TABLE_WORDS = 1024;
constexpr size_t SCRATCH_OCTETS = 7;

LVT_PROCESS pthread_t rstp_thread_handle;
LVT_PROCESS pthread_t rstp_tick_thread_handle;
LVT_STATE uint8_t rstp_ready_flag;
LVT_STATE_RESERVED uint32_t rstp_work_table[WORK_TABLE_WORDS]; ///< reserved: nothing stores into it

void set_ready(uint8_t ready)
{
    sem_guard_t data(rstp_data_sem);
    store_shared(rstp_ready_flag, ready);
}

void start_thread(pthread_t *handle, void *(*body)(void *))
{
    if (process_start_thread(handle, body) != 0) {
        puts("Thread creation failed!!");
        exit(1);
    }
}

int open_pipe(const char *path, const char *failure)
{
    const int fd = process_open_pipe(path, PIPE_WAITS);
    if (fd < 0) {
        puts(failure);
        exit(1);
    }
    return fd;
}

// ---- control messages -------------------------------------------------------------------

void handle_bpdu(const rstp_msg_t *message)
{
    const rstp_msg_header_t &header = message->header;
    uint8_t frame[RSTP_BPDU_MAX] = {};

    // The stated length is handed on whole: of a longer BPDU nothing is read that was cut.
    memcpy(frame, message->body, header.length < sizeof frame ? header.length : sizeof frame);
    sem_guard_t core(rstp_core_sem);
    lvt_rstp_receive(header.port, frame, header.length);
}

void handle_port_status(const rstp_msg_t *message)
{
    uint8_t changed = 0;
    lvt_port_status_update_from_drv_msg(message->body, &changed);

    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        if (!lvt_is_port_status_change(port - 1, &changed))
            continue;
        lvt_port_info_t info = {};
        lvt_port_info_get(port, &info);
        sem_guard_t core(rstp_core_sem);
        lvt_rstp_linkstate_changed(port, info.link != 0);
    }
}

void handle_aggr_status(const rstp_msg_t *message)
{
    uint8_t changed[RSTP_GROUPS] = {};

    set_aggr_port_status(message->body, changed);
    trans_aggr_status_to_group();
    for (uint32_t i = 0; i < RSTP_GROUPS; i++)
        if (changed[i] == 1)
            rstp_aggr_reconfigured(1, RSTP_PHYSICAL_PORTS + 1 + i);
    rstp_aggr_apply_pending();
}

/// Index of the first word in use, or WORK_TABLE_WORDS.
uint32_t first_work()
{
    uint32_t i = 0;
    while (i < WORK_TABLE_WORDS && rstp_work_table[i] == 0)
        i++;
    return i;
}

bool take_work()
{
    sem_guard_t data(rstp_data_sem);
    const uint32_t i = first_work();
    if (i == WORK_TABLE_WORDS)
        return false;
    rstp_work_table[i] = 0;
    return true;
}

void handle_work_flush()
{
    {
        sem_guard_t data(rstp_data_sem);
        first_work(); // only to have waited for whoever has the table
    }
    void *volatile scratch = process_alloc(SCRATCH_OCTETS);
    if (!scratch)
        return;
    while (take_work()) {
    }
    free(scratch);
}

template <typename record_t>
record_t record_in(const rstp_msg_t *message)
{
    record_t record;
    memcpy(&record, message->body, sizeof record);
    return record;
}

struct all_port_config_t {
    lvt_rstp_port_config_t ports[RSTP_PORT_CONFIG_RECORDS];
};

} // namespace

void rstp_dispatch(const rstp_msg_t *message)
{
    switch (message->header.type) {
    case RSTP_MSG_BPDU:
        handle_bpdu(message);
        break;
    case RSTP_MSG_PORT_STATUS:
        handle_port_status(message);
        break;
    case RSTP_MSG_AGGR_STATUS:
        handle_aggr_status(message);
        break;
    case RSTP_MSG_SYSTEM_CONFIG: {
        const auto config = record_in<lvt_rstp_system_config_t>(message);
        lvt_rstp_set_system_config(&config);
        break;
    }
    case RSTP_MSG_AGGR_CONFIG: {
        const auto config = record_in<lvt_rstp_port_config_t>(message);
        lvt_rstp_set_aggr_port_config(&config);
        rstp_aggr_apply_pending();
        break;
    }
    case RSTP_MSG_PORT_CONFIG:
    case RSTP_MSG_PORT_CONFIG_ONLY: {
        const auto config = record_in<all_port_config_t>(message);
        lvt_rstp_set_all_port_config(config.ports);
        if (message->header.type == RSTP_MSG_PORT_CONFIG)
            rstp_aggr_apply_pending();
        break;
    }
    case RSTP_MSG_WORK_FLUSH:
        handle_work_flush();
        break;
    case RSTP_MSG_LACP_ENABLE:
        lvt_rstp_lacp_enable_set(message->body);
        break;
    default:
        break;
    }
}

// ---- threads ----------------------------------------------------------------------------

void rstp_start_bridge()
{
    const uint8_t all_ports = 0xFF;
    lvt_port_status_update(&all_ports);
    lvt_rstp_init();
    rstp_global_conf_init();
}

void *rstp_thread(void *)
{
    rstp_start_bridge();
    start_thread(&rstp_tick_thread_handle, rstp_tick_thread);

    const int control = open_pipe(RSTP_IF_PIPE, "RSTP pipe initial fail");
    const int debug = open_pipe(RSTP_DBG_IF_PIPE, "RSTP DEBUG pipe initial fail");
    rstp_msg_open(control, debug);
    set_ready(1);

    osPrintfConsole("*****************************\n");
    osPrintfConsole("*   RSTP Initial Complete   *\n");
    osPrintfConsole("*****************************\n");

    LVT_PROCESS static rstp_msg_t message;
    for (;;)
        if (rstp_msg_recv(&message) == 1)
            rstp_dispatch(&message);
}

void *rstp_tick_thread(void *)
{
    while (!load_shared(rstp_ready_flag))
        process_sleep_second();

    for (;;) {
        if (process_wait_second() != 0)
            continue;
        rstp_second_passed();
    }
}

void rstp_second_passed()
{
    {
        sem_guard_t core(rstp_core_sem);
        lvt_rstp_tick();
    }
    lvt_rstp_monitor_info_write();
}

void rstp_start_tables()
{
    sem_init(&rstp_core_sem, 0, 1);
    sem_init(&rstp_data_sem, 0, 1);
    sw_cfg_trap_bypassVlan_rstp_set_api(1);
    rstp_aggr_init();
    store_shared(rstp_ready_flag, uint8_t{0});
    {
        sem_guard_t data(rstp_data_sem);
        memset(rstp_work_table, 0, sizeof rstp_work_table);
        rstp_aggr_clear_pending();
    }
    // Set before the threads exist, so that the tick never waits.
    set_ready(1);
}

int rstp_init()
{
    rstp_start_tables();
    start_thread(&rstp_thread_handle, rstp_thread);
    pthread_join(rstp_thread_handle, nullptr);
    return 0;
}
