#include "checks/filename.h"
#include "checks/outcome.h"
#include "cli/cards.h"
#include "cli/commands.h"
#include "cli/output.h"
#include "cli/progress.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QJsonArray>

namespace fs = std::filesystem;

namespace {

QString nameOf(CardVerdict::State state)
{
    switch (state) {
    case CardVerdict::State::Safe:
        return QStringLiteral("safe");
    case CardVerdict::State::Finding:
        return QStringLiteral("finding");
    case CardVerdict::State::NotChecked:
        return QStringLiteral("not checked");
    case CardVerdict::State::Empty:
        break;
    }
    return QStringLiteral("empty");
}

QJsonArray listOf(const std::vector<TreeProblem> &problems)
{
    QJsonArray list;
    for (const TreeProblem &problem : problems)
        list.append(QJsonObject{{QStringLiteral("path"), shown(fs::u8path(problem.path))},
                                {QStringLiteral("reason"), problem.reason}});
    return list;
}

QJsonArray listOf(const std::vector<std::string> &paths)
{
    QJsonArray list;
    for (const std::string &path : paths)
        list.append(shown(fs::u8path(path)));
    return list;
}

QJsonObject objectOf(const CardVerdict &verdict, const QString &destination)
{
    return {
        {QStringLiteral("card"), verdict.card},
        {QStringLiteral("path"), shown(verdict.root)},
        {QStringLiteral("verdict"), nameOf(verdict.state)},
        {QStringLiteral("text"), verdict.text(destination)},
        {QStringLiteral("files"), verdict.files},
        {QStringLiteral("stored"), static_cast<int>(verdict.verified.size())},
        {QStringLiteral("findings"), listOf(verdict.findings)},
        {QStringLiteral("notChecked"), listOf(verdict.notChecked)},
        {QStringLiteral("preparation"), listOf(verdict.preparation)},
        {QStringLiteral("others"), listOf(verdict.others)},
    };
}

Exit exitFor(CardVerdict::State worst)
{
    switch (worst) {
    case CardVerdict::State::Safe:
        return Exit::Good;
    case CardVerdict::State::Finding:
        return Exit::Finding;
    default:
        return Exit::NotChecked;
    }
}

void print(const QStringList &lines, const Output &output)
{
    for (const QString &line : lines)
        output.line(line);
}

/// Tells what came of sealing; `exit` becomes worse if need be.
void tell(const SealResult &result, Output *output, Exit *exit)
{
    print(linesOf(result), *output);
    output->set(QStringLiteral("sealed"), result.added);
    output->set(QStringLiteral("sealIgnored"), result.ignored);
    output->set(QStringLiteral("sealAltered"), QJsonArray::fromStringList(result.altered));
    output->set(QStringLiteral("notSealed"), QJsonArray::fromStringList(result.leftOut));
    if (!result.problem.isEmpty())
        output->complain(QStringLiteral("nothing was sealed: ") + result.problem);
    if ((!result.problem.isEmpty() || !result.leftOut.isEmpty()) && *exit == Exit::Good)
        *exit = Exit::NotChecked;
}

} // namespace

QString noCard()
{
    return QStringLiteral("-");
}

QString refusalOfCards(const QStringList &cards)
{
    return cards.contains(QString()) ? QStringLiteral("\"\" is no folder.") : QString();
}

Exit verifyCards(const Call &call, const QStringList &cards, const QString &destination)
{
    QString refusal = refusalOfCards(cards);
    if (!refusal.isEmpty()) {
        call.output.complain(refusal);
        return Exit::Usage;
    }
    VerifyRequest request;
    for (const QString &card : cards)
        request.cards.push_back(card == noCard() ? fs::path() : pathOf(card));
    request.destination = pathOf(destination);
    request.preparationFiles = preparationFiles();
    Verification verification(request, call.stop);
    refusal = verification.refusal();
    if (!refusal.isEmpty()) {
        call.output.complain(refusal);
        return Exit::Usage;
    }

    const QDateTime begun = QDateTime::currentDateTimeUtc();
    std::vector<CardVerdict> verdicts;
    {
        const ProgressLine progress([&] { return verification.bytesRead(); },
                                    [&] { return verification.bytesTotal(); });
        verdicts = verification.run();
    }
    if (verdicts.empty())
        return Exit::Stopped;
    // The import has no such option.
    const bool wantsSeal = call.options.optionNames().contains(QStringLiteral("seal"));
    const auto sealed =
        wantsSeal ? sealVerified(verification, &verdicts, destination, begun, call.stop) : std::nullopt;

    QJsonArray list;
    for (const CardVerdict &verdict : verdicts) {
        print(linesOf(verdict, destination), call.output);
        list.append(objectOf(verdict, destination));
    }
    Exit exit = exitFor(worstOf(verdicts));
    // Copies may lie there.
    for (const TreeProblem &problem : verification.unreadableCopies())
        call.output.line(QStringLiteral("%1: %2").arg(destination, lineOf(problem)));
    call.output.set(QStringLiteral("destination"), destination);
    call.output.set(QStringLiteral("cards"), list);
    call.output.set(QStringLiteral("unreadable"), listOf(verification.unreadableCopies()));
    if (sealed) {
        tell(*sealed, &call.output, &exit);
    } else if (wantsSeal) {
        call.output.complain(QStringLiteral("nothing was sealed: %1 was removed.").arg(destination));
        exit = exit == Exit::Good ? Exit::NotChecked : exit;
    }
    return exit;
}

Exit verify(const Call &call)
{
    const QString destination = call.options.value(QStringLiteral("in"));
    if (destination.isEmpty()) {
        call.output.complain(QStringLiteral("verify needs --in DEST."));
        return Exit::Usage;
    }
    return verifyCards(call, call.arguments, destination);
}
