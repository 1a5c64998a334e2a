#include "app/limitednetwork.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <memory>

namespace {

QUrl urlOf(const QTcpServer &server)
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(server.serverPort()));
}

} // namespace

/// What ends an answer that is too long is seen through the window.
class TestLimitedNetwork : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void anAnswerThatTakesTooLong_data();
    void anAnswerThatTakesTooLong();
    void anAnswerInTime();
};

void TestLimitedNetwork::initTestCase()
{
    // A proxy of the machine has no say here.
    for (const char *name : {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY"})
        qunsetenv(name);
}

void TestLimitedNetwork::anAnswerThatTakesTooLong_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::newRow("silence") << QByteArray();
    QTest::newRow("a byte now and then") << QByteArray("HTTP/1.1 200 OK\r\n\r\n");
}

void TestLimitedNetwork::anAnswerThatTakesTooLong()
{
    QFETCH(QByteArray, header);
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    QTimer now;
    now.setInterval(20);
    connect(&server, &QTcpServer::newConnection, this, [&] {
        QTcpSocket *socket = server.nextPendingConnection();
        socket->write(header);
        if (!header.isEmpty())
            connect(&now, &QTimer::timeout, socket, [socket] { socket->write(" "); });
        now.start();
    });
    const std::unique_ptr<QNetworkAccessManager> network(LimitedNetwork(500).create(nullptr));
    const MessageLog log;
    QElapsedTimer timer;
    timer.start();
    const std::unique_ptr<QNetworkReply> reply(network->get(QNetworkRequest(urlOf(server))));
    QTRY_VERIFY(reply->isFinished());
    QVERIFY(timer.elapsed() >= 500);
    QCOMPARE(reply->error(), QNetworkReply::OperationCanceledError);
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")),
             QStringList{QStringLiteral("The answer of 127.0.0.1 takes too long.")});
}

void TestLimitedNetwork::anAnswerInTime()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    QByteArray request;
    connect(&server, &QTcpServer::newConnection, this, [&] {
        QTcpSocket *socket = server.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket, [&request, socket] {
            request += socket->readAll();
            if (request.contains("\r\n\r\n")) {
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 900000\r\n\r\n" + QByteArray(900000, 'x'));
            }
        });
    });
    const std::unique_ptr<QNetworkAccessManager> network(LimitedNetwork(500).create(nullptr));
    const MessageLog log;
    const std::unique_ptr<QNetworkReply> reply(network->get(QNetworkRequest(urlOf(server))));
    QByteArray answer;
    connect(reply.get(), &QNetworkReply::readyRead, this, [&] { answer += reply->readAll(); });
    QTRY_VERIFY(reply->isFinished());
    QTest::qWait(600);
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QVERIFY(answer == QByteArray(900000, 'x'));
    QVERIFY(request.contains("\r\nAccept-Encoding: identity\r\n"));
    QCOMPARE(MessageLog::lines(), QStringList());
}

KELPORA_TEST_MAIN(TestLimitedNetwork)
#include "tst_limitednetwork.moc"
