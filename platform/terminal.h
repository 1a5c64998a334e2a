#pragma once

/// Whether somebody may read standard error on a terminal, rather than a file or another program. False where
/// the system doesn't tell.
[[nodiscard]] bool isErrorTerminal();
