#include "engine_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "tests/seed.h"

#define FLAG(flag)                                                                                                     \
    {                                                                                                                  \
#flag, [](const port_t &port) -> uint8_t { return port.flag; }, [](port_t & port, bool on) { port.flag = on; } \
    }

const std::vector<flag_t> port_flags = {
    FLAG(stpEnabled),       FLAG(agreed),       FLAG(forward),
    FLAG(forwarding),       FLAG(initPm),       FLAG(learn),
    FLAG(learning),         FLAG(rstpVersion),  FLAG(newInfo),
    FLAG(operEdge),         FLAG(edgeDetected), FLAG(proposed),
    FLAG(proposing),        FLAG(rcvdMsg),      FLAG(rcvdRSTP),
    FLAG(rcvdSTP),          FLAG(rcvdTc),       FLAG(rcvdTcAck),
    FLAG(rcvdTcn),          FLAG(reRoot),       FLAG(reselect),
    FLAG(selected),         FLAG(sendRSTP),     FLAG(sync),
    FLAG(synced),           FLAG(tc),           FLAG(tcAck),
    FLAG(tcProp),           FLAG(updtInfo),     FLAG(portEnabled),
    FLAG(rcvdBpdu),         FLAG(nonStp),       FLAG(p2pRecompute),
    FLAG(operPointToPoint),
};

#define TIMER(timer)                                                                                                   \
    {                                                                                                                  \
#timer, &port_t::timer                                                                                         \
    }

const std::array<timer_field_t, 9> port_timers = {{
    TIMER(fdWhile),
    TIMER(helloWhen),
    TIMER(mdelayWhile),
    TIMER(rbWhile),
    TIMER(rcvdInfoWhile),
    TIMER(rrWhile),
    TIMER(tcWhile),
    TIMER(txCount),
    TIMER(edgeDelayWhile),
}};

std::ostream &operator<<(std::ostream &out, const move_row_t &row) { return out << row.label; }

std::ostream &operator<<(std::ostream &out, const entry_row_t &row) { return out << row.label; }

namespace {

/// Every value of a port that is not its place in the bridge.
void make_noise(port_t &port)
{
    for (const flag_t &flag : port_flags)
        flag.set(port, true);
    port.nonStp = 0;
    uint8_t value = 101;
    for (const timer_field_t &timer : port_timers)
        port.*timer.field = value++;

    const bridge_id_t a = {value, {value, 1, 2, 3, 4, 5}};
    const bridge_id_t b = {value, {value, 5, 4, 3, 2, 1}};
    STP_VECT_create(&port.designatedPrio, &a, 1001, &b, 0x1234, 0x4321);
    STP_VECT_create(&port.msgPrio, &b, 1002, &a, 0x2345, 0x5432);
    STP_VECT_create(&port.portPrio, &a, 1003, &a, 0x3456, 0x6543);
    port.designatedTimes = {111, 112, 113, 114};
    port.msgTimes = {121, 122, 123, 124};
    port.portTimes = {131, 132, 133, 134};
    port.infoIs = 77;
    port.rcvdInfo = 78;
    port.role = 79;
    port.selectedRole = 80;
    port.rcvdVersion = 81;
    port.rcvdType = 82;
    port.rcvdRole = 83;
    port.rcvdFlags = 84;
    port.hw_state = 85;
    port.pathCost = 1004;
    port.speed = 1005;
    port.usedSpeed = 1006;
}

template <typename value_t>
value_t draw(std::mt19937 &random, std::initializer_list<value_t> values)
{
    return values.begin()[random() % values.size()];
}

/// A port in any condition, with the values that the machines tell apart.
void shuffle(std::mt19937 &random, port_t &port, bool takes_part)
{
    for (const flag_t &flag : port_flags)
        flag.set(port, random() & 1);
    if (takes_part) {
        port.stpEnabled = 1;
        port.nonStp = 0;
    }
    for (const timer_field_t &timer : port_timers)
        port.*timer.field = draw<uint8_t>(random, {0, 0, 0, 2, 3, 4, 14, 15, 15});
    port.selected = random() % 4 != 0; // mostly settled, where the rules are many
    port.updtInfo = random() % 4 == 0;
    port.infoIs = random() % 4;
    port.rcvdInfo = random() % 4;
    port.role = random() % 6;
    port.selectedRole = random() % 4 ? port.role : random() % 6;
    if (port.role == ROLE_BACKUP && random() % 2) { // with little left to do, which many a flag would hide
        port.sync = port.reRoot = 0;
        port.synced = 1;
        port.fdWhile = 15;
    }
    port.speed = draw<uint32_t>(random, {0, 100, 1000});
    port.usedSpeed = draw<uint32_t>(random, {0, 100, 1000, 0xFFFFFFFF});
    port.pathCost = draw<uint32_t>(random, {0, 20000, 200000});
    port.config.adminPathCost = draw<uint32_t>(random, {0, 20000});
}

/// Any state, more often one that many rules begin from: the last of them are tried only when none before holds.
rstpstate_t draw_state(std::mt19937 &random, const std::vector<rule_t> &rules, rstpstate_t last_state)
{
    const int from = rules[random() % rules.size()].from;
    if (from != ANY && random() % 4 != 0)
        return static_cast<rstpstate_t>(from);
    const unsigned state = random() % (last_state + 2u);
    return state > last_state ? STP_BEGIN : static_cast<rstpstate_t>(state);
}

/// The ports of the bench: the one that is tested first.
std::string bench_text(const records_t &records)
{
    std::string text = port_text(records.ports[1]);
    for (const port_t &each : records.ports)
        if (each.owner && &each != &records.ports[1])
            text += port_text(each);
    return text + fmt::format("force version {}", world_now().force_version);
}

} // namespace

