#include "sim/draw.h"

#include <algorithm>
#include <array>
#include <utility>

#include "sim/trial.h"

namespace sim {

namespace {

constexpr const char *SHAPES[] = {"ring", "line", "star", "grid", "fat-tree", "mesh", "tree", "segments"};

/// Times that go together (clause 17.14): the longer information lives, the farther it gets.
struct times_t {
    uint16_t max_age, hello_time, forward_delay;
    unsigned reach; ///< cables from the root at which information still lives three hellos
};
constexpr times_t TIMES[] = {{6, 1, 4, 3}, {10, 1, 6, 7}, {14, 1, 8, 11}, {20, 1, 11, 17}, {22, 1, 12, 19}};
constexpr times_t USUAL_TIMES = {20, 2, 15, 14};

class drawing_t {
public:
    drawing_t(uint64_t seed, const wishes_t &wishes) : random_{seed}, wishes_(wishes) { story_.seed = seed; }

    story_t draw();

private:
    // ---- what there is --------------------------------------------------------------------
    bool has(fault_t fault) const { return story_.faults & bit(fault); }
    void choose_faults();
    unsigned choose_size();
    uint32_t choose(size_t count) { return static_cast<uint32_t>(random_.below(count)); }

    node_id_t add(node_kind_t kind);
    unsigned free_port(node_id_t node, unsigned other_than = 0) const;
    bool is_free(node_id_t node) const { return free_port(node) != 0; }
    bool cable(node_id_t a, node_id_t b, bool to_host = false);
    node_id_t any_switch() { return switches_[choose(switches_.size())]; }
    std::optional<node_id_t> switch_with_free_port();

    void draw_shape(shape_t shape, unsigned count);
    void draw_grid(unsigned count);
    void draw_fat_tree(unsigned count);
    void draw_tree(unsigned count);
    void draw_segments(unsigned count);
    void draw_extras();
    void draw_group(uint32_t cable);
    void note_selves();
    void draw_cables();
    void draw_settings();
    void draw_hosts();
    void draw_speaker(manner_t manner);

    // ---- what happens ---------------------------------------------------------------------
    void draw_chapters();
    void draw_deeds(moment_t begin);
    void happen(moment_t at, deed_t deed, uint32_t subject, uint32_t number = 0);
    void set_bridge(moment_t at, node_id_t node, const lvt_rstp_system_config_t &config);
    void set_port(moment_t at, node_id_t node, unsigned port, const lvt_rstp_port_config_t &config);
    uint32_t any_cable();
    /// One that nothing has happened to since the last rest, if there is.
    std::optional<uint32_t> untouched_cable();
    void cut(uint32_t id, moment_t at);
    /// A port of a switch that leads to another one.
    end_t any_inner_port();

    random_t random_;
    const wishes_t &wishes_;
    story_t story_;
    std::vector<node_id_t> switches_;
    std::vector<uint8_t> used_ports_; ///< by node: bit p for port p of a switch, the number of cables of a hub
    std::vector<uint32_t> inner_;     ///< cables between switches and hubs
    std::vector<std::pair<uint32_t, uint32_t>> bundles_; ///< pairs of cables that are or may be a group
    times_t times_ = TIMES[0];

