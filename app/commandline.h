#pragma once

#include <optional>

/// Answers what the command line asks for, or refuses it, on standard output or error: the exit code then.
/// None if the program is to start. Touches nothing else. `program` is its name, `help` says how it is used
/// and what it does; the options, the same for every window, are added.
[[nodiscard]] std::optional<int> answerCommandLine(int argc, const char *const *argv, const char *program,
                                                   const char *help);
