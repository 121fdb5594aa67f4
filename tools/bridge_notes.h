/// Where lvt_bridge notes which bridges it rules, and who reads that: board/bridge/state_dir.h tells the rest.
#pragma once

constexpr char BRIDGE_NOTES_FOLDER[] = "/run/lvt_bridge";
constexpr char BRIDGE_LOCK[] = ".lock";   ///< behind the bridge's name: a file that is locked while it is ruled
constexpr char BRIDGE_REPORT[] = ".json"; ///< and its report
