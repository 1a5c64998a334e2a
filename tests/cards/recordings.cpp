#include "tests/cards/recordings.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cstring>

QByteArray recording(int size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray content(size + 3, Qt::Uninitialized);
    for (int i = 0; i + 3 < content.size(); i += 4) {
        const quint32 word = generator.generate();
        std::memcpy(content.data() + i, &word, sizeof word);
    }
    content.truncate(size);
    return content;
}

bool sameContent(const QString &first, const QString &second)
{
    QFile a(first);
    QFile b(second);
    if (!a.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !b.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || a.size() != b.size())
        return false;
    constexpr qint64 pieceSize = qint64{1} << 20;
    for (;;) {
        const QByteArray piece = a.read(pieceSize);
        if (piece != b.read(pieceSize))
            return false;
        if (piece.isEmpty())
            return a.atEnd() && b.atEnd();
    }
}

QStringList filesBelow(const QString &folder)
{
    QStringList files;
    const QDir top(folder);
    QDirIterator iterator(top.path(), QDir::Files | QDir::Hidden | QDir::System,
                          QDirIterator::Subdirectories);
    while (iterator.hasNext())
        files.append(top.relativeFilePath(iterator.next()));
    files.sort();
    return files;
}

QStringList unfinishedBelow(const QString &folder)
{
    return filesBelow(folder).filter(
        QRegularExpression(QStringLiteral("(^|/)\\.kelpora360-[0-9a-f]{16}\\.part$")));
}

QStringList visibleBelow(const QString &folder)
{
    return filesBelow(folder).filter(QRegularExpression(QStringLiteral("(^|/)[^./][^/]*$")));
}

void clearFolder(const QString &folder)
{
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
}
