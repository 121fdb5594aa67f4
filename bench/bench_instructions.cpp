/// Calls one case some number of times, for valgrind to count the instructions of `measured`:
///
///     valgrind --tool=callgrind --toggle-collect=measured bench_instructions bpdu_repeated 1000
///
/// Without arguments it lists the cases: name, a tab, and what it is.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cases.h"
#include "tools/about.h"

extern "C" void measured(const bench_case_t *c) { c->call(); }

int main(int argc, char **argv)
{
    if (told_about(argc, argv, "usage: bench_instructions [CASE ROUNDS]; without them it lists the cases"))
        return EXIT_SUCCESS;
    if (argc != 1 && argc != 3) {
        fputs("usage: bench_instructions [CASE ROUNDS]\n", stderr);
        return EXIT_NOT_UNDERSTOOD;
    }
    void (*volatile call)(const bench_case_t *) = measured; // so that it stays a function of that name
    for (const bench_case_t &c : bench_cases()) {
        if (argc == 1) {
            printf("%s\t%s\n", c.name, c.what);
            continue;
        }
        if (strcmp(c.name, argv[1]) != 0)
            continue;
        c.prepare();
        for (int rounds = atoi(argv[2]); rounds > 0; rounds--) {
            c.next();
            call(&c);
        }
        return 0;
    }
    return argc == 1 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
}
