#include "board/lvt_lab/view.h"

#include <nlohmann/json.hpp>

namespace lvt_lab {

using nlohmann::json;

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(claim_t, type, root, cost, bridge, port, flags, at)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(node_view_t, name, kind, power, daemon, rapid, is_root, bridge, root, root_port, mac)

namespace {

json json_of(const end_view_t &end)
{
    json told = {{"name", end.name},     {"node", end.node},   {"port", end.port},   {"link", end.link},
                 {"role", end.role},     {"cost", end.cost},   {"state", end.state}, {"frames", end.frames},
                 {"octets", end.octets}, {"bpdus", end.bpdus}, {"lost", end.lost},   {"quality", end.quality}};
    if (end.claim)
        told["claim"] = *end.claim;
    return told;
}

end_view_t end_of(const json &told)
{
    end_view_t end;
    told.at("name").get_to(end.name);
    told.at("node").get_to(end.node);
    told.at("port").get_to(end.port);
    told.at("link").get_to(end.link);
    told.at("role").get_to(end.role);
    told.at("state").get_to(end.state);
    told.at("cost").get_to(end.cost);
    told.at("frames").get_to(end.frames);
    told.at("octets").get_to(end.octets);
    told.at("bpdus").get_to(end.bpdus);
    told.at("lost").get_to(end.lost);
    told.at("quality").get_to(end.quality);
    if (told.contains("claim"))
        end.claim = told["claim"].get<claim_t>();
    return end;
}

} // namespace

const node_view_t *lab_view_t::node(const std::string &wanted) const
{
    for (const node_view_t &known : nodes)
        if (known.name == wanted)
            return &known;
    return nullptr;
}

const end_view_t *lab_view_t::end(const std::string &wanted) const
{
    for (const cable_view_t &cable : cables)
        for (const end_view_t &known : cable.ends)
            if (known.name == wanted)
                return &known;
    return nullptr;
}

json to_json(const lab_view_t &view)
{
    json cables = json::array();
    for (const cable_view_t &cable : view.cables)
        cables.push_back({{"name", cable.name},
                          {"plugged", cable.plugged},
                          {"carries", cable.carries},
                          {"ends", {json_of(cable.ends[0]), json_of(cable.ends[1])}}});
    return {{"lab", view.lab},         {"network", view.network}, {"ms", view.ms},
            {"at_rest", view.at_rest}, {"nodes", view.nodes},     {"cables", std::move(cables)}};
}

lab_view_t view_of(const json &told)
{
    lab_view_t view;
    told.at("lab").get_to(view.lab);
    told.at("network").get_to(view.network);
    told.at("ms").get_to(view.ms);
    told.at("at_rest").get_to(view.at_rest);
    told.at("nodes").get_to(view.nodes);
    for (const json &cable : told.at("cables"))
        view.cables.push_back({cable.at("name"),
                               cable.at("plugged"),
                               cable.at("carries"),
                               {end_of(cable.at("ends").at(0)), end_of(cable.at("ends").at(1))}});
    return view;
}

json to_json(const event_t &event)
{
    json told = {{"number", event.number}, {"ms", event.ms},     {"unix_ms", event.unix_ms},
                 {"what", event.what},     {"text", event.text}, {"value", event.value}};
    if (!event.node.empty())
        told["node"] = event.node;
    if (event.port)
        told["port"] = event.port;
    if (!event.cable.empty())
        told["cable"] = event.cable;
    return told;
}

event_t event_of(const json &told)
{
    event_t event;
    told.at("number").get_to(event.number);
    told.at("ms").get_to(event.ms);
    told.at("unix_ms").get_to(event.unix_ms);
    told.at("what").get_to(event.what);
    told.at("text").get_to(event.text);
    told.at("value").get_to(event.value);
    event.node = told.value("node", "");
    event.port = told.value("port", 0u);
    event.cable = told.value("cable", "");
    return event;
}

} // namespace lvt_lab
