/// What the program does, verb by verb; the command line is described in lvt_lab.cpp. All throw as client.h tells.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/topology/network.h"

namespace lvt_lab {

struct up_args_t {
    std::vector<std::string> words; ///< a file, or the name of a shape and its size
    unsigned hosts = 2;             ///< of a shape
    bool rapid = false;
    bool story = false;
};

/// How long a lab may take to come to rest: its default timers run out, and some rest.
constexpr std::chrono::seconds REST_PATIENCE{90};

/// The name of a lab that is started with these words.
std::string name_for(const std::vector<std::string> &words);

/// Returns the exit status.
int up(const std::string &lab, const up_args_t &args);

void down(const std::string &lab);
void list_labs(bool json);
void show(const std::string &lab, bool json);
void tree(const std::string &lab, bool watch);

/// Does what words of a story say; `tells`: also what follows from it, until the lab is at rest.
void act(const std::string &lab, const std::vector<std::string> &words, bool tells);

/// What followed from the latest command, as far as it has happened.
void outage(const std::string &lab, bool json);

/// Returns whether it was answered in time.
bool ping(const std::string &lab, const std::string &from, const std::string &to, topology::span_t within);

void monitor(const std::string &lab, bool json, topology::span_t length);

/// `path` "-" is standard output.
void capture(const std::string &lab, const std::string &cables, const std::string &path, topology::span_t length);

/// Tells which end cuts a cable and why.
void why(const std::string &lab, const std::string &cable);

enum class export_t { DOT, MERMAID, SVG };
void export_tree(const std::string &lab, export_t format);

/// A time on the command line. Throws usage_t.
topology::span_t parse_time(const std::string &option, const std::string &text);

} // namespace lvt_lab
