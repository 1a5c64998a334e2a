#include "checks/mhlhistory.h"

#include "checks/c4.h"
#include "platform/filesync.h"
#include "platform/newfile.h"
#include "platform/stopflag.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>

#include <algorithm>

namespace {

const QString folderName = QStringLiteral("ascmhl");
const QString chainName = QStringLiteral("ascmhl_chain.xml");

/// Several hundred thousand files.
constexpr qint64 largestManifest = qint64{256} << 20;

/// What changes without a fault, and what is no part of the recordings.
QStringList ownPatterns()
{
    return {QStringLiteral(".DS_Store"),
            QStringLiteral("ascmhl/"),
            QStringLiteral("*.kava"),
            QStringLiteral("*.pano"),
            QStringLiteral("*.MOV.jpg"),
            QStringLiteral("Kelpora360.log"),
            QStringLiteral(".kelpora360-*.part")};
}

/// The content of a file; false with the reason if it can't be read.
bool read(const QString &path, QByteArray *content, QString *reason)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *reason = file.exists() ? file.errorString() : QStringLiteral("it is missing");
        return false;
    }
    if (file.size() > largestManifest) {
        *reason = QStringLiteral("it is too large");
        return false;
    }
    *content = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        *reason = file.errorString();
        return false;
    }
    return true;
}

QString manifestName(int number, const QString &root, const QDateTime &begun)
{
    const QString folder = QDir(root).dirName();
    return QStringLiteral("%1_").arg(number, 4, 10, QLatin1Char('0')) +
           (fitsManifest(folder) ? folder : QStringLiteral("root")) +
           begun.toUTC().toString(QStringLiteral("_yyyy-MM-dd_HHmmss'Z.mhl'"));
}

} // namespace

MhlHistory::MhlHistory(const QString &root)
    : root_(QDir(root).absolutePath())
    , folder_(root_ + QLatin1Char('/') + folderName)
    , patterns_(ownPatterns())
    , ignore_({})
{
    readGenerations();
    patterns_.removeDuplicates();
    ignore_ = MhlIgnore(patterns_);
}

void MhlHistory::readGenerations()
{
    const auto problem = [this](const QString &name, const QString &reason) {
        problems_.append(folderName + QLatin1Char('/') + name + QStringLiteral(": ") + reason);
    };
    QSet<QString> unknown;
    for (const QString &name : QDir(folder_).entryList({QStringLiteral("*.mhl")}, QDir::Files))
        unknown.insert(name);
    // A seal that is interrupted leaves its manifest, which gets its name before the chain names it. Without
    // a chain, a later manifest than a first one tells that there was a chain.
    exists_ = QFileInfo::exists(folder_ + QLatin1Char('/') + chainName) ||
              std::any_of(unknown.cbegin(), unknown.cend(),
                          [](const QString &name) { return !name.startsWith(QLatin1String("0001_")); });
    const auto listUnfinished = [&] {
        for (const QString &name : qAsConst(unknown))
            unfinished_.append(folderName + QLatin1Char('/') + name);
        unfinished_.sort();
    };
    if (!exists_) {
        listUnfinished();
        return;
    }

    QString reason;
    if (!read(folder_ + QLatin1Char('/') + chainName, &chainContent_, &reason)) {
        problem(chainName, reason);
    } else {
        const MhlChain chain = readChain(chainContent_);
        chain_ = chain.generations;
        if (!chain.problem.isEmpty()) {
            problem(chainName, chain.problem);
            chain_.clear();
        }
    }
    for (const MhlGeneration &generation : qAsConst(chain_)) {
        unknown.remove(generation.name);
        QByteArray content;
        if (!read(folder_ + QLatin1Char('/') + generation.name, &content, &reason)) {
            problem(generation.name, reason);
        } else if (c4Of(content) != generation.c4) {
            problem(generation.name, QStringLiteral("it was altered: its C4 is not that of the chain"));
        } else {
            const MhlManifest manifest = readManifest(content);
            if (manifest.problem.isEmpty())
                learn(manifest);
            else
                problem(generation.name, manifest.problem);
        }
    }
    // Of a chain that can't be read, nothing is known.
    if (!chain_.isEmpty())
        listUnfinished();
}

