#include "board/lvt_lab/view.h"

#include <concepts>

#include <nlohmann/json.hpp>

namespace lvt_lab {

using nlohmann::json;

namespace {

// Each record's fields are listed once, for who writes them and who reads them.

struct writer_t {
    json &told;

    template <typename value_t>
    void must(const char *name, const value_t &value)
    {
        told[name] = value;
    }

    /// What is left out while it has no value.
    template <typename value_t>
    void may(const char *name, const value_t &value)
    {
        if (value != value_t())
            told[name] = value;
    }

    template <typename value_t>
    void may(const char *name, const std::optional<value_t> &value)
    {
        if (value)
            told[name] = *value;
    }
};

struct reader_t {
    const json &told;

    template <typename value_t>
    void must(const char *name, value_t &value)
    {
        told.at(name).get_to(value);
    }

    template <typename value_t>
    void may(const char *name, value_t &value)
    {
        if (const auto found = told.find(name); found != told.end())
            found->get_to(value);
    }

    template <typename value_t>
    void may(const char *name, std::optional<value_t> &value)
    {
        if (const auto found = told.find(name); found != told.end())
            value = found->get<value_t>();
    }
};

template <typename one_t, typename other_t>
concept a = std::same_as<std::remove_const_t<one_t>, other_t>;

void list(auto fields, a<claim_t> auto &claim)
{
    fields.must("type", claim.type);
    fields.must("root", claim.root);
    fields.must("cost", claim.cost);
    fields.must("bridge", claim.bridge);
    fields.must("port", claim.port);
    fields.must("flags", claim.flags);
    fields.must("at", claim.at);
}

void list(auto fields, a<end_view_t> auto &end)
{
    fields.must("name", end.name);
    fields.must("node", end.node);
    fields.must("port", end.port);
    fields.must("link", end.link);
    fields.must("role", end.role);
    fields.must("state", end.state);
    fields.must("cost", end.cost);
    fields.must("frames", end.frames);
    fields.must("octets", end.octets);
    fields.must("bpdus", end.bpdus);
    fields.must("lost", end.lost);
    fields.must("quality", end.quality);
    fields.may("claim", end.claim);
}

void list(auto fields, a<cable_view_t> auto &cable)
{
    fields.must("name", cable.name);
    fields.must("plugged", cable.plugged);
    fields.must("carries", cable.carries);
    fields.must("ends", cable.ends);
}

void list(auto fields, a<node_view_t> auto &node)
{
    fields.must("name", node.name);
    fields.must("kind", node.kind);
    fields.must("power", node.power);
    fields.must("daemon", node.daemon);
    fields.must("rapid", node.rapid);
    fields.must("is_root", node.is_root);
    fields.must("bridge", node.bridge);
    fields.must("root", node.root);
    fields.must("root_port", node.root_port);
    fields.must("mac", node.mac);
}

void list(auto fields, a<lab_view_t> auto &view)
{
    fields.must("lab", view.lab);
    fields.must("network", view.network);
    fields.must("ms", view.ms);
    fields.must("at_rest", view.at_rest);
    fields.must("nodes", view.nodes);
    fields.must("cables", view.cables);
}

void list(auto fields, a<event_t> auto &event)
{
    fields.must("number", event.number);
    fields.must("ms", event.ms);
    fields.must("unix_ms", event.unix_ms);
    fields.must("what", event.what);
    fields.must("text", event.text);
    fields.must("value", event.value);
    fields.may("node", event.node);
    fields.may("port", event.port);
    fields.may("cable", event.cable);
}

} // namespace

// What the library looks for.
template <typename record_t>
requires requires(record_t &record, writer_t writer) { list(writer, record); }
void to_json(json &told, const record_t &record) { list(writer_t{told}, record); }

template <typename record_t>
requires requires(record_t &record, reader_t reader) { list(reader, record); }
void from_json(const json &told, record_t &record) { list(reader_t{told}, record); }

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

json to_json(const lab_view_t &view) { return view; }

lab_view_t view_of(const json &told) { return told.get<lab_view_t>(); }

json to_json(const event_t &event) { return event; }

event_t event_of(const json &told) { return told.get<event_t>(); }

} // namespace lvt_lab
