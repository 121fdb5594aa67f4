/// Tests of one machine against its tables: moves, entry actions, and all rules at once.
#pragma once

#include "engine_world.h"

// ---- the parts of a port record ---------------------------------------------------------

struct flag_t {
    const char *name;
    uint8_t (*get)(const port_t &);
    void (*set)(port_t &, bool);
};
extern const std::vector<flag_t> port_flags;

struct timer_field_t {
    const char *name;
    uint8_t port_t::*field;
};
extern const std::array<timer_field_t, 9> port_timers;

// ---- tables -----------------------------------------------------------------------------

using change_t = void (*)(port_t *port);

constexpr int STAYS = -1;

/// A machine in a state, what is the case, and where it goes: a state or STAYS. What the row does not
/// set is zero.
struct move_row_t {
    const char *label;
    rstpstate_t from;
    change_t given;
    int to;
};
std::ostream &operator<<(std::ostream &out, const move_row_t &row);

/// A state that is entered, what is the case, and all that the entry does: changes of the records, and
/// what leaves the engine in its order.
struct entry_row_t {
    const char *label;
    rstpstate_t state;
    change_t given;
    change_t then;
    std::vector<std::string> actions = {};
};
std::ostream &operator<<(std::ostream &out, const entry_row_t &row);

/// One line of a machine's table of transitions, in the table's order. Its label is the condition as it
/// is written: WHEN(p.rcvdMsg && !p.updtInfo), or ALWAYS.
struct rule_t {
    int from; ///< a state, or ANY
    const char *label;
    bool (*when)(const port_t &port);
    int to; ///< a state, or STAYS
};
constexpr int ANY = -2;
#define WHEN(...) #__VA_ARGS__, []([[maybe_unused]] const port_t &p) -> bool { return __VA_ARGS__; }
#define ALWAYS "always", [](const port_t &) { return true; }

inline void nothing(port_t *) {}

/// A machine of port 2 on a bridge, not running, whose ports 1, 2 and 3 take part and whose port 4 does
/// not. Root times: max age 20, hello 2, forward delay 15.
class machine_test : public engine_test {
protected:
    machine_test();

    /// Checks that the machine moves as the row says and changes nothing else.
    void expect_move(state_mach_t port_t::*mach, const move_row_t &row);

    /// Checks the row's actions, first with every other value zero, then with none zero.
    void expect_entry(state_mach_t port_t::*mach, const entry_row_t &row);

    /// Draws very many ports, and checks each time that the first rule that holds decides, up to the
    /// first draw in which it does not. Every rule must have decided now and then.
    void expect_rules(state_mach_t port_t::*mach, const std::vector<rule_t> &rules, rstpstate_t last_state);

    stpm_t *bridge;
    port_t *port;
};

/// Another port, taking part, of the bridge of `port`.
port_t *neighbour(const port_t *port);

/// A port, not taking part, of the bridge of `port`.
port_t *bystander(const port_t *port);

// ---- what a failure shows ---------------------------------------------------------------

/// "ROOT_PORT -> ROOT_AGREED", "ROOT_PORT stays", or "any state -> INIT".
std::string move_text(const stp_machine_t &machine, int from, int to);

/// "CURRENT -> RECEIVE when p.rcvdMsg && !p.updtInfo".
std::string rule_text(const stp_machine_t &machine, const rule_t &rule);

/// The functions of a port's machine.
const stp_machine_t &machine_of(state_mach_t port_t::*mach);
