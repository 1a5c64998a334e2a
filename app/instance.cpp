#include "app/instance.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QThread>

#include <cstdio>

namespace {

/// A program that doesn't answer within these hangs, and is in nobody's way.
constexpr int answerMs = 5000;
/// The same for one that is starting or closing: a controller that doesn't answer takes 8 seconds, a job that
/// goes on another 3.
constexpr int patienceMs = 20000;
constexpr unsigned long pauseMs = 50;
/// Starting takes less; longer waits are told.
constexpr int silentMs = 2000;
constexpr const char *shown = "shown\n";

QString serverNameFor(const QString &folder)
{
    const QByteArray hash = QCryptographicHash::hash(QFile::encodeName(folder), QCryptographicHash::Sha1);
    const QString unique = QStringLiteral("kelpora360-") + QString::fromLatin1(hash.toHex());
#ifdef Q_OS_UNIX
    // No address of a socket is longer.
    constexpr int longest = 100;
    QString path = QDir(folder).filePath(QStringLiteral("Kelpora360.socket"));
    return QFile::encodeName(path).size() <= longest ? path : QDir::temp().filePath(unique);
#else
    return unique;
#endif
}

bool ask(const QString &serverName)
{
    QLocalSocket other;
    other.connectToServer(serverName);
    return other.waitForConnected(answerMs) && other.waitForReadyRead(answerMs) && other.readAll() == shown;
}

} // namespace

Instance::Instance(const QString &folder)
    : serverName_(serverNameFor(folder))
    , running_(QDir(folder).filePath(QStringLiteral("Kelpora360.running")))
{
}

bool Instance::askOther()
{
    bool held = running_.take() == RunLock::Answer::HeldByAnother;
    // Without the lock, or beside one that could not be waited for.
    if (!held && QDir::isAbsolutePath(serverName_) && !QFile::exists(serverName_))
        return false;
    int count = 1;
    char name[] = "kelpora360";
    char *arguments[] = {name, nullptr};
    bool told = false;
    {
        const QCoreApplication application(count, arguments);
        QElapsedTimer waited;
        waited.start();
        bool said = false;
        while (!(told = ask(serverName_)) && held && waited.elapsed() < patienceMs) {
            if (!said && waited.elapsed() > silentMs) {
                std::fputs("Kelpora 360 is still closing; it starts again once that is done.\n", stderr);
                said = true;
            }
            QThread::msleep(pauseMs);
            held = running_.take() == RunLock::Answer::HeldByAnother;
        }
        if (!told && held)
            std::fputs("Kelpora 360 runs already but doesn't answer; starting beside it.\n", stderr);
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

void Instance::beginClosing()
{
    server_.close();
}
