#include "checks/outcome.h"

#include "cards/cardpreparation.h"
#include "checks/filename.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace fs = std::filesystem;

QMap<QString, QList<QByteArray>> preparationFiles()
{
    constexpr int cardCount = 3;
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

CardVerdict::State worstOf(const std::vector<CardVerdict> &verdicts)
{
    using State = CardVerdict::State;
    const auto any = [&](State state) {
        return std::any_of(verdicts.cbegin(), verdicts.cend(),
                           [state](const CardVerdict &verdict) { return verdict.state == state; });
    };
    for (const State state : {State::Finding, State::NotChecked, State::Empty}) {
        if (any(state))
            return state;
    }
    return verdicts.empty() ? State::NotChecked : State::Safe;
}

QString lineOf(const TreeProblem &problem)
{
    return problem.path.empty() ? problem.reason
                                : shown(fs::u8path(problem.path)) + QStringLiteral(": ") + problem.reason;
}

QStringList linesOf(const CardVerdict &verdict, const QString &destination)
{
    QStringList lines{verdict.text(destination)};
    for (const std::vector<TreeProblem> *problems : {&verdict.findings, &verdict.notChecked}) {
        for (const TreeProblem &problem : *problems)
            lines.append(QStringLiteral("  ") + lineOf(problem));
    }
    for (const std::string &path : verdict.preparation)
        lines.append(
            QStringLiteral("  %1: written by the preparation, needs no copy").arg(shown(fs::u8path(path))));
    for (const std::string &path : verdict.others)
        lines.append(QStringLiteral("  %1: a link or the like, holds no content of its own")
                         .arg(shown(fs::u8path(path))));
    return lines;
}

namespace {

/// Makes findings of the files whose copies are among `altered`.
void addAltered(const QStringList &altered, CardVerdict *verdict)
{
    const auto isAltered = [&](const VerifiedFile &file) {
        return altered.contains(shown(fs::u8path(file.copy)));
    };
    for (const VerifiedFile &file : verdict->verified) {
        if (isAltered(file))
            verdict->findings.push_back(
                {file.path,
                 QStringLiteral("its copy %1 is not as it was sealed").arg(shown(fs::u8path(file.copy)))});
    }
    verdict->verified.erase(std::remove_if(verdict->verified.begin(), verdict->verified.end(), isAltered),
                            verdict->verified.end());
    if (!verdict->findings.empty())
        verdict->state = CardVerdict::State::Finding;
}

} // namespace

std::optional<SealResult> sealVerified(const Verification &verification, std::vector<CardVerdict> *verdicts,
                                       const QString &destination, const QDateTime &begun,
                                       const StopFlag &stop)
{
    if (!verification.isDestinationThere())
        return std::nullopt;
    const fs::path root = pathOf(destination);
    QVector<MhlRecord> files;
    QStringList leftOut;
    for (const CardVerdict &verdict : *verdicts) {
        for (const VerifiedFile &file : verdict.verified) {
            const QString path = shown(fs::u8path(file.copy));
            const auto look = lookOf(root / fs::u8path(file.copy));
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
    SealResult result = sealFiles(destination, files, begun, stop);
    if (result.problem.isEmpty() && !files.isEmpty() && result.ignored == files.size())
        result.problem = QStringLiteral("the patterns of the seal leave out every file");
    for (CardVerdict &verdict : *verdicts)
        addAltered(result.altered, &verdict);
    result.leftOut += leftOut;
    result.leftOut.removeDuplicates();
    return result;
}

QStringList linesOf(const SealResult &result)
{
    QStringList lines;
    for (const QString &path : result.altered)
        lines.append(QStringLiteral("Altered since it was sealed: ") + path);
    for (const QString &path : result.leftOut)
        lines.append(QStringLiteral("Not sealed: ") + path);
    if (result.problem.isEmpty() && result.leftOut.isEmpty()) {
        const QString ignored =
            result.ignored > 0 ? QStringLiteral(", %1 left out by pattern").arg(result.ignored) : QString();
        lines.append(
            QStringLiteral("Sealed: %1 new, %2 before%3.").arg(result.added).arg(result.known).arg(ignored));
    }
    return lines;
}