    // As the last event left it.
    std::vector<uint32_t> cut_, deaf_;
    std::vector<node_id_t> off_, dead_;
    std::vector<end_t> out_;
    std::vector<uint32_t> touched_; ///< cables since the last rest
};

// ---- what there is ------------------------------------------------------------------------

void drawing_t::choose_faults()
{
    constexpr uint8_t counts[] = {0, 1, 1, 1, 1, 2, 2, 2, 3, 3};
    for (uint8_t count = counts[choose(std::size(counts))]; count; count--) {
        const auto fault = static_cast<fault_t>(random_.below(FAULTS));
        if (fault != WIDE)
            story_.faults |= bit(fault);
    }
    if (wishes_.faults)
        story_.faults = *wishes_.faults;
}

unsigned drawing_t::choose_size()
{
    const uint64_t dice = random_.below(100);
    const auto size = static_cast<unsigned>(dice < 60   ? random_.between(2, 5)
                                            : dice < 90 ? random_.between(6, 9)
                                            : dice < 98 ? random_.between(10, 16)
                                                        : random_.between(17, 30));
    return wishes_.switches.value_or(size);
}

node_id_t drawing_t::add(node_kind_t kind)
{
    const auto id = static_cast<node_id_t>(story_.nodes.size());
    story_.nodes.emplace_back().kind = kind;
    used_ports_.push_back(0);
    if (kind == node_kind_t::SWITCH)
        switches_.push_back(id);
    return id;
}

unsigned drawing_t::free_port(node_id_t node, unsigned other_than) const
{
    switch (story_.nodes[node].kind) {
    case node_kind_t::SWITCH:
        for (unsigned port = 1; port <= FRONT_PORTS; port++)
            if (port != other_than && !(used_ports_[node] >> port & 1))
                return port;
        return 0;
    case node_kind_t::HUB:
        return used_ports_[node] + 1u;
    default:
        return used_ports_[node] ? 0 : 1;
    }
}

bool drawing_t::cable(node_id_t a, node_id_t b, bool to_host)
{
    const unsigned at_a = free_port(a), at_b = free_port(b, a == b ? at_a : 0);
    if (!at_a || !at_b)
        return false;
    const auto take = [&](node_id_t node, unsigned port) {
        used_ports_[node] = static_cast<uint8_t>(
            story_.nodes[node].kind == node_kind_t::SWITCH ? used_ports_[node] | 1u << port : used_ports_[node] + 1u);
    };
    take(a, at_a);
    take(b, at_b);
    story_cable_t &cable = story_.cables.emplace_back();
    cable.ends[0] = {a, at_a};
    cable.ends[1] = {b, at_b};
    if (!to_host)
        inner_.push_back(static_cast<uint32_t>(story_.cables.size() - 1));
    for (const end_t &end : cable.ends)
        if (story_.nodes[end.node].kind == node_kind_t::SWITCH)
            story_.nodes[end.node].ports[end.port].adminEdge = to_host;
        else if (story_.nodes[end.node].kind == node_kind_t::HUB)
            cable.full_duplex = false;
    return true;
}

std::optional<node_id_t> drawing_t::switch_with_free_port()
{
    for (int attempt = 0; attempt < 20; attempt++)
        if (const node_id_t node = any_switch(); is_free(node))
            return node;
    return {};
}

void drawing_t::draw_grid(unsigned count)
{
    unsigned width = 1;
    while ((width + 1) * (width + 1) <= count)
        width++;
    for (unsigned i = 0; i < count; i++) {
        add(node_kind_t::SWITCH);
        if (i % width)
            cable(switches_[i - 1], switches_[i]);
        if (i >= width)
            cable(switches_[i - width], switches_[i]);
    }
}

/// Levels of ways^(levels - 1) switches. A switch has cables to those of the next level whose number differs
/// in one digit at most, the one of that level.
void drawing_t::draw_fat_tree(unsigned count)
{
    const unsigned ways = random_.one_in(2) ? 2 : 3;
    unsigned levels = 2, width = ways;
    while ((levels + 1) * width * ways <= count) {
        levels++;
        width *= ways;
    }
    for (unsigned i = 0; i < levels * width; i++)
        add(node_kind_t::SWITCH);
    for (unsigned level = 0, place = 1; level + 1 < levels; level++, place *= ways)
        for (unsigned i = 0; i < width; i++)
            for (unsigned digit = 0; digit < ways; digit++) {
                const unsigned other = i - i / place % ways * place + digit * place;
                cable(switches_[level * width + i], switches_[(level + 1) * width + other]);
            }
}

void drawing_t::draw_tree(unsigned count)
{
    // The last ones with a free port, so that no search is long.
    for (unsigned i = 0; i < count; i++) {
        const node_id_t node = add(node_kind_t::SWITCH);
        if (i == 0)
            continue;
        const std::optional<node_id_t> above = switch_with_free_port();
        if (!above || *above == node || !cable(*above, node))
            for (node_id_t other = node; other-- > 0;)
                if (is_free(switches_[other]) && cable(switches_[other], node))
                    break;
    }
    for (uint64_t extra = random_.below(count + 1); extra; extra--) {
        const auto a = switch_with_free_port(), b = switch_with_free_port();
        if (a && b && *a != *b)
            cable(*a, *b);
    }
}

void drawing_t::draw_segments(unsigned count)
{
    for (unsigned i = 0; i < count; i++)
        add(node_kind_t::SWITCH);
    story_.faults |= bit(SHARED);
    // Each segment begins at a switch that is joined already.
    for (size_t joined = 1; joined < count;) {
        const node_id_t hub = add(node_kind_t::HUB);
        node_id_t first = switches_[choose(joined)];
        while (!is_free(first))
            first = switches_[(first + 1) % joined];
        cable(first, hub);
        for (uint64_t more = random_.between(2, 4); more && joined < count; more--)
            cable(switches_[joined++], hub);
        if (random_.one_in(2))
            if (const auto extra = switch_with_free_port())
                cable(*extra, hub);
    }
}

void drawing_t::draw_shape(shape_t shape, unsigned count)
{
    switch (shape) {
    case shape_t::RING:
    case shape_t::LINE:
        for (unsigned i = 0; i < count; i++) {
            add(node_kind_t::SWITCH);
            if (i > 0)
                cable(switches_[i - 1], switches_[i]);
        }
        if (shape == shape_t::RING && count > 2)
            cable(switches_[count - 1], switches_[0]);
        break;
    case shape_t::STAR:
        for (unsigned i = 0; i < count; i++) {
            add(node_kind_t::SWITCH);
            if (i > 0)
                cable(switches_[i <= FRONT_PORTS ? 0 : (i - 2) / (FRONT_PORTS - 1)], switches_[i]);
        }
        break;
    case shape_t::GRID:
        draw_grid(count);
        break;
    case shape_t::FAT_TREE:
        draw_fat_tree(count);
        break;
    case shape_t::MESH:
        for (unsigned i = 0; i < std::min(count, FRONT_PORTS + 1); i++) {
            add(node_kind_t::SWITCH);
            for (unsigned other = 0; other < i; other++)
                cable(switches_[other], switches_[i]);
        }
        break;
    case shape_t::TREE:
        draw_tree(count);
        break;
    case shape_t::SEGMENTS:
        draw_segments(count);
        break;
    }
}

/// A second cable beside one, and the pair as a group at both ends.
void drawing_t::draw_group(uint32_t first)
{
    const end_t a = story_.cables[first].ends[0], b = story_.cables[first].ends[1];
    if (a.node == b.node || story_.nodes[a.node].kind != node_kind_t::SWITCH ||
        story_.nodes[b.node].kind != node_kind_t::SWITCH || !is_free(a.node) || !is_free(b.node))
        return;
    const auto free_group = [&](const end_t &end) {
        const node_groups_t &groups = story_.nodes[end.node].groups;
        for (uint8_t group = FRONT_PORTS + 1; group <= RSTP_PORTS; group++)
            if (groups[end.port] == end.port && std::find(groups.begin() + 1, groups.end(), group) == groups.end())
                return group;
        return uint8_t{0};
    };
    const uint8_t group_a = free_group(a), group_b = free_group(b);
    if (!group_a || !group_b)
        return;
    cable(a.node, b.node);
    const auto second = static_cast<uint32_t>(story_.cables.size() - 1);
    for (const uint32_t id : {first, second}) {
        story_.nodes[a.node].groups[story_.cables[id].ends[0].port] = group_a;
        story_.nodes[b.node].groups[story_.cables[id].ends[1].port] = group_b;
    }
    bundles_.emplace_back(first, second);
    for (const uint32_t id : {first, second})
        std::erase(inner_, id);
}

void drawing_t::draw_extras()
{
    if (has(PARALLEL))
        for (uint64_t more = random_.between(1, 3); more && !inner_.empty(); more--) {
            const story_cable_t beside = story_.cables[any_cable()];
            cable(beside.ends[0].node, beside.ends[1].node);
        }
    if (has(SELF))
        if (const auto node = switch_with_free_port())
            cable(*node, *node);
    if (has(SHARED)) {
        const node_id_t hub = add(node_kind_t::HUB);
        for (uint64_t more = random_.between(3, 5); more; more--)
            if (const auto node = switch_with_free_port())
                cable(*node, hub);
    }
    if (has(SILENT_BRIDGE)) {
        const node_id_t hub = add(node_kind_t::HUB);
        story_.nodes[hub].swallows = true;
        for (int more = 0; more < 2; more++)
            if (const auto node = switch_with_free_port())
                cable(*node, hub);
    }
    if (has(GROUPED) || has(GROUP_SPEEDS) || has(REGROUPED) || has(MEMBER_CUTS))
        for (uint64_t more = random_.between(1, 2); more && !inner_.empty(); more--)
            draw_group(any_cable());
}

void drawing_t::draw_hosts()
{
    for (uint64_t more = random_.below(4); more; more--)
        if (const auto node = switch_with_free_port())
            cable(*node, add(node_kind_t::HOST), true);
}

void drawing_t::draw_speaker(manner_t manner)
{
    const auto at = switch_with_free_port();
    if (!at)
        return;
    const node_id_t id = add(node_kind_t::SPEAKER);
    cable(*at, id, true);
    story_node_t &node = story_.nodes[id];
    node.manner = manner;
    if (manner == manner_t::RANDOM) // who never stops leaves nothing to rest
        node.hush = random_.between(10, 30) * SECOND;
    node.phase = random_.between(1, 10000) * MILLISECOND;
    node.bridge.bridge_priority = static_cast<uint16_t>(manner == manner_t::BETTER ? 0 : random_.below(16) * 4096);
    const end_t &end = story_.cables.back().ends[0];
    story_.nodes[end.node].ports[end.port].adminEdge = 0;
}

/// Whether a switch hears itself, by a hub.
void drawing_t::note_selves()
{
    for (size_t i = 0; i < story_.cables.size(); i++)
        for (size_t j = 0; j < i; j++) {
            const auto &a = story_.cables[i].ends, &b = story_.cables[j].ends; // a hub is always the second
            if (a[0].node == b[0].node && a[1].node == b[1].node && story_.nodes[a[1].node].kind == node_kind_t::HUB)
                story_.faults |= bit(SELF);
        }
}

/// What cables do to frames.
void drawing_t::draw_cables()
{
    for (story_cable_t &cable : story_.cables) {
        for (way_t &way : cable.ways) {
            way.delay = random_.between(1, 2000);
            if (has(SLOW)) {
                way.delay = random_.between(1, 100) * MILLISECOND;
                way.jitter = random_.below(50) * MILLISECOND;
            }
            if (has(LOSSY) && random_.one_in(2))
                way.lost = static_cast<uint32_t>(random_.between(1, 300) * 1000);
            if (has(DOUBLING))
                way.doubled = static_cast<uint32_t>(random_.between(1, 300) * 1000);
        }
        if (has(UNEVEN)) {
            constexpr uint32_t speeds[] = {10, 100, 1000, 2500};
            cable.mbit = speeds[choose(4)];
            cable.full_duplex = cable.full_duplex && !random_.one_in(3);
        }
    }
    for (const auto &[first, second] : bundles_) { // whose cables are alike
        story_.cables[second].mbit = story_.cables[first].mbit;
        story_.cables[second].full_duplex = story_.cables[first].full_duplex;
    }
}

void drawing_t::draw_settings()
{
    const bool by_hand = random_.one_in(4);
    const unsigned reach_wanted = static_cast<unsigned>(switches_.size()) - 1;
    times_ = TIMES[std::size(TIMES) - 1];
    for (const times_t &times : TIMES)
        if (times.reach >= reach_wanted) {
            times_ = times;
            break;
        }
    if (random_.one_in(50))
        times_ = USUAL_TIMES;
    const moment_t boot_spread = has(LATE) ? 120 * SECOND : random_.one_in(3) ? 2 * SECOND : 0;
    for (story_node_t &node : story_.nodes) {
        node.bridge.max_age = times_.max_age;
        node.bridge.hello_time = times_.hello_time;
        node.bridge.forward_delay = times_.forward_delay;
        if (node.manner == manner_t::RANDOM) { // what stage_t lets it say at most
            node.bridge.max_age = std::max<uint16_t>(node.bridge.max_age, 10);
            node.bridge.hello_time = 2;
            node.bridge.forward_delay = std::max<uint16_t>(node.bridge.forward_delay, 6);
        }
        if (node.kind != node_kind_t::SWITCH)
            continue;
        node.bridge.bridge_priority = static_cast<uint16_t>(4096 * random_.between(1, by_hand ? 15 : 2));
        if (has(VERSIONS) && random_.one_in(3))
            node.bridge.force_version = 0;
        for (unsigned port = 0; port <= FRONT_PORTS; port++) {
            lvt_rstp_port_config_t &config = node.ports[port];
            config.adminEnable = 1;
            if (by_hand && random_.one_in(4))
                config.port_priority = static_cast<uint16_t>(16 * random_.below(16));
            if (by_hand && random_.one_in(4))
                config.adminPathCost = static_cast<uint32_t>(random_.between(1, 40000));
            if (has(EDGES) && random_.one_in(3))
                config.adminEdge = 1;
        }
        if (!has(GROUP_SPEEDS))
            node.ports[0].adminPathCost = static_cast<uint32_t>(random_.between(1, 4) * 5000);
        node.boot = boot_spread ? random_.below(boot_spread) / MILLISECOND * MILLISECOND : 0;
        node.phase = random_.between(1, 1000) * MILLISECOND;
        if (has(DRIFT))
            node.second = random_.between(980, 1020) * MILLISECOND;
    }
}

// ---- what happens -------------------------------------------------------------------------

void drawing_t::happen(moment_t at, deed_t deed, uint32_t subject, uint32_t number)
{
    story_event_t &event = story_.events.emplace_back();
    event.at = at;
    event.deed = deed;
    event.subject = subject;
    event.number = number;
}

void drawing_t::set_bridge(moment_t at, node_id_t node, const lvt_rstp_system_config_t &config)
{
    happen(at, deed_t::SET_BRIDGE, node);
    story_.events.back().bridge = config;
}

void drawing_t::set_port(moment_t at, node_id_t node, unsigned port, const lvt_rstp_port_config_t &config)
{
    happen(at, deed_t::SET_PORT, node, port);
    story_.events.back().port = config;
}

uint32_t drawing_t::any_cable() { return inner_[choose(inner_.size())]; }

std::optional<uint32_t> drawing_t::untouched_cable()
{
    for (int attempt = 0; attempt < 10; attempt++)
        if (const uint32_t id = any_cable(); std::find(touched_.begin(), touched_.end(), id) == touched_.end()) {
            touched_.push_back(id);
            return id;
        }
    return {};
}

void drawing_t::cut(uint32_t id, moment_t at)
{
    happen(at, deed_t::CUT, id);
    if (random_.one_in(3)) // long enough for a tick at both ends; less is a flap
        happen(at + random_.between(2500, 9000) * MILLISECOND, deed_t::MEND, id);
    else
        cut_.push_back(id);
}

end_t drawing_t::any_inner_port()
{
    for (;;) {
        const end_t &end = story_.cables[any_cable()].ends[choose(2)];
        if (story_.nodes[end.node].kind == node_kind_t::SWITCH)
            return end;
    }
}

/// One of what the faults of this story do, some time within ten seconds, and the end of what was done before
/// the last rest.
void drawing_t::draw_deeds(moment_t begin)
{
    const auto some_time = [&] { return begin + random_.below(10000) * MILLISECOND; };
    touched_ = cut_;
    touched_.insert(touched_.end(), deaf_.begin(), deaf_.end());
    // What was left broken is repaired.
    for (const uint32_t id : std::exchange(cut_, {}))
        happen(some_time(), deed_t::MEND, id);
    for (const uint32_t id : std::exchange(deaf_, {}))
        for (uint32_t way = 0; way < 2; way++)
            happen(some_time(), deed_t::HEAL, id, way);
    for (const node_id_t id : std::exchange(off_, {}))
        happen(some_time(), deed_t::POWER_ON, id);
    for (const end_t &end : std::exchange(out_, {}))
        set_port(some_time(), end.node, end.port, story_.nodes[end.node].ports[end.port]);

    std::vector<fault_t> kinds;
    for (const fault_t fault : {CUTS, MEMBER_CUTS, FLAPS, OUTAGES, RESTARTS, BUNCHED, REFUSALS, PRIORITIES, COSTS,
                                TIMERS, EDGES, VERSIONS, LEAVING, REGROUPED, DEAF})
        if (has(fault))
            kinds.push_back(fault);
    if (kinds.empty() && !wishes_.faults)
        kinds.push_back(CUTS);
    if (kinds.empty() || inner_.empty())
        return;
    for (uint64_t more = random_.between(1, 3); more; more--) {
        const moment_t at = some_time();
        const node_id_t node = any_switch();
        lvt_rstp_system_config_t &bridge = story_.nodes[node].bridge;
        switch (kinds[choose(kinds.size())]) {
        case CUTS:
            story_.faults |= bit(CUTS);
            if (const auto id = untouched_cable())
                cut(*id, at);
            break;
        case MEMBER_CUTS:
            if (const uint32_t id = bundles_.empty() ? 0 : bundles_[choose(bundles_.size())].second;
                id && std::find(touched_.begin(), touched_.end(), id) == touched_.end()) {
                touched_.push_back(id);
                cut(id, at);
            }
            break;
        case FLAPS:
            if (const auto id = untouched_cable()) {
                const moment_t period = random_.between(20, 900) * MILLISECOND;
                moment_t then = at;
                for (uint64_t flaps = random_.between(1, 20); flaps; flaps--, then += 2 * period) {
                    happen(then, deed_t::CUT, *id);
                    happen(then + period, deed_t::MEND, *id);
                }
            }
            break;
        case OUTAGES:
            happen(at, deed_t::POWER_OFF, node);
            if (random_.one_in(2))
                off_.push_back(node);
            else
                happen(at + random_.between(3000, 15000) * MILLISECOND, deed_t::POWER_ON, node);
            break;
        case RESTARTS:
            happen(at, deed_t::KILL, node);
            happen(at + random_.between(1, 15000) * MILLISECOND, deed_t::RESTART, node);
            break;
        case BUNCHED:
            happen(at, deed_t::HOLD, node, static_cast<uint32_t>(random_.between(1000, 5000)));
            break;
        case REFUSALS:
            happen(at, deed_t::REFUSE, node, static_cast<uint32_t>(random_.between(1, 3)));
            if (const auto id = untouched_cable()) { // so that there is something to write
                happen(at + random_.between(1, 500) * MILLISECOND, deed_t::CUT, *id);
                cut_.push_back(*id);
            }
            break;
        case PRIORITIES:
            if (random_.one_in(2)) {
                bridge.bridge_priority = static_cast<uint16_t>(4096 * random_.between(1, 15));
                set_bridge(at, node, bridge);
            } else {
                const end_t end = any_inner_port();
                lvt_rstp_port_config_t &config = story_.nodes[end.node].ports[end.port];
                config.port_priority = static_cast<uint16_t>(16 * random_.below(16));
                set_port(at, end.node, end.port, config);
            }
            break;
        case COSTS: {
            const end_t end = any_inner_port();
            lvt_rstp_port_config_t &config = story_.nodes[end.node].ports[end.port];
            config.adminPathCost = static_cast<uint32_t>(random_.below(40000));
            set_port(at, end.node, end.port, config);
            break;
        }
        case TIMERS: {
            const times_t &times = TIMES[choose(std::size(TIMES))];
            bridge.max_age = times.max_age;
            bridge.hello_time = times.hello_time;
            bridge.forward_delay = times.forward_delay;
            set_bridge(at, node, bridge);
            break;
        }
        case EDGES: {
            const end_t end = any_inner_port();
            lvt_rstp_port_config_t &config = story_.nodes[end.node].ports[end.port];
            config.adminEdge = !config.adminEdge;
            set_port(at, end.node, end.port, config);
            break;
        }
        case VERSIONS:
            bridge.force_version = bridge.force_version ? 0 : 2;
            set_bridge(at, node, bridge);
            break;
        case LEAVING: {
            const end_t end = any_inner_port();
            lvt_rstp_port_config_t config = story_.nodes[end.node].ports[end.port];
            config.adminEnable = 0;
            set_port(at, end.node, end.port, config);
            if (random_.one_in(2))
                out_.push_back(end);
            else {
                config.adminEnable = 1;
                set_port(at + random_.between(1, 8000) * MILLISECOND, end.node, end.port, config);
            }
            break;
        }
        case REGROUPED: {
            if (bundles_.empty())
                break;
            const auto &[first, second] = bundles_[choose(bundles_.size())];
            for (int side = 0; side < 2; side++) {
                const end_t &one = story_.cables[first].ends[side], &two = story_.cables[second].ends[side];
                node_groups_t &groups = story_.nodes[one.node].groups;
                const bool alone = groups[one.port] == one.port;
                uint8_t group = FRONT_PORTS + 1;
                while (std::find(groups.begin() + 1, groups.end(), group) != groups.end() && group < RSTP_PORTS)
                    group++;
                groups[one.port] = static_cast<uint8_t>(alone ? group : one.port);
                groups[two.port] = static_cast<uint8_t>(alone ? group : two.port);
                happen(at + random_.below(300) * MILLISECOND, deed_t::SET_GROUPS, one.node);
                story_.events.back().groups = groups;
            }
            break;
        }
        case DEAF:
            if (const auto id = untouched_cable()) {
                happen(at, deed_t::DEAFEN, *id, choose(2));
                deaf_.push_back(*id);
            }
            break;
        default:
            break;
        }
    }
}

void drawing_t::draw_chapters()
{
    const std::vector<story_node_t> as_booted = story_.nodes;
    moment_t last = 0;
    for (const story_node_t &node : story_.nodes)
        last = std::max({last, node.boot, node.kind == node_kind_t::SPEAKER ? node.phase : 0,
                         node.manner == manner_t::RANDOM ? node.hush : 0});
    for (uint64_t chapters = random_.between(2, 3); chapters; chapters--) {
        for (const story_event_t &event : story_.events)
            last = std::max(last, event.at + (event.deed == deed_t::HOLD ? event.number * MILLISECOND : 0));
        if (!story_.rests.empty() && last < story_.rests.back())
            break; // nothing happened
        const moment_t bound = settling_bound(story_);
        story_.rests.push_back(last + bound + watched_at_rest(story_));
        if (chapters > 1)
            draw_deeds(story_.rests.back() + judging_time(story_));
    }
    // Events change what a story's nodes begin with while they are drawn.
    for (size_t i = 0; i < as_booted.size(); i++)
        story_.nodes[i] = as_booted[i];
    std::stable_sort(story_.events.begin(), story_.events.end(),
                     [](const story_event_t &a, const story_event_t &b) { return a.at < b.at; });
}

story_t drawing_t::draw()
{
    choose_faults();
    const auto shape = wishes_.shape.value_or(static_cast<shape_t>(random_.below(std::size(SHAPES))));
    draw_shape(shape, choose_size());
    draw_extras();
    if (!switches_.empty() && switches_.size() < story_.nodes.size())
        note_selves();
    draw_hosts();
    if (has(STP_SPEAKER))
        draw_speaker(manner_t::STP);
    if (has(BETTER_SPEAKER))
        draw_speaker(manner_t::BETTER);
    if (has(RANDOM_SPEAKER))
        draw_speaker(manner_t::RANDOM);
    if (has(MIRROR_SPEAKER))
        draw_speaker(manner_t::MIRROR);
    draw_settings();
    draw_cables();
    story_.name = SHAPES[static_cast<size_t>(shape)];
    draw_chapters();
    return std::move(story_);
}

} // namespace

std::span<const char *const> shape_names() { return SHAPES; }

story_t draw(uint64_t seed, const wishes_t &wishes)
{
    story_t story = drawing_t(seed, wishes).draw();
    make_rapid(story, wishes.rapid);
    return story;
}

} // namespace sim
