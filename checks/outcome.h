#pragma once

#include "checks/mhlhistory.h"
#include "checks/verification.h"

#include <QDateTime>

#include <optional>

// What comes of a verification, the same for each program that runs one.

/// What the preparation of a card writes, as VerifyRequest takes it.
[[nodiscard]] QMap<QString, QList<QByteArray>> preparationFiles();

/// The worst of the verdicts: a finding on one card outweighs that another could not be checked, and a card
/// with nothing on it is not called safe. NotChecked if there is none.
[[nodiscard]] CardVerdict::State worstOf(const std::vector<CardVerdict> &verdicts);

/// A problem in a line.
[[nodiscard]] QString lineOf(const TreeProblem &problem);
/// The verdict and, indented, all that is to be told of the card; `destination` as the operator wrote it.
[[nodiscard]] QStringList linesOf(const CardVerdict &verdict, const QString &destination);

/// Seals the copies below `destination` that match; `begun` is when the verification began. What matches but
/// is not as it was sealed before becomes a finding of its card. None if the destination was removed: nothing
/// is written into the bare mount point of a disk that was pulled.
[[nodiscard]] std::optional<SealResult> sealVerified(const Verification &verification,
                                                     std::vector<CardVerdict> *verdicts,
                                                     const QString &destination, const QDateTime &begun,
                                                     const StopFlag &stop);
/// What was sealed and what was not, but for the problem.
[[nodiscard]] QStringList linesOf(const SealResult &result);
