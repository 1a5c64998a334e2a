#include "app/instance.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>

namespace {

constexpr int answerMs = 2000;
constexpr int pollMs = 100;
constexpr const char *shown = "shown\n";

} // namespace

Instance::Instance(const QString &folder)
    : lockPath_(QDir(folder).filePath(QStringLiteral("Kelpora360.lock")))
    , lock_(lockPath_)
    , serverName_(QStringLiteral("kelpora360-") +
                  QString::fromLatin1(
                      QCryptographicHash::hash(QFile::encodeName(folder), QCryptographicHash::Sha1).toHex()))
{
    // Only a process that has ended loses it.
    lock_.setStaleLockTime(0);
}

Instance::Start Instance::begin(int patienceMs)
{
    // Where no lock can be made, two programs are better than none.
    if (lock_.tryLock(0) || lock_.error() != QLockFile::LockFailedError)
        return Start::First;
    int count = 1;
    char name[] = "kelpora360";
    char *arguments[] = {name, nullptr};
    const QCoreApplication application(count, arguments);
    QElapsedTimer time;
    time.start();
    do {
        if (showOther())
            return Start::Shown;
        if (lock_.tryLock(pollMs))
            return Start::First;
    } while (time.elapsed() < patienceMs);
    return Start::Stuck;
}

bool Instance::showOther() const
{
    QLocalSocket other;
    other.connectToServer(serverName_);
    return other.waitForConnected(answerMs) && other.waitForReadyRead(answerMs) && other.readAll() == shown;
}

void Instance::answer(const std::function<void()> &show)
{
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    // What a program that was killed left behind; this one has the lock.
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
