#include "tests/support/messagelog.h"
#include "tests/views/view.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <utility>
#include <vector>

namespace {

const QString popup = QStringLiteral("stitchPopup");
const QString message = QStringLiteral("messagePopup");
const QStringList angles = {QStringLiteral("Yaw"), QStringLiteral("Pitch"), QStringLiteral("Roll"),
                            QStringLiteral("OffsetX"), QStringLiteral("OffsetY")};

QStringList cameraKeys()
{
    QStringList keys;
    for (int camera = 1; camera <= 3; ++camera) {
        for (const QString &angle : angles)
            keys.append(QStringLiteral("Camera%1").arg(camera) + angle);
    }
    return keys;
}

/// The name of the field for a settings key.
QString fieldOf(const QString &key)
{
    return QLatin1Char('c') + key.mid(1);
}

/// Stored settings in which no two values are the same.
QVariantMap storedSettings()
{
    QVariantMap settings = {
        {"Serialnumber", "K360-7"}, {"OverwriteAngles", "1"}, {"RadiansAngles", "0"}, {"Other", "o"}};
    const QStringList keys = cameraKeys();
    for (int i = 0; i < keys.size(); ++i)
        settings.insert(keys.at(i), QStringLiteral("%1.5").arg(i));
    return settings;
}

/// Opens the popup as the operator does.
bool openPopup(const View &view)
{
    view.click(view.rowButton(0, QStringLiteral("Camera Angles")));
    return QTest::qWaitFor([&] { return view.isOpen(popup); });
}

QVariantMap shown(const View &view)
{
    QVariantMap fields = {
        {"Serialnumber", view.property("serialnumber", "text").toString()},
        {"RadiansAngles", view.property("radiansAngles", "checked").toBool() ? "1" : "0"},
        {"OverwriteAngles", view.property("overwriteAngles", "checked").toBool() ? "1" : "0"}};
    const QStringList keys = cameraKeys();
    for (const QString &key : keys)
        fields.insert(key, view.property(fieldOf(key), "text").toString());
    return fields;
}

/// Those of `settings` that the popup shows.
QVariantMap editable(QVariantMap settings)
{
    settings.remove(QStringLiteral("Other"));
    settings.remove(QStringLiteral("CalibrationUrl"));
    return settings;
}

QByteArray http(const QByteArray &status, const QByteArray &body, const QByteArray &header = {})
{
    return "HTTP/1.1 " + status + "\r\nContent-Type: application/json\r\nConnection: close\r\n" + header +
           "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

QByteArray ok(const QByteArray &body)
{
    return http("200 OK", body);
}

/// A calibration service: one answer for every path, or for any; a connection ends after it.
class Service : public QObject
{
public:
    /// `controller` names it in its settings.
    explicit Service(ScriptedController *controller, const QByteArray &everyAnswer = {})
        : answer(everyAnswer)
    {
        connect(&server_, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = server_.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { read(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        if (!server_.listen(QHostAddress::LocalHost))
            qFatal("The test can't listen on the loopback interface");
        controller->settings.insert(QStringLiteral("CalibrationUrl"), url());
    }

    [[nodiscard]] QString url() const
    {
        return QStringLiteral("http://127.0.0.1:%1").arg(server_.serverPort());
    }

    QByteArray answer;                    ///< to every request that has none of its own
    QMap<QByteArray, QByteArray> answers; ///< by path
    int delay = 0;                        ///< milliseconds before an answer
    QMap<QByteArray, int> delays;         ///< by path
    bool holds = false;                   ///< keeps the answers until release()
    QList<QByteArray> requests;           ///< everything that came, one text for each request

    void release()
    {
        for (const auto &reply : std::exchange(held_, {}))
            reply();
    }

private:
    void read(QTcpSocket *socket)
    {
        QByteArray &request = pending_[socket];
        request += socket->readAll();
        if (!request.contains("\r\n\r\n"))
            return;
        requests.append(request);
        const QByteArray path = request.split(' ').value(1);
        pending_.remove(socket);
        const auto reply = [this, target = QPointer<QTcpSocket>(socket), path] {
            if (target == nullptr)
                return;
            target->write(answers.value(path, answer));
            target->disconnectFromHost();
        };
        if (holds)
            held_.emplace_back(reply);
        else
            QTimer::singleShot(delays.value(path, delay), socket, reply);
    }

    QTcpServer server_;
    QMap<QTcpSocket *, QByteArray> pending_;
    std::vector<std::function<void()>> held_;
};

/// Sends an answer without an end from a thread of its own, as fast as it is taken, until the connection
/// ends.
class EndlessService
{
    Q_DISABLE_COPY(EndlessService)

public:
    EndlessService(ScriptedController *controller, const QByteArray &header, const QByteArray &piece)
    {
        std::promise<quint16> port;
        thread_ = std::thread([this, header, piece, &port] { serve(header, piece, &port); });
        controller->settings.insert(QStringLiteral("CalibrationUrl"),
                                    QStringLiteral("http://127.0.0.1:%1").arg(port.get_future().get()));
    }
    ~EndlessService()
    {
        stop_ = true;
        thread_.join();
    }
    [[nodiscard]] qint64 sent() const { return sent_; }

private:
    void serve(const QByteArray &header, const QByteArray &piece, std::promise<quint16> *port)
    {
        constexpr int stepMs = 50;
        QTcpServer server;
        const bool listening = server.listen(QHostAddress::LocalHost);
        port->set_value(listening ? server.serverPort() : 0);
        while (!stop_ && !server.waitForNewConnection(stepMs)) {
        }
        QTcpSocket *socket = server.nextPendingConnection();
        if (socket == nullptr || !socket->waitForReadyRead())
            return;
        socket->write("HTTP/1.1 200 OK\r\n" + header + "\r\n");
        while (!stop_ && socket->state() == QAbstractSocket::ConnectedState) {
            if (socket->bytesToWrite() == 0)
                sent_ += socket->write(piece);
            socket->waitForBytesWritten(stepMs);
        }
        socket->abort();
    }

    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<qint64> sent_{0};
};

/// An answer with all fifteen values, made by `value`, and more fields of "data".
QByteArray calibration(const std::function<QByteArray(int)> &value, const QByteArray &more = {},
                       const QString &without = {})
{
    QByteArrayList fields;
    if (!more.isEmpty())
        fields.append(more);
    const QStringList keys = cameraKeys();
    for (int i = 0; i < keys.size(); ++i) {
        if (keys.at(i) != without)
            fields.append('"' + keys.at(i).toLatin1() + "\":" + value(i));
    }
    return R"({"success":true,"message":"Here it is.","data":{)" + fields.join(',') + "}}";
}

QByteArray number(int i)
{
    return QByteArray::number(i) + ".25";
}

QByteArray text(int i)
{
    return "\" " + QByteArray::number(i) + ",x\"";
}

QVariantMap withValues(QVariantMap settings, const std::function<QString(int)> &value)
{
    const QStringList keys = cameraKeys();
    for (int i = 0; i < keys.size(); ++i)
        settings.insert(keys.at(i), value(i));
    return settings;
}

} // namespace

class TestStitchPopup : public ViewTest
{
    Q_OBJECT

    void equip() override;
    const View &showPopup();

private slots:
    void initTestCase();
    void texts();
    void showsWhatIsStored_data();
    void showsWhatIsStored();
    void enabledFields();
    void defaults();
    void defaultsThenCancel();
    void cancelKeepsTheEdits();
    void reset();
    void save();
    void saveKeepsForeignKeys();
    void closesOnlyByItsButtons();
    void tabReachesEveryControl();
    void download_data();
    void download();
    void radians_data();
    void radians();
    void theRequest_data();
    void theRequest();
    void nothingIsSentForAnEmptySerial();
    void theServiceByDefault();
    void noServer();
    void redirects();
    void aSlowAnswerLeavesThePopupUsable();
    void anAnswerAfterTheWindowIsGone();
    void tenMegabytesOfGarbage();
    void anAnswerWithoutAnEnd_data();
    void anAnswerWithoutAnEnd();
    void deepAnswer();
    void downloadTwice();
    void anglesStayWithTheirRig_data();
    void anglesStayWithTheirRig();
};

void TestStitchPopup::equip()
{
    controller.settings = storedSettings();
}

const View &TestStitchPopup::showPopup()
{
    const View &view = show();
    if (!openPopup(view))
        qFatal("The popup isn't shown");
    return view;
}

void TestStitchPopup::initTestCase()
{
    // A proxy of the machine has no say here.
    for (const char *name : {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY"})
        qunsetenv(name);
}

void TestStitchPopup::texts()
{
    const View &view = showPopup();
    QCOMPARE(::texts(textItems(view.contentOf(popup))),
             split("Custom camera calibration settings|Your Kelpora 360 serial: |Download|Defaults|"
                   "Reset|Camera:|1|2|3|Yaw: |Pitch: |Roll: |Offset X: |Offset Y: |"
                   "Angles are in Radians|Overwrite camera angles in template|Save|Cancel"));
    QVERIFY(view.isModalInPlace(popup));
    // Each field stands in its camera's column and its angle's row.
    QList<double> columns;
    for (int camera = 1; camera <= 3; ++camera) {
        QList<double> rows;
        for (const QString &angle : angles) {
            const QQuickItem *field = view.item(QStringLiteral("camera%1").arg(camera) + angle);
            const QPointF place = field->mapToScene(QPointF(0, 0));
            QVERIFY(rows.isEmpty() || place.y() > rows.last());
            rows.append(place.y());
            if (angle == angles.first())
                columns.append(place.x());
            QCOMPARE(place.x(), columns.last());
        }
    }
    QVERIFY(columns.at(0) < columns.at(1) && columns.at(1) < columns.at(2));
}

void TestStitchPopup::showsWhatIsStored_data()
{
    QTest::addColumn<QVariant>("radians");
    QTest::addColumn<QVariant>("overwrite");
    QTest::addColumn<bool>("radiansShown");
    QTest::addColumn<bool>("overwriteShown");
    QTest::newRow("1 and 0") << QVariant("1") << QVariant("0") << true << false;
    QTest::newRow("0 and 1") << QVariant("0") << QVariant("1") << false << true;
    QTest::newRow("nothing but 1 is set") << QVariant("true") << QVariant("2") << false << false;
    QTest::newRow("empty") << QVariant("") << QVariant("") << false << false;
}

void TestStitchPopup::showsWhatIsStored()
{
    QFETCH(QVariant, radians);
    QFETCH(QVariant, overwrite);
    QFETCH(bool, radiansShown);
    QFETCH(bool, overwriteShown);
    controller.settings.insert(QStringLiteral("RadiansAngles"), radians);
    controller.settings.insert(QStringLiteral("OverwriteAngles"), overwrite);
    const View &view = showPopup();
    QVariantMap expected = editable(controller.settings);
    expected.insert(QStringLiteral("RadiansAngles"), radiansShown ? "1" : "0");
    expected.insert(QStringLiteral("OverwriteAngles"), overwriteShown ? "1" : "0");
    QCOMPARE(shown(view), expected);
    QCOMPARE(controller.updates.size(), 0);
}

void TestStitchPopup::enabledFields()
{
    const View &view = showPopup();
    const QStringList keys = cameraKeys();
    for (const bool overwrite : {true, false, true}) {
        if (view.property("overwriteAngles", "checked").toBool() != overwrite)
            view.click(QStringLiteral("overwriteAngles"));
        QCOMPARE(view.property("overwriteAngles", "checked").toBool(), overwrite);
        for (const QString &key : keys) {
            QCOMPARE(view.property(fieldOf(key), "enabled").toBool(), overwrite);
            QCOMPARE(view.property(fieldOf(key), "color").value<QColor>() == QColor("grey"), !overwrite);
        }
        QCOMPARE(view.property("radiansAngles", "enabled").toBool(), overwrite);
        QCOMPARE(view.property("overwriteAngles", "enabled").toBool(), true);
        QCOMPARE(view.property("serialnumber", "enabled").toBool(), true);
    }
}

void TestStitchPopup::defaults()
{
    const View &view = showPopup();
    view.click(QStringLiteral("defaultAnglesButton"));
    QVariantMap expected = {{"Serialnumber", "K360-7"}, {"OverwriteAngles", "1"}, {"RadiansAngles", "0"},
                            {"Camera1Yaw", "0"},        {"Camera2Yaw", "120"},    {"Camera3Yaw", "-120"}};
    for (int camera = 1; camera <= 3; ++camera) {
        const QString key = QStringLiteral("Camera%1").arg(camera);
        expected.insert(key + "Pitch", "0");
        expected.insert(key + "Roll", "-90");
        expected.insert(key + "OffsetX", "-20");
        expected.insert(key + "OffsetY", "0");
    }
    QCOMPARE(shown(view), expected);
    QCOMPARE(controller.updates.size(), 0);
    view.click(QStringLiteral("saveAnglesButton"));
    QCOMPARE(editable(controller.settings), expected);
}

void TestStitchPopup::defaultsThenCancel()
{
    const View &view = showPopup();
    view.click(QStringLiteral("defaultAnglesButton"));
    view.click(QStringLiteral("cancelAnglesButton"));
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QCOMPARE(controller.updates.size(), 0);
    QVERIFY(openPopup(view));
    QCOMPARE(shown(view), editable(storedSettings()));
}

void TestStitchPopup::cancelKeepsTheEdits()
{
    const View &view = showPopup();
    view.set("camera2Roll", "text", "edited");
    view.click(QStringLiteral("cancelAnglesButton"));
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QCOMPARE(view.property("camera2Roll", "text").toString(), QStringLiteral("edited"));
    view.call("loadStitchSettings");
    QCOMPARE(shown(view), editable(storedSettings()));
    QCOMPARE(controller.updates.size(), 0);
}

void TestStitchPopup::reset()
{
    const View &view = showPopup();
    const QStringList keys = cameraKeys();
    for (const QString &key : keys)
        view.set(fieldOf(key), "text", "edited");
    view.set("serialnumber", "text", "edited");
    view.click(QStringLiteral("radiansAngles"));
    view.click(QStringLiteral("overwriteAngles"));
    // What the file holds by now counts.
    controller.settings.insert(QStringLiteral("Camera3OffsetY"), QStringLiteral("by hand"));
    view.click(QStringLiteral("resetAnglesButton"));
    QCOMPARE(shown(view), editable(controller.settings));
    QVERIFY(view.isOpen(popup));
    QCOMPARE(controller.updates.size(), 0);
}

void TestStitchPopup::save()
{
    const View &view = showPopup();
    QVariantMap expected = controller.settings;
    const QStringList keys = cameraKeys();
    for (const QString &key : keys) {
        const QString value = QStringLiteral("new, \"%1\" \u00fc=").arg(key);
        view.set(fieldOf(key), "text", value);
        expected.insert(key, value);
    }
    view.set("serialnumber", "text", "S 2");
    expected.insert(QStringLiteral("Serialnumber"), "S 2");
    view.click(QStringLiteral("radiansAngles"));
    expected.insert(QStringLiteral("RadiansAngles"), "1");
    view.click(QStringLiteral("overwriteAngles"));
    expected.insert(QStringLiteral("OverwriteAngles"), "0");
    view.click(QStringLiteral("saveAnglesButton"));
    QCOMPARE(controller.updates, QList<QVariantMap>{expected});
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QVERIFY(openPopup(view));
    QCOMPARE(shown(view), editable(expected));
}

void TestStitchPopup::saveKeepsForeignKeys()
{
    const View &view = showPopup();
    view.click(QStringLiteral("saveAnglesButton"));
    QCOMPARE(controller.updates.size(), 1);
    QCOMPARE(controller.updates.first(), storedSettings());
    QVERIFY(!controller.updates.first().contains(QStringLiteral("CalibrationUrl")));
}

void TestStitchPopup::closesOnlyByItsButtons()
{
    const View &view = showPopup();
    QVERIFY(view.staysOpen(popup));
}

void TestStitchPopup::tabReachesEveryControl()
{
    const View &view = showPopup();
    QStringList expected = {"serialnumber", "downloadAnglesButton", "defaultAnglesButton",
                            "resetAnglesButton"};
    for (const QString &angle : angles) {
        for (int camera = 1; camera <= 3; ++camera)
            expected.append(QStringLiteral("camera%1").arg(camera) + angle);
    }
    expected += QStringList{"radiansAngles", "overwriteAngles", "saveAnglesButton", "cancelAnglesButton"};
    view.item(QStringLiteral("serialnumber"))->forceActiveFocus(Qt::TabFocusReason);
    QCOMPARE(view.tabThrough(expected.size()), expected);
    // And stays within it.
    QCOMPARE(view.window()->activeFocusItem()->objectName(), QStringLiteral("serialnumber"));
}

void TestStitchPopup::download_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("says");
    QTest::addColumn<QVariantMap>("expected");
    const QVariantMap before = storedSettings();
    const QString nothing;
    const QByteArray refused = R"({"success":false,"message":"No such rig.","data":null})";
    const QVariantMap numbers = withValues(before, [](int i) { return QStringLiteral("%1.25").arg(i); });
    const auto keep = [&](const char *key) {
        QVariantMap map = numbers;
        map.insert(key, before.value(key));
        return map;
    };
    QTest::newRow("numbers") << ok(calibration(number)) << "Here it is." << numbers;
    QTest::newRow("texts") << ok(calibration(text)) << "Here it is."
                           << withValues(before, [](int i) { return QStringLiteral(" %1,x").arg(i); });
    QTest::newRow("negative, zero and whole numbers")
        << ok(calibration([](int i) { return QByteArray::number(i - 1); })) << "Here it is."
        << withValues(before, [](int i) { return QString::number(i - 1); });
    QTest::newRow("a missing key keeps its field")
        << ok(calibration(number, {}, QStringLiteral("Camera2Roll"))) << "Here it is." << keep("Camera2Roll");
    QTest::newRow("null keeps its field")
        << ok(calibration(number, R"("Camera3OffsetY":null)", QStringLiteral("Camera3OffsetY")))
        << "Here it is." << keep("Camera3OffsetY");
    for (const char *value : {"{}", "[1,2]", "true"}) {
        QTest::newRow(qPrintable(QStringLiteral("%1 keeps its field").arg(value)))
            << ok(calibration(number, QByteArray(R"("Camera1Yaw":)") + value, QStringLiteral("Camera1Yaw")))
            << "Here it is." << keep("Camera1Yaw");
    }
    QTest::newRow("more than any calibration")
        << ok(R"({"success":false,"message":")" + QByteArray(3000000, 'm') + R"("})") << nothing
        << QVariantMap();
    QTest::newRow("an unknown key isn't taken")
        << ok(calibration(number, R"("Camera4Yaw":1)")) << "Here it is." << numbers;
    QTest::newRow("no success") << ok(refused) << "No such rig." << QVariantMap();
    QTest::newRow("no success, but data")
        << ok(calibration(number).replace("true", "false")) << "Here it is." << QVariantMap();
    QTest::newRow("no word of success") << ok(R"({"message":"Well ..."})") << "Well ..." << QVariantMap();
    QTest::newRow("success without data")
        << ok(R"({"success":true,"message":"Empty."})") << "Empty." << QVariantMap();
    QTest::newRow("a message in UTF-8 with marks")
        << ok("{\"success\":false,\"message\":\"<b>Gr\xc3\xb6\xc3\x9f"
              "e</b> %1\"}")
        << QString::fromUtf8("<b>Gr\u00f6\u00dfe</b> %1") << QVariantMap();
    QTest::newRow("a message that is null")
        << ok(R"({"success":false,"message":null})") << "" << QVariantMap();
    QTest::newRow("a long message") << ok(R"({"success":false,"message":")" + QByteArray(3000, 'm') + R"("})")
                                    << QString(3000, 'm') << QVariantMap();
    QTest::newRow("not JSON") << ok("<html>Welcome</html>") << nothing << QVariantMap();
    QTest::newRow("cut JSON") << ok(refused.left(20)) << nothing << QVariantMap();
    QTest::newRow("empty") << ok("") << nothing << QVariantMap();
    QTest::newRow("null") << ok("null") << nothing << QVariantMap();
    QTest::newRow("a number") << ok("360") << nothing << QVariantMap();
    QTest::newRow("a text") << ok("\"success\"") << nothing << QVariantMap();
    QTest::newRow("404 without JSON") << http("404 Not Found", "Not found") << nothing << QVariantMap();
    QTest::newRow("404 with a message") << http("404 Not Found", refused) << "No such rig." << QVariantMap();
    QTest::newRow("500 without JSON")
        << http("500 Internal Server Error", "<h1>Oops</h1>") << nothing << QVariantMap();
    QTest::newRow("500 and empty") << http("500 Internal Server Error", "") << nothing << QVariantMap();
    QTest::newRow("cut in the middle")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n{\"success\":true,\"mess") << nothing
        << QVariantMap();
    QTest::newRow("cut in the header") << QByteArray("HTTP/1.1 200 OK\r\nConte") << nothing << QVariantMap();
    QTest::newRow("no HTTP") << QByteArray("220 mail ready\r\n") << nothing << QVariantMap();
    QTest::newRow("closed at once") << QByteArray() << nothing << QVariantMap();
}

void TestStitchPopup::download()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, says);
    QFETCH(QVariantMap, expected);
    Service service(&controller, answer);
    const View &view = showPopup();
    // An edit that isn't saved: it stays where nothing comes for it.
    view.set("serialnumber", "text", "K 8");
    const QVariantMap before = shown(view);
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    const auto responses = [] {
        QStringList lines = MessageLog::lines(QStringLiteral("info"));
        return lines.filter(QRegularExpression(QStringLiteral("(^|qml: )Response: ")));
    };
    QTRY_COMPARE_WITH_TIMEOUT(responses().size(), 1, 20000);
    QCOMPARE(MessageLog::lines(QStringLiteral("info"))
                 .filter(QRegularExpression(QStringLiteral("(^|qml: )Downloading settings for K 8$")))
                 .size(),
             1);
    QVERIFY(!service.requests.isEmpty());
    QTest::qWait(20);

    if (expected.isEmpty()) {
        QCOMPARE(controller.updates.size(), 0);
        QCOMPARE(shown(view), before);
    } else {
        expected.insert(QStringLiteral("Serialnumber"), "K 8");
        QCOMPARE(controller.updates.size(), 1);
        QCOMPARE(editable(controller.updates.first()), editable(expected));
        QCOMPARE(shown(view), editable(expected));
    }
    QCOMPARE(view.property(message, "visible").toBool(), !says.isNull());
    if (!says.isNull()) {
        QCOMPARE(view.property("messageText", "text").toString(), says);
        QTRY_VERIFY(view.isOpen(message));
        QTest::keyClick(view.window(), Qt::Key_Escape);
        QTRY_COMPARE(view.property(message, "visible").toBool(), false);
    }
    QVERIFY(view.isOpen(popup));
    QVERIFY(view.property("downloadAnglesButton", "enabled").toBool());
}

void TestStitchPopup::radians_data()
{
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<bool>("before");
    QTest::addColumn<bool>("after");
    QTest::newRow("true") << QByteArray("true") << false << true;
    QTest::newRow("false") << QByteArray("false") << true << false;
    QTest::newRow("1") << QByteArray("1") << false << true;
    QTest::newRow("0") << QByteArray("0") << true << false;
    QTest::newRow("the text 1") << QByteArray("\"1\"") << false << true;
    QTest::newRow("the text 0") << QByteArray("\"0\"") << true << false;
    QTest::newRow("the text true") << QByteArray("\"true\"") << false << true;
    QTest::newRow("the text false") << QByteArray("\"false\"") << true << false;
    QTest::newRow("an empty text") << QByteArray("\"\"") << true << false;
    QTest::newRow("null") << QByteArray("null") << true << false;
    QTest::newRow("missing, set") << QByteArray() << true << true;
    QTest::newRow("missing, not set") << QByteArray() << false << false;
}

void TestStitchPopup::radians()
{
    QFETCH(QByteArray, field);
    QFETCH(bool, before);
    QFETCH(bool, after);
    Service service(&controller,
                    ok(calibration(number, field.isEmpty() ? field : "\"RadiansAngles\":" + field)));
    controller.settings.insert(QStringLiteral("RadiansAngles"), before ? "1" : "0");
    const View &view = showPopup();
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE(controller.updates.size(), 1);
    QCOMPARE(controller.updates.first().value(QStringLiteral("RadiansAngles")).toString(),
             after ? QStringLiteral("1") : QStringLiteral("0"));
    QCOMPARE(view.property("radiansAngles", "checked").toBool(), after);
}

void TestStitchPopup::theRequest_data()
{
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("digits") << "000123" << QByteArray("000123");
    QTest::newRow("letters and marks") << "K-3_6.0~" << QByteArray("K-3_6.0~");
    QTest::newRow("a blank") << "A 1" << QByteArray("A%201");
    QTest::newRow("marks of a URL") << "a/../b?c=d#e%20" << QByteArray("a%2F..%2Fb%3Fc%3Dd%23e%2520");
    QTest::newRow("UTF-8") << QString::fromUtf8("\u00fc") << QByteArray("%C3%BC");
}

void TestStitchPopup::theRequest()
{
    QFETCH(QString, serial);
    QFETCH(QByteArray, path);
    Service service(&controller, ok("{}"));
    const View &view = showPopup();
    view.set("serialnumber", "text", serial);
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE(service.requests.size(), 1);
    QCOMPARE(service.requests.first().left(service.requests.first().indexOf("\r\n")),
             "GET /api/v1/kelpora360/calibration/" + path + " HTTP/1.1");
    QVERIFY(service.requests.first().endsWith("\r\n\r\n"));
    QTRY_VERIFY(view.isOpen(message));
    QCOMPARE(view.property("messageText", "text").toString(), QString());
    // The map that the window holds has it, the file not yet.
    QCOMPARE(view.window()->property("settings").toMap().value(QStringLiteral("Serialnumber")).toString(),
             serial);
    QCOMPARE(controller.updates.size(), 0);
}

void TestStitchPopup::nothingIsSentForAnEmptySerial()
{
    Service service(&controller, ok(calibration(number)));
    const View &view = showPopup();
    view.set("serialnumber", "text", "");
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QTest::qWait(200);
    QCOMPARE(service.requests.size(), 0);
    QCOMPARE(MessageLog::lines(), QStringList());
    QCOMPARE(controller.updates.size(), 0);
    QCOMPARE(view.property(message, "visible").toBool(), false);
}

void TestStitchPopup::theServiceByDefault()
{
    const View &view = show();
    const QUrl url(view.property("calibration", "defaultService").toString());
    QCOMPARE(url.scheme(), QStringLiteral("https"));
    QVERIFY(url.host().endsWith(QStringLiteral(".example")));
    QCOMPARE(url.path(), QString());
}

void TestStitchPopup::noServer()
{
    {
        const Service gone(&controller);
    }
    const View &view = showPopup();
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_VERIFY(MessageLog::lines().filter(QRegularExpression(QStringLiteral("Response: $"))).size() == 1);
    QTest::qWait(20);
    QCOMPARE(view.property(message, "visible").toBool(), false);
    QCOMPARE(shown(view), editable(storedSettings()));
    QCOMPARE(controller.updates.size(), 0);
}

void TestStitchPopup::redirects()
{
    Service service(&controller);
    service.answers.insert("/api/v1/kelpora360/calibration/K360-7",
                           http("302 Found", "", "Location: /moved\r\n"));
    service.answers.insert("/moved", ok(calibration(number)));
    const View &view = showPopup();
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE(controller.updates.size(), 1);
    QCOMPARE(service.requests.size(), 2);
    QTRY_VERIFY(view.isOpen(message));

    // One that leads to itself comes to an end, too.
    QTest::keyClick(view.window(), Qt::Key_Escape);
    QTRY_COMPARE(view.property(message, "visible").toBool(), false);
    service.answers.insert("/moved", http("302 Found", "", "Location: /moved\r\n"));
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE(MessageLog::lines(QStringLiteral("info")).filter(QStringLiteral("Response: ")).size(), 2);
    QVERIFY(service.requests.size() < 100);
    QCOMPARE(controller.updates.size(), 1);
    QCOMPARE(view.property(message, "visible").toBool(), false);
}

void TestStitchPopup::aSlowAnswerLeavesThePopupUsable()
{
    Service service(&controller, ok(calibration(number)));
    service.holds = true;
    const View &view = showPopup();
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    view.click(QStringLiteral("defaultAnglesButton"));
    QCOMPARE(view.property("camera2Yaw", "text").toString(), QStringLiteral("120"));
    view.click(QStringLiteral("camera1Yaw"));
    QTest::keyClick(view.window(), Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(view.window(), '7');
    QCOMPARE(view.property("camera1Yaw", "text").toString(), QStringLiteral("7"));
    view.click(QStringLiteral("cancelAnglesButton"));
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QTRY_COMPARE(service.requests.size(), 1);
    QCOMPARE(controller.updates.size(), 0);
    // It comes, and is saved, with the popup closed.
    service.release();
    QTRY_COMPARE(controller.updates.size(), 1);
    QCOMPARE(editable(controller.settings),
             editable(withValues(storedSettings(), [](int i) { return QStringLiteral("%1.25").arg(i); })));
    QTRY_VERIFY(view.isOpen(message));
}

void TestStitchPopup::anAnswerAfterTheWindowIsGone()
{
    Service service(&controller, ok(calibration(number)));
    service.holds = true;
    const MessageLog log;
    const View &view = showPopup();
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE(service.requests.size(), 1);
    destroyWindow();
    service.release();
    QTest::qWait(100);
    QCOMPARE(controller.updates.size(), 0);
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")), QStringList());
}

void TestStitchPopup::tenMegabytesOfGarbage()
{
    QByteArray garbage(10 << 20, '{');
    for (int i = 0; i < garbage.size(); i += 7)
        garbage[i] = static_cast<char>(i % 251);
    Service service(&controller, ok(garbage));
    const View &view = showPopup();
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QElapsedTimer turn;
    qint64 longest = 0;
    QElapsedTimer timer;
    timer.start();
    turn.start();
    while (MessageLog::lines().size() < 3 && timer.elapsed() < 60000) {
        QTest::qWait(5);
        longest = qMax(longest, turn.restart());
    }
    qInfo("It took %lld ms, the longest turn %lld ms.", timer.elapsed(), longest);
    QVERIFY(timer.elapsed() < 60000);
    QVERIFY2(longest < 5000, qPrintable(QString::number(longest)));
    QCOMPARE(view.property(message, "visible").toBool(), false);
    QCOMPARE(shown(view), editable(storedSettings()));
    view.click(QStringLiteral("cancelAnglesButton"));
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
}

void TestStitchPopup::anAnswerWithoutAnEnd_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QByteArray>("piece");
    const QByteArray spaces(0x10000, ' ');
    const QByteArray chunk = "10000\r\n" + spaces + "\r\n";
    QTest::newRow("as it comes") << QByteArray() << spaces;
    QTest::newRow("in chunks") << QByteArray("Transfer-Encoding: chunked\r\n") << chunk;
    QTest::newRow("in one chunk") << QByteArray("Transfer-Encoding: chunked\r\n\r\n7fffffff") << spaces;
}

void TestStitchPopup::anAnswerWithoutAnEnd()
{
    QFETCH(QByteArray, header);
    QFETCH(QByteArray, piece);
    EndlessService service(&controller, header, piece);
    const View &view = showPopup();
    const MessageLog log;
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE_WITH_TIMEOUT(MessageLog::lines(QStringLiteral("warning")).size(), 2, 20000);
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")).constFirst(),
             QStringLiteral("The answer of 127.0.0.1 is longer than 1 MB."));
    // Most of it is in the system's buffers, and what comes in one chunk is read ahead of the limit for a
    // moment.
    QVERIFY2(service.sent() < 256 << 20, qPrintable(QString::number(service.sent())));
    QCOMPARE(shown(view), editable(storedSettings()));
}

void TestStitchPopup::deepAnswer()
{
    constexpr int levels = 100000;
    Service service(&controller, ok(QByteArray(R"({"success":true,"message":)") + QByteArray(levels, '[') +
                                    QByteArray(levels, ']') + '}'));
    const View &view = showPopup();
    const MessageLog log;
    QElapsedTimer timer;
    timer.start();
    view.click(QStringLiteral("downloadAnglesButton"));
    QTRY_COMPARE(MessageLog::lines(QStringLiteral("warning")).size(), 1);
    QVERIFY(MessageLog::lines(QStringLiteral("warning"))
                .constFirst()
                .startsWith(QStringLiteral("The calibration service's answer can't be read: ")));
    destroyWindow();
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
}

void TestStitchPopup::downloadTwice()
{
    Service service(&controller);
    service.answers.insert("/api/v1/kelpora360/calibration/1", ok(calibration(number)));
    service.answers.insert("/api/v1/kelpora360/calibration/2",
                           ok(R"({"success":false,"message":"Second."})"));
    service.delay = 100;
    const View &view = showPopup();
    const MessageLog log;
    for (const char *serial : {"1", "2"}) {
        view.set("serialnumber", "text", serial);
        view.click(QStringLiteral("downloadAnglesButton"));
    }
    QTRY_COMPARE(MessageLog::lines(QStringLiteral("info")).filter(QStringLiteral("Response: ")).size(), 2);
    QCOMPARE(service.requests.size(), 2);
    QCOMPARE(controller.updates.size(), 1);
    QTRY_VERIFY(view.isOpen(message));
}

void TestStitchPopup::anglesStayWithTheirRig_data()
{
    QTest::addColumn<QStringList>("downloads");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("saved");
    QTest::newRow("the first answer comes last") << QStringList{"1", "2"} << "2" << QStringList{"2", "1"};
    QTest::newRow("the serial is edited meanwhile") << QStringList{"1"} << "12" << QStringList{"1"};
}

void TestStitchPopup::anglesStayWithTheirRig()
{
    QFETCH(QStringList, downloads);
    QFETCH(QString, typed);
    QFETCH(QStringList, saved);
    Service service(&controller);
    const auto yaw = [](const char *value) {
        return ok(QByteArray(R"({"success":true,"message":"Here it is.","data":{"Camera1Yaw":)") + value +
                  "}}");
    };
    const QByteArray path = "/api/v1/kelpora360/calibration/";
    service.answers = {{path + "1", yaw("111")}, {path + "2", yaw("222")}};
    service.delays = {{path + "1", 600}, {path + "2", 50}};
    const View &view = showPopup();
    const MessageLog log;
    for (const QString &serial : downloads) {
        view.set("serialnumber", "text", serial);
        view.click(QStringLiteral("downloadAnglesButton"));
    }
    view.set("serialnumber", "text", typed);
    QTRY_COMPARE(controller.updates.size(), saved.size());
    for (int i = 0; i < saved.size(); ++i) {
        QCOMPARE(controller.updates.at(i).value(QStringLiteral("Serialnumber")).toString(), saved.at(i));
        QCOMPARE(controller.updates.at(i).value(QStringLiteral("Camera1Yaw")).toString(),
                 saved.at(i).repeated(3));
    }
    QCOMPARE(view.property("serialnumber", "text").toString(), saved.last());
}

QTEST_MAIN(TestStitchPopup)
#include "tst_stitchpopup.moc"
