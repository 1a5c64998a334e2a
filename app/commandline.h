#pragma once

#include <optional>

/// Answers what the command line asks for, or refuses it, on standard output or error: the exit code then.
/// None if the program is to start. Touches nothing else.
[[nodiscard]] std::optional<int> answerCommandLine(int argc, const char *const *argv);
