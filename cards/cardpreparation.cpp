#include "cards/cardpreparation.h"

#include "cards/drives.h"
#include "platform/removetree.h"
#include "platform/volumeflush.h"

#include <QDebug>
#include <QDir>
#include <QException>
#include <QFile>
#include <QFileInfo>

#include <exception>
#include <utility>

namespace {

const QString configFolder = QStringLiteral("MISC");
const QString configFile = QStringLiteral("cfg");
const QByteArray configText = QByteArrayLiteral("multi.auto_ena=1\nrecord.tl_enable=0\n");
const QString labelFile = QStringLiteral("AutoRun.inf");

QString indexFile(int card)
{
    return QStringLiteral("360_0%1").arg(card);
}

QByteArray labelText(int card)
{
    return QStringLiteral("[autorun]\r\nlabel=360_0%1\r\n\r\n[Content]\r\n"
                          "MusicFiles=0\r\nPictureFiles=0\r\nVideoFiles=0")
        .arg(card)
        .toUtf8();
}

bool isLink(const QString &path)
{
    return QFileInfo(path).isSymLink();
}

/// Whether the file at `path` begins with `text`: what stands behind it is left alone.
bool beginsWith(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) && file.read(text.size()) == text;
}

} // namespace

CardPreparation::CardPreparation(int card, QString root, ProgressReport report)
    : card_(card)
    , root_(std::move(root))
    , report_(std::move(report))
{
}

QMap<QString, QByteArray> CardPreparation::files(int card)
{
    return {{configFolder + QLatin1Char('/') + configFile, configText},
            {indexFile(card), {}},
            {QStringLiteral(".disable_osx_metadata"), {}},
            {QStringLiteral(".metadata_never_index"), {}},
            {labelFile, labelText(card)}};
}

void CardPreparation::run(bool erase, bool createSyncConfig)
{
    try {
        prepare(erase, createSyncConfig);
    } catch (const std::exception &error) {
        // The other cards are still to be prepared, and the window would stay locked without a last report.
        const QString reason = QString::fromLocal8Bit(error.what());
        qWarning().noquote() << QStringLiteral("Card %1: ").arg(card_) + reason;
        report_({0, 2, 2, QStringLiteral("Error: ") + reason});
    }
}

void CardPreparation::prepare(bool erase, bool createSyncConfig)
{
    if (root_.isEmpty() || isSystemRoot(root_)) {
        log("Invalid directory for card %1 (%2)");
        report_({0, 2, 2, QStringLiteral("Invalid directory")});
        return;
    }
    VolumeFlush flush;
    flush.watch(root_);
    QString status = QStringLiteral("No action");
    if (erase) {
        report_({0, 2, 1, QStringLiteral("Erasing")});
        status = QStringLiteral("Erased");
        if (!eraseCard())
            warn("Card %1: not everything could be removed from %2.");
        log("Erased card %1 (%2)");
    }
    if (createSyncConfig) {
        report_({0, 2, 2, QStringLiteral("Creating config")});
        writeSyncConfig();
        status = erase ? status + QStringLiteral(" and prepared.") : QStringLiteral("Prepared.");
        log("Created config file on card %1 (%2)");
    }
    writeMarkers();
    // The card may be pulled as soon as it says that it is ready.
    if (flush.finish({QDir(root_).filePath(labelFile)}, StopFlag()) != Flushed::All || !written_)
        warn("Card %1: not everything could be written to %2.");
    report_({0, 2, 2, status});
}

/// Opens a file for reading and writing without emptying it; writes `text` at its start. True if it opened.
/// A symbolic link is never opened: it could lead out of the card. Nor is a pipe: it holds nothing.
bool CardPreparation::writeAtStart(const QString &path, const QByteArray &text)
{
    QFile file(path);
    const QFileInfo present(path);
    const bool opened =
        !present.isSymLink() && (!present.exists() || present.isFile()) && file.open(QIODevice::ReadWrite);
    written_ = opened && file.write(text) == text.size() && file.flush() && written_;
    return opened;
}

bool CardPreparation::eraseCard() const
{
    const bool emptied = emptyFolder(root_);
    const QDir root(root_);
    const QStringList folders = {
        QStringLiteral("DCIM"),
        configFolder,
        indexFile(card_),
        QStringLiteral(".disable_osx_metadata"),
        QStringLiteral(".metadata_never_index"),
    };
    for (const QString &folder : folders)
        root.rmdir(folder);
    return emptied;
}

void CardPreparation::writeSyncConfig()
{
    const QDir root(root_);
    if (!root.exists(configFolder))
        root.mkdir(configFolder);
    const QString folder = root.filePath(configFolder);
    const QString path = QDir(folder).filePath(configFile);
    if (isLink(folder) || isLink(path)) {
        written_ = false;
        return;
    }
    // An earlier preparation left it read-only.
    if (!beginsWith(path, configText))
        writeAtStart(path, configText);
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ReadUser | QFileDevice::ReadGroup |
                                    QFileDevice::ReadOther);
}

void CardPreparation::writeMarkers()
{
    const QDir root(root_);
    if (writeAtStart(root.filePath(indexFile(card_))))
        log("Created index file on card %1 (%2)");
    try {
        if (writeAtStart(root.filePath(QStringLiteral(".disable_osx_metadata"))))
            log("Created disable_osx_metadata file on card %1 (%2)");
        if (writeAtStart(root.filePath(QStringLiteral(".metadata_never_index"))))
            log("Created metadata_never_index file on card %1 (%2)");
    } catch (const QException &error) {
        qInfo().noquote() << QStringLiteral("Exception working on card %1 (%2): ").arg(card_).arg(root_) +
                                 QString::fromLocal8Bit(error.what());
    }
    if (writeAtStart(root.filePath(labelFile), labelText(card_)))
        log("Created AutoRun file on card %1 (%2)");
}

void CardPreparation::log(const char *text) const
{
    qInfo().noquote() << QString::fromLatin1(text).arg(card_).arg(root_);
}

void CardPreparation::warn(const char *text) const
{
    qWarning().noquote() << QString::fromLatin1(text).arg(card_).arg(root_);
}