std::string move_text(const stp_machine_t &machine, int from, int to)
{
    const auto name = [&](int state) { return machine.state_name(static_cast<rstpstate_t>(state)); };
    return fmt::format("{} {}", from == ANY ? "any state" : name(from),
                       to == STAYS ? "stays" : fmt::format("-> {}", name(to)));
}

std::string rule_text(const stp_machine_t &machine, const rule_t &rule)
{
    return fmt::format("{} when {}", move_text(machine, rule.from, rule.to), rule.label);
}

port_t *neighbour(const port_t *port) { return port_of(port->port_number == 1 ? 3 : 1); }

port_t *bystander(const port_t *) { return port_of(4); }

const stp_machine_t &machine_of(state_mach_t port_t::*mach)
{
    for (const stp_machine_t &machine : STP_port_machines)
        if (machine.mach == mach)
            return machine;
    ADD_FAILURE() << "not one of the nine machines";
    return STP_port_machines[0];
}

machine_test::machine_test() : bridge(bridge_create())
{
    bridge->rootTimes = bridge->BrTimes;
    for (const uint32_t number : {1, 2, 3})
        port_attach(bridge, number);
    boring_port_attach(bridge, 4);
    port = port_of(2);

    for (port_t &each : world.records.ports)
        for (const flag_t &flag : port_flags)
            flag.set(each, each.owner && (flag.name == std::string("stpEnabled")));
    port_of(4)->nonStp = 1;
    world_forget();
}

void machine_test::expect_move(state_mach_t port_t::*mach, const move_row_t &row)
{
    const stp_machine_t &machine = machine_of(mach);
    row.given(port);
    (port->*mach).State = row.from;

    const records_t given = world.records;
    records_t expected = given;
    if (row.to != STAYS)
        (expected.ports[1].*mach).State = static_cast<rstpstate_t>(row.to);

    const int to = machine.check_conditions(&(port->*mach)) ? (port->*mach).State : STAYS;
    if (to != row.to)
        FAIL() << machine.name << ", \"" << row.label << "\": " << move_text(machine, row.from, to) << ", expected "
               << move_text(machine, row.from, row.to) << "\n"
               << bench_text(given);
    EXPECT_TRUE(same_records(expected, world.records)) << machine.name << ", \"" << row.label << "\"";
    EXPECT_TRUE(world.actions.empty()) << "a check only reads";
    EXPECT_EQ(world.moves.size(), row.to == STAYS ? 0u : 1u);
}

void machine_test::expect_entry(state_mach_t port_t::*mach, const entry_row_t &row)
{
    const records_t silence = world.records;

    for (const bool noise : {false, true}) {
        SCOPED_TRACE(noise ? "every other value set" : "every other value zero");
        world_forget();
        world.records = silence;
        if (noise) {
            for (port_t &each : world.records.ports)
                make_noise(each);
            bystander(port)->nonStp = 1;
        }
        row.given(port);
        (port->*mach).State = row.state;
        const records_t before = world.records;
        row.then(port);
        const records_t expected = world.records;
        world.records = before;

        const stp_machine_t &machine = machine_of(mach);
        machine.enter_state(&(port->*mach));
        const std::string told = fmt::format("{}, \"{}\": enters {}\n{}", machine.name, row.label,
                                             machine.state_name(row.state), port_text(before.ports[1]));
        EXPECT_TRUE(same_records(expected, world.records)) << told;
        EXPECT_EQ(world.actions, row.actions) << told;
        EXPECT_TRUE(world.moves.empty()) << "an entry does not move the machine";
    }
}

void machine_test::expect_rules(state_mach_t port_t::*mach, const std::vector<rule_t> &rules, rstpstate_t last_state)
{
    const unsigned draws = seeds_here(100000);
    const stp_machine_t &machine = machine_of(mach);
    const test_seed_t seed(20040609);
    std::mt19937 random(seed.value);
    std::vector<unsigned> decided(rules.size());

    for (unsigned i = 0; i < draws; i++) {
        for (port_t &each : world.records.ports)
            if (each.owner)
                shuffle(random, each, &each == port);
        world.force_version = random() % 4;
        const rstpstate_t from = draw_state(random, rules, last_state);
        (port->*mach).State = from;

        const auto rule = std::find_if(rules.begin(), rules.end(), [&](const rule_t &each) {
            return (each.from == ANY || each.from == from) && each.when(*port);
        });
        const int to = rule == rules.end() ? STAYS : rule->to;
        if (rule != rules.end())
            decided[static_cast<size_t>(rule - rules.begin())]++;
        records_t given;
        memcpy(&given, &world.records, sizeof given);
        records_t expected;
        memcpy(&expected, &given, sizeof expected);
        if (to != STAYS)
            (expected.ports[1].*mach).State = static_cast<rstpstate_t>(to);

        const int went = machine.check_conditions(&(port->*mach)) ? (port->*mach).State : STAYS;
        if (went != to)
            FAIL() << machine.name << ", draw " << i << ": " << move_text(machine, from, went) << ", expected "
                   << (rule == rules.end() ? move_text(machine, from, to) + ", as no rule holds"
                                           : rule_text(machine, *rule))
                   << "\n"
                   << bench_text(given);
        ASSERT_TRUE(same_records(expected, world.records)) << machine.name << ", draw " << i;
        world_forget();
    }
    for (size_t rule = 0; rule < rules.size(); rule++)
        EXPECT_GE(decided[rule], 10u) << "hardly ever tried: " << rule_text(machine, rules[rule]);
}
