#include "lvt_board/board.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fmt/ranges.h>

#include "platform/messages.h"
#include "tools/bpdu_frame.h"
#include "tools/messages.h"
#include "tools/pipe.h"
#include "tools/words.h"

namespace {

constexpr unsigned FRAMES_PER_TURN = 64; // then the other ports have their turn

const char *bpdu_name(std::span<const std::uint8_t> frame)
{
    const bpdu_t bpdu = read_bpdu(frame);
    if (!is_bpdu(frame) || frame.size() < offsetof(bpdu_t, flags) || bpdu_get16(bpdu.protocol) != 0)
        return "none";
    switch (bpdu.type) {
    case BPDU_TYPE_CONFIG:
        return "config";
    case BPDU_TYPE_RST:
        return bpdu.version >= 3 ? "mst" : "rstp";
    case BPDU_TYPE_TCN:
        return "tcn";
    }
    return "unknown";
}

std::string link_words(const link_t &link)
{
    if (!link.up)
        return "no link";
    return fmt::format("link, {} Mbit/s {} duplex", link.mbit, link.full_duplex ? "full" : "half");
}

std::uint32_t link_monitor_word(const link_t &link)
{
    return static_cast<std::uint32_t>(link_speed_code(link.mbit)) |
           static_cast<std::uint32_t>(link.full_duplex) << LINK_MON_DUPLEX_BIT |
           static_cast<std::uint32_t>(link.up) << LINK_MON_LINK_BIT;
}

std::vector<unsigned> front_ports_of(std::uint8_t chip_ports)
{
    std::vector<unsigned> fronts;
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        if ((chip_ports >> chip_port_of_front(front) & 1) != 0)
            fronts.push_back(front);
    return fronts;
}

} // namespace

board_t::board_t(const board_clock_t &clock, event_log_t &log, later_t)
    : link_events(link_events_open()), clock_(clock), log_(log)
{
    plugs[0].interface = CPU_INTERFACE;
}

board_t::board_t(const board_clock_t &clock, event_log_t &log, speeds_t speeds) : board_t(clock, log, later_t())
{
    speeds_ = std::move(speeds);
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        plugs[front].interface = fmt::format("port{}", front);
    board_t::look_at_links();
}

// ---- registers -------------------------------------------------------------------------

int board_t::mdio(const mdio_multi_t &batch)
{
    const std::uint64_t number = ++counters.batches;

    if (faults.mdio_fails || faults.mdio_failures > 0) {
        faults.mdio_failures -= faults.mdio_failures > 0;
        counters.batches_failed++;
        log_.line("mdio", "batch={} ops={} result=-1 | refused: a fault is set", number, batch.count);
        return -1;
    }

    steps_.clear();
    const int result = chip_execute(chip, batch, now(), &steps_);
    counters.batches_failed += result != 0;
    for (std::size_t i = 0; i < steps_.size(); i++) {
        const auto &[op, words, done] = steps_[i];
        log_.line("mdio", "batch={} step={}/{} op={} reg=0x{:03x} mask=0x{:08x} value=0x{:08x} | {}{}", number, i + 1,
                  batch.count, op.op, op.reg, op.mask, op.value, words, done ? "" : ": failed");
    }
    log_.line("mdio", "batch={} ops={} result={}", number, batch.count, result);
    return result;
}

// ---- links -----------------------------------------------------------------------------

int board_t::link_monitor(link_mon_status_t &status)
{
    counters.link_asked++;
    if (faults.link_fails) {
        log_.line("link", "asked=1 result=-1 | link monitor refuses: a fault is set");
        return -1;
    }

    look_at_links();
    status = {};
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        status.status[front - 1] = link_monitor_word(plugs[front].link);
    log_.line("link", "asked=1 result=0 words={:03x}", fmt::join(status.status, ","));

    report_owed_ = false; // whoever asks knows
    return 0;
}

void board_t::observe_link(unsigned plug, const link_t &sampled)
{
    link_t link = sampled;
    if (const auto speed = speeds_.find(plug); link.up && speed != speeds_.end())
        link = {true, speed->second.mbit, speed->second.full_duplex};
    if (link == plugs[plug].link)
        return;

    plugs[plug].link = link;
    if (plug == 0) {
        log_.line("link", "cpu up={} | CPU port: {}", int{link.up}, link.up ? "link" : "no link");
        return;
    }
    chip_link_set(chip, chip_port_of_front(plug), link.up);
    log_.line("link", "port={} up={} mbit={} duplex={} | port {}: {}", plug, int{link.up}, link.mbit,
              link.full_duplex ? "full" : "half", plug, link_words(link));
    report_owed_ = true;
    link_changed(plug);
    report_links();
}

link_t board_t::sample_link(unsigned plug, int &index) { return link_sample(plugs[plug].interface, index); }

fd_t board_t::open_wire(unsigned, int index) { return wire_open(index); }

void board_t::attach(unsigned number, int index)
{
    plug_t &plug = plugs[number];
    plug.wire = fd_t();
    plug.index = 0;
    try {
        if (index != 0)
            plug.wire = open_wire(number, index);
        plug.index = index;
    } catch (const std::system_error &problem) {
        // Perhaps it is gone again; the next look will tell.
        log_.line("link", "interface={} | {}", plug.interface, problem.what());
    }
}

/// Returns whether one of them concerns this board.
bool board_t::read_announcements()
{
    bool any = false;
    link_events_read(link_events, [&](const link_news_t &news) {
        for (unsigned i = 0; i < plugs.size(); i++)
            if (!news.carrier && plugs[i].index == news.index && news.index != 0)
                observe_link(i, {});
        any = any || concerns(news);
    });
    return any;
}

void board_t::take_announcements()
{
    if (read_announcements())
        look_at_links();
}

