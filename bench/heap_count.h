/// What bench_heap_count counts, in the file that the environment variable LVT_HEAP_COUNT names; who
/// measures maps it, too.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr char HEAP_COUNT_FILE[] = "LVT_HEAP_COUNT";

enum heap_owner_t { HEAP_DAEMON, HEAP_BOARD, HEAP_C_LIBRARY, HEAP_OWNERS };

struct heap_use_t {
    uint64_t blocks; ///< allocated since the program's start
    uint64_t held;   ///< octets held now
    uint64_t most;   ///< octets held at once at most
};

struct heap_counts_t {
    static constexpr size_t LARGER = 256;

    heap_use_t of[HEAP_OWNERS];
    uint64_t daemons_blocks[LARGER + 1]; ///< by their size; entry LARGER is for this and more
};
