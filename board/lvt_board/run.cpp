#include "lvt_board/run.h"

#include <csignal>

#include <fmt/format.h>
#include <sys/prctl.h>

#include "lvt_board/listener.h"
#include "lvt_board/turn.h"

void board_run(const run_options_t &options)
{
    if (options.die_with_parent)
        prctl(PR_SET_PDEATHSIG, SIGTERM);
    const fd_t signals = signals_open({SIGINT, SIGTERM, SIGHUP});
    refuse_second_board(options.socket);

    const board_clock_t clock;
    event_log_t log(clock);
    if (!options.log.empty())
        log.open(options.log);
    board_t board(clock, log, options.speeds);
    listener_t listener(options.socket);
    log.line("board", "ready=1 socket={}", options.socket);
    fmt::print("lvt_board: ready at {}\n", options.socket);
    std::fflush(stdout);

    bool ended = false;
    auto next_look = clock.now();
    while (!ended) {
        if (clock.now() >= next_look) {
            board.look_at_links();
            next_look = clock.now() + std::chrono::milliseconds(LINK_LOOK_MS);
        }

        waiting_t others;
        others.add(signals.number(), [&] { ended = true; });
        board_turn(board, listener, std::move(others), LINK_LOOK_MS);
    }
    log.line("board", "ready=0 | ends");
}