void board_t::look_at_links()
{
    read_announcements();
    for (unsigned i = 0; i < plugs.size(); i++) {
        int index;
        link_t link = sample_link(i, index);
        if (index != plugs[i].index) {
            if (plugs[i].index != 0) { // another interface is another cable
                observe_link(i, {});
                link = sample_link(i, index);
            }
            attach(i, index);
        }
        observe_link(i, link);
    }
    if (report_owed_)
        report_links();
}

// A report that finds no reader or a full pipe stays owed; the next one carries the links of then.
void board_t::report_links()
{
    port_statuses_t statuses{};
    for (unsigned front = 1; front <= BOARD_PORTS; front++) {
        const link_t &link = plugs[front].link;
        statuses[front - 1] = {0, link.up, link_speed_code(link.mbit), link.full_duplex};
    }
    if (!write_to_pipe(RSTP_IF_PIPE, port_status_message(statuses)).ok())
        return;
    report_owed_ = false;
    counters.link_reports++;
    log_.line("link", "reported=1 | daemon told of all links");
}

void board_t::set_speed(unsigned front, std::optional<speed_t> speed)
{
    if (speed)
        speeds_[front] = *speed;
    else
        speeds_.erase(front);
    look_at_links();
}

// ---- frames ----------------------------------------------------------------------------

void board_t::receive(unsigned plug)
{
    for (unsigned i = 0; i < FRAMES_PER_TURN && plugs[plug].wire; i++) {
        if (wire_receive(plugs[plug].wire, *frame_) != wire_result_t::frame)
            return;
        if (plug == 0)
            from_cpu(*frame_);
        else
            from_front(plug, *frame_);
    }
}

void board_t::from_cpu(wire_frame_t &frame)
{
    const chip_verdict_t verdict = chip_receive_from_cpu(chip, frame.span());
    if (verdict.drop != chip_drop_t::none) {
        log_.line("drop", "from=cpu octets={} | {}", frame.size, chip_drop_name(verdict.drop));
        return;
    }
    const auto untagged = chip_untag(frame.span());
    log_.line("tx", "ports={} octets={} bpdu={}", fmt::join(front_ports_of(verdict.ports), ","), untagged.size(),
              bpdu_name(untagged));
    send(verdict.ports, wire_offload_t{}, untagged);
}

void board_t::from_front(unsigned front, wire_frame_t &frame)
{
    const chip_verdict_t verdict = chip_receive(chip, chip_port_of_front(front), frame.span(), now());
    if (verdict.trapped)
        deliver_bpdu(front, frame.span());
    else
        forward(verdict.ports, frame);
}

void board_t::forward(std::uint8_t chip_ports, wire_frame_t &frame) { send(chip_ports, frame.offload, frame.span()); }

void board_t::deliver_bpdu(unsigned front, std::span<const std::uint8_t> frame)
{
    const auto kept = frame.first(std::min<std::size_t>(frame.size(), RSTP_BODY_MAX));
    const auto stated = static_cast<std::uint16_t>(std::min<std::size_t>(frame.size(), UINT16_MAX));
    const pipe_result_t written = write_to_pipe(RSTP_IF_PIPE, received_message(front, kept, stated));
    if (written.ok()) {
        counters.bpdus++;
        log_.line("rx", "port={} chip={} octets={} bpdu={}", front, chip_port_of_front(front), frame.size(),
                  bpdu_name(frame));
    } else {
        counters.bpdus_lost++;
        log_.line("drop", "from=port{} octets={} bpdu={} | {}", front, frame.size(), bpdu_name(frame), written.message);
    }
}

void board_t::send(std::uint8_t chip_ports, const wire_offload_t &offload, std::span<const std::uint8_t> octets)
{
    for (const unsigned front : front_ports_of(chip_ports))
        if (!plugs[front].wire || !wire_send(plugs[front].wire, offload, octets))
            counters.send_failed++;
}

void board_t::set_trunk(std::uint8_t group, const std::vector<unsigned> &fronts)
{
    for (unsigned front = 1; front <= BOARD_PORTS; front++) {
        const unsigned port = chip_port_of_front(front);
        if (std::find(fronts.begin(), fronts.end(), front) != fronts.end())
            chip_trunk_set(chip, port, group);
        else if (chip.trunk[port] == group)
            chip_trunk_set(chip, port, 0);
    }
}

// ---- messages from the daemon -------------------------------------------------------------

void board_t::keep(heard_t &&message)
{
    message["seconds"] = clock_.seconds();
    heard.push_back(std::move(message));
    if (heard.size() > HEARD_MAX)
        heard.pop_front();
}

void board_t::read_lacp()
{
    for (heard_t &message : lacp_read(pipes.lacp)) {
        const std::string raw = message["raw"];
        if (message.contains("enabled"))
            log_.line("lacp", "enabled={} raw={} | spanning tree is on at the ports listed",
                      fmt::join(message["enabled"].get<std::vector<unsigned>>(), ","), raw);
        else
            log_.line("lacp", "raw={} | not understood", raw);
        keep(std::move(message));
    }
}

void board_t::read_mux()
{
    for (heard_t &message : mux_read(pipes.mux)) {
        const std::string raw = message["raw"];
        if (message.contains("port"))
            log_.line("mux", "port={} forwarding={} raw={} | port {} {}", message["port"].get<unsigned>(),
                      int{message["forwarding"].get<bool>()}, raw, message["port"].get<unsigned>(),
                      forwarding_word(message["forwarding"].get<bool>()));
        else
            log_.line("mux", "raw={} | not understood", raw);
        keep(std::move(message));
    }
}

void board_t::catch_up_with_daemon()
{
    receive(0);
    if (faults.pipes_unread)
        return;
    read_lacp();
    read_mux();
}
