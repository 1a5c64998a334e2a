#include "app/settings.h"
#include "cards/cardlisting.h"
#include "cards/mediaimport.h"
#include "checks/filename.h"
#include "checks/filetree.h"
#include "checks/verification.h"
#include "cli/cards.h"
#include "cli/commands.h"
#include "cli/output.h"
#include "cli/progress.h"
#include "platform/newfile.h"
#include "platform/stopflag.h"
#include "stitching/autopano.h"
#include "stitching/templates.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <numeric>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int cardCount = 3;

/// A card that is imported.
struct Card
{
    int number = 0;
    QString path;
    QHash<QString, qint64> recordings; ///< path, size
    int others = 0;                    ///< files that the import passes over
    QString lastText;
    bool whole = false; ///< there are recordings, and all were copied
};

/// What the libraries log while this lives: the window leaves its log beside the copies.
class RunLog
{
    Q_DISABLE_COPY(RunLog)

public:
    RunLog() { usual() = qInstallMessageHandler(add); }
    ~RunLog() { qInstallMessageHandler(usual()); }

    static QByteArray text()
    {
        const std::lock_guard<std::mutex> lock(mutex());
        return lines();
    }

private:
    static std::mutex &mutex()
    {
        static std::mutex one;
        return one;
    }
    static QByteArray &lines()
    {
        static QByteArray one;
        return one;
    }
    static QtMessageHandler &usual()
    {
        static QtMessageHandler one = nullptr;
        return one;
    }
    static void add(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        const QString time = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
        const char *level = type == QtWarningMsg ? "Warning" : type == QtCriticalMsg ? "Critical" : "Info";
        {
            const std::lock_guard<std::mutex> lock(mutex());
            lines() += QStringLiteral("%1 %2: %3\n").arg(time, QLatin1String(level), message).toUtf8();
        }
        usual()(type, context, message);
    }
};

/// Two sizes as different texts, unless they are equal.
QStringList sizeTexts(qint64 first, qint64 second)
{
    constexpr int mostDigits = 6;
    QStringList texts;
    for (int digits = 0; digits <= mostDigits; ++digits) {
        texts = QStringList{QLocale::c().formattedDataSize(first, digits, QLocale::DataSizeSIFormat),
                            QLocale::c().formattedDataSize(second, digits, QLocale::DataSizeSIFormat)};
        if (texts.first() != texts.last())
            break;
    }
    return texts;
}

/// The folder `path`, or the one that it will be created in.
QString existingFolder(QString path)
{
    while (!QFileInfo::exists(path) && path != QDir::rootPath())
        path = QFileInfo(path).absolutePath();
    return path;
}

void listRecordings(Card *card, const StopFlag &stop)
{
    const CardListing listing = listCard(card->path, stop);
    for (const CardFile &file : listing.files) {
        if (MediaImport::isRecording(file.path))
            card->recordings.insert(file.path, std::max<qint64>(file.size, 0));
        else
            ++card->others;
    }
}

/// The recordings, by their paths below the card, of which the destination holds a take of the same name.
QStringList sameNames(const std::vector<Card> &cards, const QString &destination, const StopFlag &stop)
{
    std::vector<std::string> copies;
    for (TreeFile &file : listTree(pathOf(destination), stop, [](const TreeFile &one) {
                              return one.path.find("_cam") != std::string::npos;
                          }).files)
        copies.push_back(std::move(file.path));
    std::sort(copies.begin(), copies.end());

    QStringList names;
    for (const Card &card : cards) {
        for (auto file = card.recordings.cbegin(); file != card.recordings.cend(); ++file) {
            const QString name = QDir(card.path).relativeFilePath(file.key());
            const int dot = name.lastIndexOf(QLatin1Char('.'));
            const std::string stem = name.left(dot).toStdString();
            const QRegularExpression rest(
                QStringLiteral("^(_.*|-\\d+)?_cam[123]%1$").arg(QRegularExpression::escape(name.mid(dot))));
            for (auto copy = std::lower_bound(copies.cbegin(), copies.cend(), stem);
                 copy != copies.cend() && copy->compare(0, stem.size(), stem) == 0; ++copy) {
                if (rest.match(QString::fromStdString(copy->substr(stem.size()))).hasMatch()) {
                    names.append(name);
                    break;
                }
            }
        }
    }
    names.sort();
    names.removeDuplicates();
    return names;
}

ImportProjects projects()
{
    ImportProjects projects;
    projects.fallbackPicture = templatePicture;
    const auto autopano = std::make_shared<Autopano>();
    projects.writeVideoProject = [autopano](int card, const QString &templatePath, const QString &take,
                                            const QString &name) {
        return autopano->writeKava(card, templatePath, take, name, peekSettings);
    };
    projects.writePhotoProject = [autopano](int card, const QString &templatePath, const QString &take,
                                            const QString &name) {
        return autopano->writePano(card, templatePath, take, name, peekSettings);
    };
    projects.finish = [autopano](const StopFlag &stop) { return autopano->finish(stop); };
    return projects;
}

/// Whether the last report of an import says that it copied everything.
bool saysWhole(const QString &text)
{
    const QRegularExpression summary(
        QStringLiteral("^Copied (\\d+)/(\\d+) videos and (\\d+)/(\\d+) photos\\.$"));
    const QRegularExpressionMatch match = summary.match(text);
    return match.hasMatch() && match.captured(1) == match.captured(2) &&
           match.captured(3) == match.captured(4);
}

