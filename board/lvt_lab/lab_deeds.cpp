#include "board/lvt_lab/lab_member.h"

#include <csignal>
#include <fstream>
#include <utility>

#include <fmt/format.h>

#include "tools/ctl/ctl.h"
#include "tools/topology/story.h"

namespace lvt_lab {

namespace {

using topology::verb_t;

} // namespace

void lab_t::act(const std::string &command)
{
    topology::event_t event;
    {
        const std::lock_guard lock(acting_);
        event = topology::parse_command(network_, topology::span_t(0), command);
        if (event.verb == verb_t::SET)
            network_.story.push_back(event);
    }
    do_event(event, command);
}

void lab_t::do_event(const topology::event_t &event, const std::string &command)
{
    member_t *member = event.verb >= verb_t::KILL ? members_[event.subject].get() : nullptr;
    std::unique_lock<std::recursive_mutex> turn;
    if (member)
        turn = std::unique_lock(member->mutex);
    bool announced = false;
    const auto announce = [&](const std::string &text) {
        const std::lock_guard lock(mutex_);
        const uint64_t number = tell("command", member, 0, command, text, member ? "" : cable_name(event.subject));
        if (!std::exchange(announced, true))
            last_command_ = number;
        last_change_ = journal_.now();
        calm_ = false;
    };
    const auto demand_power = [&] {
        if (!member->powered)
            throw refused_t(fmt::format("{} has no power", member->name()));
    };
    const auto demand_board = [&] {
        if (!member->device)
            throw refused_t(fmt::format("{} has no simulated board", member->name()));
    };
    const auto plug = [&](bool plugged) {
        if (wires_->plugged(event.subject) == plugged)
            throw refused_t(fmt::format("the cable {} is {} already", cable_name(event.subject),
                                        plugged ? "plugged in" : "pulled out"));
        prober_->begin();
        announce(fmt::format("the cable {} is {}", cable_name(event.subject), plugged ? "plugged in" : "pulled out"));
        wires_->plug(event.subject, plugged);
    };
    const auto pause = [&] {
        std::unique_lock lock(ending_);
        end_.wait_for(lock, event.pause, [this] { return ends_.load(); });
    };
    switch (event.verb) {
    case verb_t::PULL:
        return plug(false);
    case verb_t::PLUG:
        return plug(true);
    case verb_t::FLAP:
        prober_->begin();
        for (unsigned i = 0; i < event.times; i++) {
            announce(fmt::format("the cable {} is pulled out", cable_name(event.subject)));
            wires_->plug(event.subject, false);
            pause();
            announce(fmt::format("the cable {} is plugged in", cable_name(event.subject)));
            wires_->plug(event.subject, true);
            pause();
        }
        return;
    case verb_t::DEGRADE:
        announce(command);
        for (const unsigned end : {0u, 1u})
            wires_->set_quality(event.subject, end, event.qualities[end]);
        return;
    case verb_t::DEAFEN:
    case verb_t::HEAL: {
        announce(command);
        topology::quality_t quality = wires_->quality(event.subject, event.way);
        quality.dead = event.verb == verb_t::DEAFEN;
        return wires_->set_quality(event.subject, event.way, quality);
    }
    case verb_t::KILL: {
        demand_power();
        if (!member->daemon().running())
            throw refused_t(fmt::format("the daemon of {} does not run", member->name()));
        prober_->begin();
        announce(fmt::format("the daemon of {} is killed", member->name()));
        member->daemon().signal(SIGKILL);
        member->daemon().wait();
        member->runs = false;
        break;
    }
    case verb_t::RESTART: {
        demand_power();
        member->daemon().stop();
        prober_->begin();
        announce(fmt::format("the daemon of {} is started", member->name()));
        if (!member->device)
            start_ruler(*member);
        else {
            member->device->start_daemon();
            configure(*member);
        }
        member->runs = true;
        break;
    }
    case verb_t::POWER_OFF:
        demand_power();
        prober_->begin();
        announce(fmt::format("{} loses power", member->name()));
        return take_power(*member);
    case verb_t::POWER_ON:
        if (member->powered)
            throw refused_t(fmt::format("{} has power already", member->name()));
        announce(fmt::format("{} gets power", member->name()));
        start(*member);
        member->powered = true;
        for (const auto &[port, place] : member->places)
            wires_->power(place.cable, place.end, true);
        break;
    case verb_t::SET: {
        demand_power();
        announce(command);
        std::ofstream(member->node().path(CONFIG)) << config_text(*event.settings);
        if (member->device)
            return configure(*member);
        const lab::outcome_t applied =
            member->node().run({.argv = {lab::program("LVT_RSTPCTL", "lvt_rstpctl"), "apply"}});
        if (applied.exit_code != 0)
            throw refused_t(applied.output);
        return;
    }
    case verb_t::REFUSE:
        demand_power();
        demand_board();
        announce(command);
        return member->device->client().set_mdio_failures(event.times);
    case verb_t::MESSAGE:
        demand_power();
        demand_board();
        announce(command);
        return member->device->send(event.octets);
    case verb_t::HOLD:
        throw refused_t("a lab cannot hold a clock: that is for the simulator");
    }
    if (!member->runs)
        forget(*member);
}

void lab_t::take_power(member_t &member)
{
    for (const auto &[port, place] : member.places)
        wires_->power(place.cable, place.end, false);
    member.powered = false;
    member.runs = false;
    member.daemon().signal(SIGKILL);
    member.daemon().wait();
    if (member.device) {
        member.device->board().signal(SIGKILL);
        member.device->board().wait();
    }
    forget(member);
}

void lab_t::forget(member_t &member)
{
    const std::lock_guard lock(mutex_);
    member.root.clear();
    member.root_port = 0;
    member.claimed = {};
    for (const auto &[port, place] : member.places) {
        side_t &side = sides_[place.cable][place.end];
        side.role.clear();
        side.claim.reset();
        if (!member.powered)
            side = {};
    }
}

} // namespace lvt_lab
