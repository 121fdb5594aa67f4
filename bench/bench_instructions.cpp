/// Calls one case some number of times, for valgrind to count the instructions of `measured`:
///
///     valgrind --tool=callgrind --toggle-collect=measured bench_instructions bpdu_repeated 1000
///
/// Without arguments it lists the cases: name, a tab, and what it is.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cases.h"

extern "C" void measured(const bench_case_t *c) { c->call(); }

int main(int argc, char **argv)
{
    void (*volatile call)(const bench_case_t *) = measured; // so that it stays a function of that name
    for (const bench_case_t &c : bench_cases()) {
        if (argc < 3) {
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
    return argc < 3 ? 0 : 2;
}
