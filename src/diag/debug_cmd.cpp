#include "daemon/diag_out.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "daemon/rstp_config.h"
#include "diag/reports.h"
#include "l2_proto_utility/os_api.h"
#include "platform/lvt_com.h"
#include "switch/sw_cfg.h"

namespace {

constexpr int TOKENS_MAX = 10; ///< further words are counted, not kept

struct tokens_t {
    int count;
    const char *word[TOKENS_MAX];
};

/// Cuts at single spaces only; a line end stays with the last word.
tokens_t tokenise(char *text)
{
    tokens_t tokens = {};
    char *rest = nullptr;
    for (char *word = strtok_r(text, " ", &rest); word; word = strtok_r(nullptr, " ", &rest)) {
        if (tokens.count < TOKENS_MAX)
            tokens.word[tokens.count] = word;
        tokens.count++;
    }
    return tokens;
}

/// A word matches a keyword that it begins with.
bool matches(const char *word, const char *keyword) { return strncmp(word, keyword, strlen(keyword)) == 0; }

/// The number that a word begins with, or 0. A larger one than an int holds becomes the largest,
/// whatever the width of long.
int number_of(const char *word)
{
    const long number = strtol(word, nullptr, 10);
    return number > INT32_MAX ? INT32_MAX : number < INT32_MIN ? INT32_MIN : static_cast<int>(number);
}

void show_bpdu_filter() { osPrintfConsole("bpdu_filter_en = %d\n", bpdu_filter_en_get()); }

struct report_t {
    const char *keyword;
    void (*show)(); ///< null: takes a port number
};

/// Tested in this order.
constexpr report_t reports[] = {
    {"system_config", lvt_show_rstp_system_config},
    {"port_config", lvt_show_rstp_port_config},
    {"bridge_status", lvt_show_rstp_bridge_status},
    {"rstp_port_status", nullptr},
    {"rstp_statistics", lvt_show_rstp_statistics},
    {"port_status", lvt_show_port_status},
    {"aggr_status", lvt_show_aggr_status},
    {"rstp_aggr_status", lvt_show_rstp_aggr_status},
    {"rstp_stp_state", lvt_show_rstp_stp_state},
    {"bpdu_filter", show_bpdu_filter},
    {"lacp_port_config", lvt_rstp_lacp_enable_port_show},
};

void show(const tokens_t &tokens)
{
    if (tokens.count < 3)
        return lvt_debug_menu();
    for (const report_t &report : reports) {
        if (!matches(tokens.word[2], report.keyword))
            continue;
        if (report.show)
            return report.show();
        if (tokens.count == 4)
            return lvt_show_rstp_port_status(static_cast<uint32_t>(number_of(tokens.word[3])));
        break;
    }
    lvt_debug_menu();
}

/// Enabling and disabling both end here: the trap is taken back for every port on which
/// spanning tree is off.
void set_bpdu_filter(uint8_t enable)
{
    bpdu_filter_en_set(enable);
    for (uint32_t index = 0; index < RSTP_PHYSICAL_PORTS; index++)
        if (rstp_port_config[index + 1].adminEnable == 0)
            sw_cfg_trap_portMgmtFrameAction_rstp_set_api(0, index);
}

void bpdu_filter(const tokens_t &tokens)
{
    if (tokens.count < 3)
        return;
    if (matches(tokens.word[2], "enable"))
        set_bpdu_filter(1);
    else if (matches(tokens.word[2], "disable"))
        set_bpdu_filter(0);
}

} // namespace

int is_dbg_msg(const char *text) { return matches(text, "debug"); }

void excute_dbg_cmd(char *text)
{
    const tokens_t tokens = tokenise(text);

    if (tokens.count >= 2 && matches(tokens.word[1], "show"))
        show(tokens);
    else if (tokens.count >= 2 && matches(tokens.word[1], "bpdu_filter"))
        bpdu_filter(tokens);
    else
        lvt_debug_menu();
}

void lvt_debug_menu()
{
    static constexpr const char *lines[] = {
        "===================================================\n",
        "The RSTP debug command:\n",
        "echo debug show system_config > /tmp/rstp_dbg_if_pipe - show the rstp system config\n",
        "echo debug show port_config > /tmp/rstp_dbg_if_pipe - show the rstp port config\n",
        "echo debug show bridge_status > /tmp/rstp_dbg_if_pipe - show the rstp bridge status\n",
        "echo debug show rstp_port_status [1-64] > /tmp/rstp_dbg_if_pipe - show the rstp port status\n",
        "echo debug show rstp_statistics > /tmp/rstp_dbg_if_pipe - show the rstp statistics\n",
        "echo debug show port_status > /tmp/rstp_dbg_if_pipe - show the port status\n",
        "echo debug show aggr_status > /tmp/rstp_dbg_if_pipe - show the aggr status\n",
        "echo debug show rstp_aggr_status > /tmp/rstp_dbg_if_pipe - show the rstp core aggr status\n",
        "echo debug show rstp_stp_state > /tmp/rstp_dbg_if_pipe - show the rstp stp state\n",
        "echo debug show bpdu_filter > /tmp/rstp_dbg_if_pipe - show the bpdu_filter state\n",
        "echo debug show l2pt_trap > /tmp/rstp_dbg_if_pipe - show the l2pt stp state\n",
        "echo debug bpdu_filter [enable | disable] > /tmp/rstp_dbg_if_pipe - set the bpdu_filter state\n",
        "echo debug show lacp_port_config > /tmp/rstp_dbg_if_pipe - Show lacp port state\n",
        "echo debug l2pt_trap <port> <trap> > /tmp/rstp_dbg_if_pipe - l2pt stp trap set\n",
        "===================================================\n",
    };
    for (const char *line : lines)
        osPrintfConsole("%s", line);
}
