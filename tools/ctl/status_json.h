/// The daemon's state for programs.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/capture.h"
#include "tools/ctl/changes.h"
#include "tools/ctl/expect.h"
#include "tools/ctl/history.h"
#include "tools/ctl/linux_bridge.h"
#include "tools/ctl/outlook.h"
#include "tools/ctl/plan.h"
#include "tools/ctl/show_config.h"
#include "tools/ctl/status.h"
#include "tools/decode.h"

/// Rises when something in the JSON goes or changes its meaning. What is added leaves it as it is.
constexpr int JSON_VERSION = 2;

enum class json_layout_t { compact, indented };

/// The state as one JSON document, without line end. It has always the same shape; only `ports`
/// (1 to 9) says whose entries are in its list of ports. Of a Linux bridge these name their interfaces.
std::string status_json(const reading_t &reading, const history_t &history, const std::vector<int> &ports,
                        json_layout_t layout, const linux_ports_t &interfaces = {});

/// The same values as text, one line for the bridge (unless it is not wanted) and one for each port.
std::string status_lines(const reading_t &reading, const history_t &history, bool bridge, const std::vector<int> &ports,
                         const linux_ports_t &interfaces = {});

/// Statements and how they were judged, as one JSON document in one line, without line end.
std::string verdicts_json(const std::vector<verdict_t> &verdicts);

/// Settings of the file at `path` beside what runs, as one JSON document in one line, without line end.
std::string compared_json(const std::vector<compared_section_t> &sections, const std::string &path,
                          const reading_t &reading);

/// The faults of the file at `path`, as one JSON document in one line, without line end.
std::string faults_json(const std::string &path, const std::vector<config_fault_t> &faults);

/// A message or frame, explained, as one JSON document in one line, without line end. `frame` is what it was
/// captured as; null: it was not.
std::string decoded_json(const decoded_t &decoded, const captured_t *frame);

/// What the file at `path` would change, and the messages for it, as one JSON document in one line, without line end.
std::string plan_json(const std::string &path, const outlook_told_t &outlook, const std::vector<plan_step_t> &plan);

/// One change as a JSON document in one line, without line end.
std::string change_json(const change_t &change, std::chrono::system_clock::time_point when);
