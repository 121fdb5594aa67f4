/// Running programs as a shell does.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

struct run_t {
    int status;         ///< exit status; -1 when a signal ended it
    std::string output; ///< what came, in its order
};

/// Runs a command in shell syntax, and takes what it writes to where `redirections` lead, by default standard
/// output and standard error.
inline run_t run_command(const std::string &command, const std::string &redirections = "2>&1")
{
    FILE *stream = popen((command + " " + redirections).c_str(), "r");
    if (!stream)
        abort();
    run_t result{};
    char buffer[4096];
    for (size_t count; (count = fread(buffer, 1, sizeof buffer, stream)) > 0;)
        result.output.append(buffer, count);
    const int status = pclose(stream);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

/// What bash offers for the last word of a command line, with a blank between two.
///
/// program   the path of what is completed
/// function  what the file `completion` defines for it
/// line      the words behind the program, in shell syntax
inline std::string completions_of(const std::string &program, const std::string &completion,
                                  const std::string &function, const std::string &line)
{
    const std::string script = ". \"" + completion + "\"; COMP_WORDS=(\"" + program + "\" " + line +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " + function +
                               "; printf %s \"${COMPREPLY[*]}\"";
    setenv("SCRIPT", script.c_str(), 1);
    const run_t bash = run_command("bash -c \"$SCRIPT\"");
    EXPECT_EQ(bash.status, 0) << script;
    return bash.output;
}
