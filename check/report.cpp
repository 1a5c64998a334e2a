#include "check/report.h"

#include <QVariantList>

#include <algorithm>

namespace {

using State = CardVerdict::State;
using Tone = CheckReport::Tone;

/// Lines of each block that the window shows: nobody scrolls through a hundred thousand.
constexpr int shownLines = 300;

QString wordFor(Tone tone)
{
    switch (tone) {
    case Tone::Safe:
        return QStringLiteral("safe");
    case Tone::Danger:
        return QStringLiteral("danger");
    case Tone::None:
        return QStringLiteral("none");
    case Tone::Caution:
        break;
    }
    return QStringLiteral("caution");
}

Tone toneOf(State state)
{
    switch (state) {
    case State::Safe:
        return Tone::Safe;
    case State::Finding:
        return Tone::Danger;
    default:
        return Tone::Caution;
    }
}

QString textOf(State state)
{
    switch (state) {
    case State::Safe:
        return QStringLiteral("Safe to erase");
    case State::Finding:
        return QStringLiteral("do NOT erase");
    case State::NotChecked:
        return QStringLiteral("not checked");
    case State::Empty:
        break;
    }
    return QStringLiteral("There is nothing on it");
}

/// "card 1" or "cards 1 and 2", of those in the state.
QString cardsIn(State state, const std::vector<CardVerdict> &verdicts)
{
    QStringList numbers;
    for (const CardVerdict &verdict : verdicts) {
        if (verdict.state == state)
            numbers.append(QString::number(verdict.card));
    }
    if (numbers.size() < 2)
        return QStringLiteral("card ") + numbers.join(QString());
    const QString last = numbers.takeLast();
    return QStringLiteral("cards ") + numbers.join(QStringLiteral(", ")) + QStringLiteral(" and ") + last;
}

QString headlineOf(State worst, const std::vector<CardVerdict> &verdicts)
{
    const QString cards = cardsIn(worst, verdicts);
    switch (worst) {
    case State::Safe:
        return QStringLiteral("Safe to erase: ") + cards;
    case State::Finding:
        return QStringLiteral("Do NOT erase ") + cards;
    case State::NotChecked:
        return QStringLiteral("Do NOT erase: not checked");
    case State::Empty:
        break;
    }
    return QStringLiteral("There is nothing on ") + cards;
}

QStringList linesOf(const std::vector<TreeProblem> &unreadable, const QString &destination)
{
    QStringList lines;
    for (const TreeProblem &problem : unreadable)
        lines.append(QStringLiteral("%1: %2").arg(destination, lineOf(problem)));
    return lines;
}

/// Adds what became of the seal.
void addSeal(const CheckResult &result, CheckReport *report)
{
    if (!result.seal)
        return;
    const QString problem =
        result.sealed ? result.sealed->problem : QStringLiteral("%1 was removed").arg(result.destination);
    QStringList lines = result.sealed ? linesOf(*result.sealed) : QStringList();
    if (!problem.isEmpty()) {
        report->sealText = QStringLiteral("Nothing was sealed: ") + problem;
        lines.append(report->sealText);
    } else if (!result.sealed->altered.isEmpty()) {
        report->sealText = QStringLiteral("Files are not as they were sealed, see below.");
    } else if (!result.sealed->leftOut.isEmpty()) {
        report->sealText = QStringLiteral("Some files could not be sealed, see below.");
    } else {
        report->sealText = lines.last();
    }
    report->lines.append(lines);
}

} // namespace

QVariantMap CheckReport::shown() const
{
    QVariantList shownCards;
    for (const Card &card : cards)
        shownCards.append(QVariantMap{{QStringLiteral("text"), card.text},
                                      {QStringLiteral("name"), card.name},
                                      {QStringLiteral("tone"), wordFor(card.tone)}});
    QStringList text;
    for (const QStringList &block : lines) {
        text += block.mid(0, shownLines);
        if (block.size() > shownLines)
            text.append(QStringLiteral("  ... and %1 more").arg(block.size() - shownLines));
    }
    return {{QStringLiteral("tone"), wordFor(tone)}, {QStringLiteral("headline"), headline},
            {QStringLiteral("details"), details},    {QStringLiteral("cards"), shownCards},
            {QStringLiteral("sealText"), sealText},  {QStringLiteral("text"), text.join(QLatin1Char('\n'))}};
}

QString CheckReport::text() const
{
    QStringList all{headline, details};
    for (const Card &card : cards)
        all.append(card.name.isEmpty() ? card.text : card.text + QStringLiteral(" - ") + card.name);
    all.append(QString());
    for (const QStringList &block : lines)
        all += block;
    return all.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

CheckReport reportOf(const CheckResult &result)
{
    CheckReport report;
    const QString when = result.begun.toLocalTime().toString(QStringLiteral("yyyy-MM-dd hh:mm"));
    if (result.stopped) {
        report.headline = QStringLiteral("Stopped. Nothing is proven.");
        report.details = QStringLiteral("Stopped a check of %1, begun %2.").arg(result.destination, when);
        return report;
    }
    if (!result.refusal.isEmpty()) {
        report.headline = QStringLiteral("Nothing was checked");
        report.details = result.refusal;
        return report;
    }
    const State worst = worstOf(result.verdicts);
    report.tone = toneOf(worst);
    report.headline = headlineOf(worst, result.verdicts);
    report.details = QStringLiteral("Copies in %1, checked %2.").arg(result.destination, when);
    for (int card = 1; card <= result.names.size(); ++card) {
        const auto verdict = std::find_if(result.verdicts.cbegin(), result.verdicts.cend(),
                                          [card](const CardVerdict &one) { return one.card == card; });
        const QString start = QStringLiteral("Card %1: ").arg(card);
        if (verdict == result.verdicts.cend()) {
            report.cards.append({start + QStringLiteral("none chosen"), {}, Tone::None});
            continue;
        }
        report.cards.append(
            {start + textOf(verdict->state), result.names.at(card - 1), toneOf(verdict->state)});
        report.lines.append(linesOf(*verdict, result.destination));
    }
    report.lines.append(linesOf(result.unreadable, result.destination));
    addSeal(result, &report);
    return report;
}
