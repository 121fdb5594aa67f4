#include "board/lvt_lab/lab_member.h"

#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "tools/bpdu_frame.h"
#include "tools/pcapng.h"
#include "tools/words.h"

namespace lvt_lab {

namespace {

constexpr size_t CAPTURE_OCTETS_MAX = 64 << 20; ///< of what nobody has read yet

claim_t claim_of(const bpdu_t &bpdu)
{
    claim_t claim;
    claim.type = bpdu.type == BPDU_TYPE_RST ? "RST" : bpdu.type == BPDU_TYPE_TCN ? "TCN" : "config";
    claim.root = bpdu_bridge_text(bpdu.root_priority, bpdu.root_address);
    claim.cost = bpdu_get32(bpdu.root_path_cost);
    claim.bridge = bpdu_bridge_text(bpdu.bridge_priority, bpdu.bridge_address);
    claim.port = bpdu_get16(bpdu.port_id);
    claim.flags = bpdu_flags_words(bpdu.type, bpdu.flags);
    return claim;
}

} // namespace

void lab_t::note_frame(size_t cable, unsigned from, std::span<const uint8_t> frame)
{
    const bool bpdu = is_bpdu(frame);
    const std::lock_guard lock(mutex_);
    for (capture_t *capture : captures_)
        if (const auto found = capture->interfaces_.find(cable);
            found != capture->interfaces_.end() && capture->octets_.size() < CAPTURE_OCTETS_MAX) {
            const auto now = std::chrono::system_clock::now().time_since_epoch();
            const std::vector<uint8_t> packet = pcapng_packet(
                found->second,
                static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()), frame);
            capture->octets_.insert(capture->octets_.end(), packet.begin(), packet.end());
        }
    if (bpdu)
        note_claim(cable, from, frame);
}

void lab_t::note_claim(size_t cable, unsigned from, std::span<const uint8_t> frame)
{
    const bpdu_t bpdu = read_bpdu(frame);
    if (bpdu.type == BPDU_TYPE_TCN)
        return;
    // What other ports send agrees to something or tells a topology change; it claims nothing.
    if (bpdu.type == BPDU_TYPE_RST && bpdu_role(bpdu.flags) != BPDU_ROLE_DESIGNATED)
        return;
    claim_t claim = claim_of(bpdu);
    claim.at = journal_.now();
    side_t &side = sides_[cable][from];
    member_t &member = *members_[network_.links[cable].ends[from].node];
    // What a kernel's bridge thinks of it is asked for: it tells its states by itself, and no root.
    if (!side.claim || side.claim->root != claim.root || side.claim->cost != claim.cost ||
        side.claim->type != claim.type)
        members_[network_.links[cable].ends[1 - from].node]->looks = 2;
    side.claim = claim;
    std::pair<std::string, uint32_t> claimed(claim.root, claim.cost);
    if (member.claimed == claimed)
        return;
    member.claimed = std::move(claimed);
    tell("claim", &member, network_.links[cable].ends[from].port, claim.root,
         claim.root == claim.bridge ? fmt::format("{} says that it is the root", member.name())
                                    : fmt::format("{} says that the root is {}, at cost {}", member.name(),
                                                  bridge_name(claim.root), claim.cost));
    last_change_ = journal_.now();
    calm_ = false;
    member.looks = 2;
}

lab_t::capture_t::capture_t(lab_t &lab, const std::vector<size_t> &cables) : lab_(lab)
{
    std::vector<std::string> names;
    for (const size_t cable : cables) {
        interfaces_[cable] = static_cast<uint32_t>(names.size());
        names.push_back(lab.cable_name(cable));
    }
    octets_ = pcapng_opening(names);
    const std::lock_guard lock(lab_.mutex_);
    lab_.captures_.push_back(this);
}

lab_t::capture_t::~capture_t()
{
    const std::lock_guard lock(lab_.mutex_);
    std::erase(lab_.captures_, this);
}

std::vector<uint8_t> lab_t::capture_t::take()
{
    const std::lock_guard lock(lab_.mutex_);
    return std::exchange(octets_, {});
}

std::unique_ptr<lab_t::capture_t> lab_t::capture(const std::vector<size_t> &cables)
{
    return std::unique_ptr<capture_t>(new capture_t(*this, cables));
}

} // namespace lvt_lab
