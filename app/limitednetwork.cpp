#include "app/limitednetwork.h"

#include <QDebug>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <memory>

namespace {

constexpr qint64 mostBytes = 1000000;
constexpr qint64 bytesAtOnce = 65536;

class LimitedManager : public QNetworkAccessManager
{
    Q_DISABLE_COPY(LimitedManager)

public:
    LimitedManager(int limitMs, QObject *parent)
        : QNetworkAccessManager(parent)
        , limitMs_(limitMs)
    {
    }

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *data) override
    {
        QNetworkRequest plain(request);
        // A compressed answer may become a thousand times as long.
        plain.setRawHeader("Accept-Encoding", "identity");
        QNetworkReply *reply = QNetworkAccessManager::createRequest(operation, plain, data);
        // Without it, what has come and was not read grows without end.
        reply->setReadBufferSize(bytesAtOnce);
        const auto read = std::make_shared<qint64>(0);
        // Whoever asked reads all that is there, after this.
        connect(reply, &QNetworkReply::readyRead, reply, [reply, read] {
            *read += reply->bytesAvailable();
            if (*read > mostBytes)
                giveUp(reply, QStringLiteral("is longer than 1 MB"));
        });
        QTimer::singleShot(limitMs_, reply, [reply] {
            if (!reply->isFinished())
                giveUp(reply, QStringLiteral("takes too long"));
        });
        return reply;
    }

private:
    static void giveUp(QNetworkReply *reply, const QString &why)
    {
        qWarning().noquote() << QStringLiteral("The answer of %1 %2.").arg(reply->url().host(), why);
        // Not within a signal of the reply, which its reader has still to see.
        reply->disconnect(SIGNAL(readyRead()));
        QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
    }

    int limitMs_;
};

} // namespace

QNetworkAccessManager *LimitedNetwork::create(QObject *parent)
{
    return new LimitedManager(limitMs_, parent);
}