/// Imports the cards, all at the same time.
void importCards(std::vector<Card> *cards, const ImportRequest &common, const StopFlag &stop)
{
    std::atomic<qint64> done{0};
    qint64 total = 0;
    for (const Card &card : *cards)
        total = std::accumulate(card.recordings.cbegin(), card.recordings.cend(), total);
    const ProgressLine progress([&] { return done.load(); }, [total] { return total; });
    std::vector<std::thread> threads;
    for (Card &card : *cards) {
        threads.emplace_back([&card, &common, &done, &stop] {
            ImportRequest request = common;
            request.card = card.number;
            request.sourceDir = card.path;
            qint64 underWay = 0;
            const auto report = [&](const Progress &step) {
                card.lastText = step.text;
                const QString copying = QStringLiteral("Copying ");
                if (step.text.startsWith(copying))
                    done += std::exchange(underWay, card.recordings.value(step.text.mid(copying.size())));
            };
            MediaImport(request, projects(), report, stop).run();
            done += underWay;
            card.whole = !card.recordings.isEmpty() && saysWhole(card.lastText);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

/// Why the import can't begin; empty if it can.
QString refusalOf(const QStringList &cards, const QString &destination, const QString &templatePath)
{
    if (destination.isEmpty())
        return QStringLiteral("import needs --to DEST.");
    if (!templatePath.isEmpty() && !QFileInfo(templatePath).isFile())
        return QStringLiteral("%1 is no file.").arg(templatePath);
    QString refusal = refusalOfCards(cards);
    if (!refusal.isEmpty())
        return refusal;
    VerifyRequest request;
    for (const QString &card : cards)
        request.cards.push_back(card == noCard() ? std::filesystem::path() : pathOf(card));
    request.destination = pathOf(destination);
    return Verification::refusalOf(request);
}

QString absolute(const QString &path)
{
    return path.isEmpty() ? QString() : QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

} // namespace

Exit import(const Call &call)
{
    const QString destination = absolute(call.options.value(QStringLiteral("to")));
    const QString templatePath = absolute(call.options.value(QStringLiteral("template")));
    QStringList paths;
    for (const QString &argument : call.arguments)
        paths.append(argument == noCard() ? argument : absolute(argument));
    const QString refusal = refusalOf(paths, destination, templatePath);
    if (!refusal.isEmpty()) {
        call.output.complain(refusal);
        return Exit::Usage;
    }

    std::vector<Card> cards;
    qint64 needed = 0;
    for (int i = 0; i < paths.size(); ++i) {
        if (paths.at(i) == noCard())
            continue;
        Card card;
        card.number = i + 1;
        card.path = paths.at(i);
        listRecordings(&card, call.stop);
        needed = std::accumulate(card.recordings.cbegin(), card.recordings.cend(), needed);
        cards.push_back(std::move(card));
    }
    std::error_code unknown;
    const std::filesystem::space_info space =
        std::filesystem::space(pathOf(existingFolder(destination)), unknown);
    const qint64 available = unknown ? -1 : static_cast<qint64>(space.available);
    call.output.set(QStringLiteral("destination"), destination);
    call.output.set(QStringLiteral("bytesNeeded"), needed);
    call.output.set(QStringLiteral("bytesFree"), available);
    if (!unknown && needed > available) {
        const QStringList sizes = sizeTexts(needed, available);
        call.output.complain(
            QStringLiteral("%1 needs %2, %3 free.").arg(destination, sizes.first(), sizes.last()));
        return Exit::NotChecked;
    }
    const QStringList mixed = sameNames(cards, destination, call.stop);
    if (!mixed.isEmpty())
        call.output.warn(
            QStringLiteral("%1 already holds takes of the same names, %2 of them, such as %3. Takes of two "
                           "dives in one folder are easily mixed up.")
                .arg(destination, QString::number(mixed.size()), mixed.first()));
    call.output.set(QStringLiteral("sameNames"), QJsonArray::fromStringList(mixed));

    {
        const RunLog log;
        importCards(&cards, {0, {}, destination, templatePath, call.options.value(QStringLiteral("project"))},
                    call.stop);
        if (call.stop.isRaised())
            return Exit::Stopped;
        if (cards.size() == cardCount) {
            qInfo("Done.");
            static_cast<void>(
                writeNewFile(QDir(destination).filePath(QStringLiteral("Kelpora360.log")), RunLog::text()));
        }
    }
    Exit exit = Exit::Good;
    QJsonArray imported;
    for (const Card &card : cards) {
        call.output.line(QStringLiteral("Card %1: %2").arg(QString::number(card.number), card.lastText));
        if (card.others > 0)
            call.output.line(QStringLiteral("Card %1: %2 other files were not copied.")
                                 .arg(QString::number(card.number), QString::number(card.others)));
        // What was to be copied may lie on a card that is not mounted.
        if (card.recordings.isEmpty())
            call.output.line(QStringLiteral("Card %1: there are no recordings on it.").arg(card.number));
        if (card.recordings.isEmpty() && saysWhole(card.lastText))
            exit = exit == Exit::Good ? Exit::NotChecked : exit;
        else if (!card.whole)
            exit = Exit::Finding;
        imported.append(QJsonObject{{QStringLiteral("card"), card.number},
                                    {QStringLiteral("path"), card.path},
                                    {QStringLiteral("text"), card.lastText},
                                    {QStringLiteral("whole"), card.whole},
                                    {QStringLiteral("others"), card.others}});
    }
    call.output.line(QStringLiteral("The copies are in %1.").arg(destination));
    call.output.set(QStringLiteral("imported"), imported);
    if (!call.options.isSet(QStringLiteral("verify")))
        return exit;
    const Exit verified = verifyCards(call, paths, destination);
    return exit == Exit::Good || verified == Exit::Finding || verified == Exit::Stopped ? verified : exit;
}
