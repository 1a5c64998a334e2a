#pragma once

#include "cli/command.h"

/// What stands for a card that isn't there.
[[nodiscard]] QString noCard();

/// Why the arguments that name cards make no sense; empty if nothing speaks against them. What an unset
/// variable of a script leaves is no card that isn't there.
[[nodiscard]] QString refusalOfCards(const QStringList &cards);

/// Verifies that the cards `cards`, of which some may be empty, are stored below `destination`, and says so.
[[nodiscard]] Exit verifyCards(const Call &call, const QStringList &cards, const QString &destination);
