#pragma once

#include "checks/outcome.h"

#include <QStringList>
#include <QVariantMap>
#include <QVector>

/// What a check found.
struct CheckResult
{
    QStringList names;   ///< of the three cards as the operator chose them; empty where there is none
    QString destination; ///< as the operator wrote it
    QDateTime begun;     ///< in UTC
    bool stopped = false;
    QString refusal; ///< why nothing could be checked; empty if it was
    std::vector<CardVerdict> verdicts;
    std::vector<TreeProblem> unreadable; ///< of the destination
    bool seal = false;                   ///< was asked for
    std::optional<SealResult> sealed;    ///< none if the destination was removed
};

/// What a check found, as the window shows it and as it is saved.
struct CheckReport
{
    enum class Tone {
        Safe,    ///< every card that was chosen may be erased
        Danger,  ///< one may not
        Caution, ///< nothing is proven
        None,    ///< there is no such card
    };
    struct Card
    {
        QString text; ///< the verdict in a few words
        QString name; ///< as the operator chose it
        Tone tone = Tone::Caution;
    };

    Tone tone = Tone::Caution;
    QString headline;
    QString details; ///< what was checked, and when; or why not
    QVector<Card> cards;
    QString sealText;           ///< what became of the seal in a few words; empty if none was asked for
    QVector<QStringList> lines; ///< all that is to be told: a block for each card, one for what is left

    /// The window's view of it, with "tone" as a word, and "text": of each block no more than some hundred
    /// lines.
    [[nodiscard]] QVariantMap shown() const;
    /// All of it, for a file.
    [[nodiscard]] QString text() const;
};

[[nodiscard]] CheckReport reportOf(const CheckResult &result);
