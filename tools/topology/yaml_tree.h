/// A YAML file as a tree whose every word knows its place.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace topology {

/// Counted from 1.
struct place_in_file_t {
    unsigned line, column;
};

/// The file's text is no sound YAML, or larger than this program wants.
struct yaml_fault_t : std::runtime_error {
    yaml_fault_t(place_in_file_t fault_place, const std::string &text) : std::runtime_error(text), place(fault_place) {}
    place_in_file_t place;
};

struct yaml_t {
    enum class kind_t { NOTHING, SCALAR, LIST, MAP };

    kind_t kind = kind_t::NOTHING;
    place_in_file_t place = {1, 1};
    std::string text;          ///< of a SCALAR
    bool plain = false;        ///< the scalar has no quotes
    std::vector<yaml_t> items; ///< of a LIST; of a MAP keys and values in turn

    bool is_list() const { return kind == kind_t::LIST; }
    bool is_map() const { return kind == kind_t::MAP; }
    bool is_scalar() const { return kind == kind_t::SCALAR; }
};

/// Reads a file of one document. An alias stands for a copy of what it means, at the place of the original.
/// Throws yaml_fault_t, also when copies of copies make much more of the file than it is.
yaml_t parse_yaml(const std::string &text);

} // namespace topology
