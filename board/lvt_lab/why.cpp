#include "board/lvt_lab/why.h"

#include <tuple>

#include <fmt/format.h>

#include "tools/number.h"

namespace lvt_lab {

namespace {

/// "32768/02:00:00:00:01:00", to be compared: the lower one is the better.
struct rank_t {
    unsigned priority = 0;
    std::string address;
    auto operator<=>(const rank_t &) const = default;
};

rank_t rank_of(const std::string &identifier)
{
    const size_t slash = std::min(identifier.find('/'), identifier.size());
    rank_t rank;
    read_number(identifier.substr(0, slash), rank.priority);
    rank.address = identifier.substr(slash);
    return rank;
}

class explainer_t {
public:
    explicit explainer_t(const lab_view_t &view) : view_(view) {}

    std::string explain(const cable_view_t &cable)
    {
        if (!cable.plugged)
            return fmt::format("The cable {} is pulled out.\n", cable.name);
        for (const unsigned i : {0u, 1u}) {
            const end_view_t &end = cable.ends[i];
            const node_view_t &node = *view_.node(end.node);
            if (!node.power)
                return fmt::format("{} has no power.\n", node.name);
            if (node.kind != "host" && !end.link)
                return fmt::format("{} has no link.\n", end.name);
        }
        for (const unsigned i : {0u, 1u})
            if (cable.ends[i].cuts())
                return explain_cut(cable.ends[i], cable.ends[1 - i]);
        return explain_carrying(cable);
    }

private:
    std::string name_of(const std::string &identifier) const
    {
        for (const node_view_t &node : view_.nodes)
            if (node.kind != "host" && node.bridge == identifier)
                return node.name;
        return identifier;
    }

    std::string claim_text(const claim_t &claim) const
    {
        if (claim.root == claim.bridge)
            return fmt::format("{} is the root", name_of(claim.root));
        return fmt::format("the root is {}, at cost {} from {}", name_of(claim.root), claim.cost,
                           name_of(claim.bridge));
    }

    /// The port by which the node reaches its root, and the other end of its cable.
    std::pair<const end_view_t *, const end_view_t *> root_port_of(const std::string &node) const
    {
        for (const cable_view_t &cable : view_.cables)
            for (const unsigned i : {0u, 1u})
                if (cable.ends[i].node == node && cable.ends[i].role == "root")
                    return {&cable.ends[i], &cable.ends[1 - i]};
        return {};
    }

    std::string explain_cut(const end_view_t &end, const end_view_t &other)
    {
        std::string text =
            fmt::format("{} cuts it: {}{}.\n", end.name, end.role.empty() ? "" : "the port is " + end.role + " and ",
                        end.state == "learning" ? "learns" : "discards");
        if (end.role == "designated" || end.role == "root")
            return text + "Not for long: it waits for an agreement, or for the forward delay, before it forwards.\n";
        if (end.role == "backup")
            return text +
                   fmt::format("{} itself says on this cable, at a better port, what it would say here.\n", end.node);
        if (!other.claim)
            return text + fmt::format("Nothing was heard there since the daemon of {} runs.\n", end.node);
        text += fmt::format("  there it hears of {:<8}  {}\n", other.name + ":", claim_text(*other.claim));
        const auto [root_end, from] = root_port_of(end.node);
        if (!root_end || !from->claim)
            return text;
        text += fmt::format("  at {} of {:<8}  {}\n", root_end->name, from->name + ":", claim_text(*from->claim));
        text += "The way through " + root_end->name + " is the better one: " +
                difference(*from->claim, root_end->cost, *other.claim, end.cost, root_end->port, end.port) + ".\n";
        text +=
            fmt::format("And {} is better on the cable itself: {}.\n", other.name, own_difference(end, *other.claim));
        return text;
    }

    /// Why the first of two ways is the better one.
    std::string difference(const claim_t &a, uint32_t a_cost, const claim_t &b, uint32_t b_cost, unsigned a_port,
                           unsigned b_port) const
    {
        if (a.root != b.root)
            return fmt::format("its root is {}, {}", name_of(a.root), lower(a.root, b.root));
        const uint32_t a_total = a.cost + a_cost, b_total = b.cost + b_cost;
        if (a_total != b_total)
            return fmt::format("it costs {} + {} = {}, and the other {} + {} = {}", a.cost, a_cost, a_total, b.cost,
                               b_cost, b_total);
        const std::string same = fmt::format("both cost {}, and ", a_total);
        if (a.bridge != b.bridge)
            return same + fmt::format("{} has the lower identifier, {}", name_of(a.bridge), lower(a.bridge, b.bridge));
        if (a.port != b.port)
            return same + fmt::format("{} sends there from the port with the lower identifier, {:04x}, not {:04x}",
                                      name_of(a.bridge), a.port, b.port);
        return same + fmt::format("port {} is lower than port {}", a_port, b_port);
    }

    /// Why what is heard is better than what the end could say itself.
    std::string own_difference(const end_view_t &end, const claim_t &heard) const
    {
        const node_view_t &node = *view_.node(end.node);
        const auto [root_end, from] = root_port_of(end.node);
        const uint32_t own = root_end && from->claim ? from->claim->cost + root_end->cost : 0;
        if (node.root != heard.root)
            return fmt::format("it knows of {}, {}", name_of(heard.root), lower(heard.root, node.root));
        if (own != heard.cost)
            return fmt::format("from there the root costs {}, from {} {}", heard.cost, end.node, own);
        return fmt::format("from both ends the root costs {}, and {} has the lower identifier, {}", own,
                           name_of(heard.bridge), lower(heard.bridge, node.bridge));
    }

    static std::string lower(const std::string &a, const std::string &b)
    {
        return fmt::format("{} {} {}", a, rank_of(a) < rank_of(b) ? "before" : "after", b);
    }

    std::string explain_carrying(const cable_view_t &cable) const
    {
        std::string text = fmt::format("Nobody cuts {}: it carries data.\n", cable.name);
        for (const unsigned i : {0u, 1u}) {
            const end_view_t &end = cable.ends[i], &other = cable.ends[1 - i];
            if (end.role == "root" && other.claim)
                text += fmt::format("It is the way of {} to the root: {} hears of {}: {}, and adds {}.\n", end.node,
                                    end.name, other.name, claim_text(*other.claim), end.cost);
        }
        return text;
    }

    const lab_view_t &view_;
};

} // namespace

std::string why_text(const lab_view_t &view, const cable_view_t &cable) { return explainer_t(view).explain(cable); }

} // namespace lvt_lab