/// Takes in a manifest that is later than those before.
void MhlHistory::learn(const MhlManifest &manifest)
{
    patterns_ += manifest.ignored;
    for (const MhlRecord &file : manifest.files) {
        if (!file.previousPath.isEmpty() && files_.contains(file.previousPath))
            files_.insert(file.path, files_.take(file.previousPath));
        Sealed &sealed = files_[file.path];
        sealed.failed = file.action == MhlAction::Failed ? file.hash : QByteArray();
        // Nothing is compared with the hash of what was altered.
        if (!sealed.hash.isEmpty() || file.action == MhlAction::Failed)
            continue;
        sealed.size = file.size;
        sealed.hash = file.hash;
    }
}

QString MhlHistory::append(const QVector<MhlRecord> &records, const QString &process, const QDateTime &begun,
                           const StopFlag &stop)
{
    if (!problems_.isEmpty())
        return QStringLiteral("the seal is damaged: ") + problems_.first();
    if (stop.isRaised())
        return QStringLiteral("stopped");
    if (!QDir().mkpath(folder_))
        return QStringLiteral("can't create ") + folder_;

    MhlManifest manifest;
    manifest.process = process;
    manifest.ignored = patterns_;
    manifest.files = records;
    const QByteArray content = toXml(manifest, begun);
    QVector<MhlGeneration> generations = chain_;
    generations.append({manifestName(chain_.size() + 1, root_, begun), c4Of(content)});
    const QByteArray chainContent = toXml(generations);

    // Both are on the disk before either gets its name.
    NewFile manifestFile(folder_);
    const QString manifestPath = folder_ + QLatin1Char('/') + generations.last().name;
    if (!manifestFile.write(content) || !syncContent(manifestFile.file()))
        return QStringLiteral("can't write ") + manifestPath + QStringLiteral(": ") + qt_error_string();
    QSaveFile chainFile(folder_ + QLatin1Char('/') + chainName);
    if (!chainFile.open(QIODevice::WriteOnly) || chainFile.write(chainContent) != chainContent.size() ||
        !chainFile.flush() || !syncToDisk(chainFile))
        return QStringLiteral("can't write ") + chainFile.fileName() + QStringLiteral(": ") +
               chainFile.errorString();

    QByteArray current;
    QString reason;
    if (exists_ && (!read(chainFile.fileName(), &current, &reason) || current != chainContent_))
        return QStringLiteral("another program changed the seal");
    if (stop.isRaised())
        return QStringLiteral("stopped");
    switch (manifestFile.publish(manifestPath)) {
    case Publish::Done:
        break;
    case Publish::Exists:
        return manifestPath + QStringLiteral(" exists");
    case Publish::Failed:
    case Publish::NotOnDisk:
        return manifestPath + QStringLiteral(": ") + manifestFile.error();
    }
    if (!chainFile.commit()) {
        QFile::remove(manifestPath);
        return QStringLiteral("can't write ") + chainFile.fileName() + QStringLiteral(": ") +
               chainFile.errorString();
    }
    if (!syncFolder(folder_) || !syncFolder(root_))
        return QStringLiteral("the disk could not take the seal");
    exists_ = true;
    chain_ = generations;
    chainContent_ = chainContent;
    learn(manifest);
    return {};
}

SealResult sealFiles(const QString &root, const QVector<MhlRecord> &files, const QDateTime &begun,
                     const StopFlag &stop)
{
    SealResult result;
    MhlHistory history(root);
    QVector<MhlRecord> records;
    QSet<QString> paths;
    int added = 0;
    for (MhlRecord file : files) {
        if (paths.contains(file.path))
            continue;
        paths.insert(file.path);
        if (history.ignores(file.path)) {
            ++result.ignored;
            continue;
        }
        const auto sealed = history.files().constFind(file.path);
        const bool otherKind = sealed != history.files().constEnd() && sealed->hash.isEmpty();
        if (!fitsManifest(file.path) || otherKind) {
            result.leftOut.append(file.path);
        } else if (sealed == history.files().constEnd()) {
            file.action = MhlAction::Original;
            records.append(file);
            ++added;
        } else if (sealed->hash == file.hash) {
            ++result.known;
        } else {
            result.altered.append(file.path);
            file.action = MhlAction::Failed;
            if (sealed->failed != file.hash)
                records.append(file);
        }
    }
    if (records.isEmpty()) {
        if (!history.problems().isEmpty())
            result.problem = QStringLiteral("the seal is damaged: ") + history.problems().first();
        return result;
    }
    // The same files give the same manifest, in whichever order the cards were read.
    std::sort(records.begin(), records.end(),
              [](const MhlRecord &a, const MhlRecord &b) { return a.path < b.path; });
    result.problem = history.append(records, QStringLiteral("transfer"), begun, stop);
    if (result.problem.isEmpty())
        result.added = added;
    return result;
}
