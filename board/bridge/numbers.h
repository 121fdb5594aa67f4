/// Which interface is which port.
#pragma once

#include <map>
#include <string>
#include <vector>

/// Names by their letters and numbers: lan2 comes before lan10.
bool before_by_nature(const std::string &a, const std::string &b);

/// The names of front ports 1 to 6, of those that have one.
using numbers_t = std::map<unsigned, std::string>;

/// What decides about the numbers of ports.
struct numbering_t {
    std::vector<std::string> listed; ///< ports 1, 2 ... as somebody said; empty: nobody did, and all get numbers
    numbers_t remembered = {};       ///< of an earlier time; counts only where nothing is listed
};

/// The number that an interface gets beside those that have one; 0: none, since it is not listed or all are taken.
unsigned number_for(const numbering_t &numbering, const numbers_t &taken, const std::string &name);

/// The numbers of interfaces that come at the same time; some may get none.
numbers_t numbers_for(const numbering_t &numbering, std::vector<std::string> names);

/// Numbers as text, one "1 lan1" a line, and back. Lines that are none are passed over.
std::string numbers_text(const numbers_t &numbers);
numbers_t parse_numbers(const std::string &text);
