#include "cards/cardpreparation.h"
#include "checks/filename.h"
#include "checks/mhlhistory.h"
#include "checks/verification.h"
#include "cli/cards.h"
#include "cli/commands.h"
#include "cli/output.h"
#include "cli/progress.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace fs = std::filesystem;

namespace {

constexpr int cardCount = 3;

QMap<QString, QList<QByteArray>> preparationFiles()
{
    QMap<QString, QList<QByteArray>> files;
    // A card may have been prepared in another slot.
    for (int card = 1; card <= cardCount; ++card) {
        const QMap<QString, QByteArray> ofCard = CardPreparation::files(card);
        for (auto file = ofCard.cbegin(); file != ofCard.cend(); ++file) {
            if (!files[file.key()].contains(file.value()))
                files[file.key()].append(file.value());
        }
    }
    return files;
}

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

QString lineOf(const TreeProblem &problem)
{
    return problem.path.empty() ? problem.reason
                                : shown(fs::u8path(problem.path)) + QStringLiteral(": ") + problem.reason;
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

void tell(const CardVerdict &verdict, const QString &destination, const Output &output)
{
    output.line(verdict.text(destination));
    for (const std::vector<TreeProblem> *problems : {&verdict.findings, &verdict.notChecked}) {
        for (const TreeProblem &problem : *problems)
            output.line(QStringLiteral("  ") + lineOf(problem));
    }
    for (const std::string &path : verdict.preparation)
        output.line(
            QStringLiteral("  %1: written by the preparation, needs no copy").arg(shown(fs::u8path(path))));
    for (const std::string &path : verdict.others)
        output.line(QStringLiteral("  %1: a link or the like, holds no content of its own")
                        .arg(shown(fs::u8path(path))));
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

/// A finding on one card outweighs that another could not be checked.
Exit exitFor(const std::vector<CardVerdict> &verdicts)
{
    Exit exit = Exit::Good;
    for (const CardVerdict &verdict : verdicts) {
        if (verdict.state == CardVerdict::State::Finding)
            return Exit::Finding;
        if (verdict.state != CardVerdict::State::Safe)
            exit = Exit::NotChecked;
    }
    return exit;
}

/// Seals the copies that match. Tells what came of it; `exit` becomes worse if need be.
void seal(const std::vector<CardVerdict> &verdicts, const QString &destination, const QDateTime &begun,
          const Call &call, Exit *exit)
{
    QVector<MhlRecord> files;
    QStringList leftOut;
    for (const CardVerdict &verdict : verdicts) {
        for (const VerifiedFile &file : verdict.verified) {
            const QString path = shown(fs::u8path(file.copy));
            const auto look = lookOf(pathOf(destination) / fs::u8path(file.copy));
            // What is shown of some names is not the name: bytes that are no UTF-8, control characters.
            if (path.toStdString() != file.copy || !look || !look->isStill(file.copyLook)) {
                leftOut.append(path);
                continue;
            }
            files.append({path,
                          file.size,
                          QFileInfo(QDir(destination).filePath(path)).lastModified(),
                          file.hash,
                          MhlAction::Original,
                          {}});
        }
    }
    SealResult result = sealFiles(destination, files, begun, call.stop);
    result.leftOut += leftOut;
    result.leftOut.removeDuplicates();
    for (const QString &path : result.altered)
        call.output.line(QStringLiteral("Altered since it was sealed: ") + path);
    for (const QString &path : result.leftOut)
        call.output.line(QStringLiteral("Not sealed: ") + path);
    call.output.set(QStringLiteral("sealed"), result.added);
    call.output.set(QStringLiteral("sealIgnored"), result.ignored);
    call.output.set(QStringLiteral("sealAltered"), QJsonArray::fromStringList(result.altered));
    call.output.set(QStringLiteral("notSealed"), QJsonArray::fromStringList(result.leftOut));
    if (!result.altered.isEmpty())
        *exit = Exit::Finding;
    if (result.problem.isEmpty() && result.leftOut.isEmpty()) {
        const QString ignored =
            result.ignored > 0 ? QStringLiteral(", %1 left out by pattern").arg(result.ignored) : QString();
        call.output.line(
            QStringLiteral("Sealed: %1 new, %2 before%3.").arg(result.added).arg(result.known).arg(ignored));
        return;
    }
    if (!result.problem.isEmpty())
        call.output.complain(QStringLiteral("nothing was sealed: ") + result.problem);
    if (*exit == Exit::Good)
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

fs::path pathOf(const QString &path)
{
    return fs::u8path(path.toStdString());
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
    QJsonArray list;
    for (const CardVerdict &verdict : verdicts) {
        tell(verdict, destination, call.output);
        list.append(objectOf(verdict, destination));
    }
    Exit exit = exitFor(verdicts);
    // Copies may lie there.
    for (const TreeProblem &problem : verification.unreadableCopies())
        call.output.line(QStringLiteral("%1: %2").arg(destination, lineOf(problem)));
    call.output.set(QStringLiteral("destination"), destination);
    call.output.set(QStringLiteral("cards"), list);
    call.output.set(QStringLiteral("unreadable"), listOf(verification.unreadableCopies()));
    // The import has no such option.
    if (!call.options.optionNames().contains(QStringLiteral("seal")))
        return exit;
    // Nothing is written into the bare mount point of a disk that was pulled.
    if (verification.isDestinationThere()) {
        seal(verdicts, destination, begun, call, &exit);
        return exit;
    }
    call.output.complain(QStringLiteral("nothing was sealed: %1 was removed.").arg(destination));
    return exit == Exit::Good ? Exit::NotChecked : exit;
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
