#include "app/instance.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QLocalSocket>

namespace {

/// A program that doesn't answer within these hangs, and is in nobody's way.
constexpr int answerMs = 5000;
constexpr const char *shown = "shown\n";

QString serverNameFor(const QString &folder)
{
#ifdef Q_OS_UNIX
    // No address of a socket is longer.
    constexpr int longest = 100;
    QString path = QDir(folder).filePath(QStringLiteral("Kelpora360.socket"));
    if (QFile::encodeName(path).size() <= longest)
        return path;
#endif
    const QByteArray hash = QCryptographicHash::hash(QFile::encodeName(folder), QCryptographicHash::Sha1);
    return QStringLiteral("kelpora360-") + QString::fromLatin1(hash.toHex());
}

} // namespace

Instance::Instance(const QString &folder)
    : serverName_(serverNameFor(folder))
{
}

bool Instance::askOther() const
{
    if (QDir::isAbsolutePath(serverName_) && !QFile::exists(serverName_))
        return false;
    bool told = false;
    {
        int count = 1;
        char name[] = "kelpora360";
        char *arguments[] = {name, nullptr};
        const QCoreApplication application(count, arguments);
        QLocalSocket other;
        other.connectToServer(serverName_);
        told =
            other.waitForConnected(answerMs) && other.waitForReadyRead(answerMs) && other.readAll() == shown;
    }
    // The toolkit keeps what it made of the arguments, and folders are named after it.
    QCoreApplication::setApplicationName(QString());
    QCoreApplication::setApplicationVersion(QString());
    return told;
}

void Instance::answer(const std::function<void()> &show)
{
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    // Left behind by one that was killed or hangs.
    QLocalServer::removeServer(serverName_);
    if (!server_.listen(serverName_))
        qWarning().noquote() << "A second start will not find this window:" << server_.errorString();
    QObject::connect(&server_, &QLocalServer::newConnection, &server_, [this, show] {
        while (QLocalSocket *other = server_.nextPendingConnection()) {
            QObject::connect(other, &QLocalSocket::disconnected, other, &QObject::deleteLater);
            qInfo("The program was started again, showing this window");
            show();
            other->write(shown);
            other->flush();
        }
    });
}

void Instance::close()
{
    server_.close();
}
