#include "tests/views/view.h"

#include <QSignalSpy>
#include <QtTest>

#include <functional>
#include <vector>

namespace {

QStringList warnings;

void collect(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type != QtInfoMsg && type != QtDebugMsg)
        warnings.append(text);
}

/// A controller with three cards, a device that isn't recognised and one that is.
void equip(ScriptedController *controller)
{
    for (const char *number : {"1", "2", "3"})
        ScriptedController::append(&controller->drives, QStringLiteral("/media/KELPORA360_%1").arg(number),
                                   QStringLiteral("KELPORA360_%1").arg(number));
    ScriptedController::append(&controller->templates, QStringLiteral("/templates/a.kava"),
                               QStringLiteral("a"));
    controller->addDevice(QStringLiteral("ttyS0"), QStringLiteral("other"), QStringLiteral("maker"));
    controller->addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA1"), QStringLiteral("maker"));
    controller->moviesLocation = QStringLiteral("/home/diver/Videos");
    for (const char *key : {"Serialnumber", "RadiansAngles", "OverwriteAngles"})
        controller->settings.insert(QString::fromLatin1(key), QStringLiteral("0"));
    for (const char *camera : {"Camera1", "Camera2", "Camera3"}) {
        for (const char *key : {"Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"})
            controller->settings.insert(QLatin1String(camera) + QLatin1String(key), QStringLiteral("12.5"));
    }
}

} // namespace

/// What holds as soon as the document is loaded, when the window has not shown anything yet.
class TestStart : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        warnings.clear();
        before_ = qInstallMessageHandler(collect);
    }
    void cleanup()
    {
        qInstallMessageHandler(before_);
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join(QLatin1Char(10))));
    }
    void whatTheControllerIsAsked();
    void whatIsChosenOnceThePagesStand();
    void nothingIsChosenThatIsNotRecognised();
    void functionsBeforeTheFirstFrame_data();
    void functionsBeforeTheFirstFrame();

private:
    QtMessageHandler before_ = nullptr;
};

void TestStart::whatTheControllerIsAsked()
{
    ScriptedController controller;
    equip(&controller);
    const View view(&controller, View::State::Loaded);
    QVERIFY(view.window() != nullptr);
    QCOMPARE(view.window()->property("ready").toBool(), false);
    QCOMPARE(controller.asked, (QStringList{"getDrives", "getDevices", "getTemplates", "getMoviesLocation",
                                            "getSettings", "setPort"}));
    QCOMPARE(controller.ports, QStringList{"ttyUSB0"});
    QCOMPARE(view.window()->property("drives").toList().size(), 3);
    QCOMPARE(view.window()->property("devices").toList().size(), 2);
    QCOMPARE(view.window()->property("templates").toList().size(), 1);
    QCOMPARE(view.window()->property("settings").toMap().value(QStringLiteral("Camera1Yaw")).toString(),
             QStringLiteral("12.5"));
}

void TestStart::whatIsChosenOnceThePagesStand()
{
    ScriptedController controller;
    equip(&controller);
    const View view(&controller);
    QVERIFY(view.isShown());
    QCOMPARE(controller.asked.size(), 6);
    for (int card = 0; card < 3; ++card)
        QCOMPARE(view.property(QStringLiteral("card%1Combo").arg(card + 1), "currentIndex").toInt(), card);
    for (const char *device : {"devicesComboData", "devicesComboSettings"})
        QCOMPARE(view.property(QString::fromLatin1(device), "currentIndex").toInt(), 1);
    for (const char *folder : {"destinationFilesText", "destinationDataText"})
        QCOMPARE(view.property(QString::fromLatin1(folder), "text").toString(), controller.moviesLocation);
}

void TestStart::nothingIsChosenThatIsNotRecognised()
{
    ScriptedController controller;
    ScriptedController::append(&controller.drives, QStringLiteral("/media/stick"), QStringLiteral("stick"));
    controller.addDevice(QStringLiteral("ttyS0"), QStringLiteral("other"), QStringLiteral("maker"));
    const View view(&controller);
    QVERIFY(view.isShown());
    QCOMPARE(controller.ports, QStringList());
    for (const char *choice :
         {"card1Combo", "card2Combo", "card3Combo", "devicesComboData", "devicesComboSettings"})
        QCOMPARE(view.property(QString::fromLatin1(choice), "currentIndex").toInt(), -1);
}

using Action = std::function<void(const View &)>;
Q_DECLARE_METATYPE(Action)

void TestStart::functionsBeforeTheFirstFrame_data()
{
    QTest::addColumn<Action>("action");
    const auto row = [](const char *name, const Action &action) { QTest::newRow(name) << action; };
    const QString text = QStringLiteral("text");
    row("a card's progress", [text](const View &view) {
        view.call("updateCardProgress", 2, 0, 10, 4, text);
        QCOMPARE(view.window()->property("cardTwoCopying").toBool(), true);
        QCOMPARE(view.property(QStringLiteral("card2ProgressText"), "text").toString(), text);
    });
    row("a data job's progress", [text](const View &view) {
        view.call("updateDataProgress", 0, 2, 1, text);
        QCOMPARE(view.window()->property("dataCopying").toBool(), true);
        QCOMPARE(view.property(QStringLiteral("dataProgressText"), "text").toString(), text);
    });
    for (const char *function : {"updateCameraSettingsProgress", "updateFirmwareProgress"}) {
        row(function, [text, function](const View &view) {
            view.call(function, 0, 2, 2, text);
            QCOMPARE(view.property(QStringLiteral("settingsProgressText"), "text").toString(), text);
        });
    }
    row("settings that were read", [](const View &view) {
        view.call("updateCameraSettings", "1.24", "50 %", "2019-02-21 22:46:44", 0, 2.0, 20.0, 45.0, 30);
        QCOMPARE(view.call("getSelectedE1Firmware").toInt(), 30);
    });
    row("connecting", [](const View &view) {
        QSignalSpy read(view.window(), SIGNAL(readCameraSettings(QString)));
        view.call("connectButtonClicked");
        QCOMPARE(read.count(), 1);
        QCOMPARE(read.first().first().toString(), QStringLiteral("ttyUSB0"));
    });
    row("copying", [](const View &view) {
        QSignalSpy copy(view.window(),
                        SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString)));
        view.call("copyFilesClicked");
        QCOMPARE(copy.count(), 1);
        QCOMPARE(copy.first(),
                 (QVariantList{"/media/KELPORA360_1", "/media/KELPORA360_2", "/media/KELPORA360_3",
                               "/home/diver/Videos", "/templates/a.kava", ""}));
    });
    row("saving the angles", [](const View &view) {
        view.call("saveStitchSettings");
        QCOMPARE(view.window()->property("settings").toMap().value(QStringLiteral("Camera1Yaw")).toString(),
                 QStringLiteral("12.5"));
    });
    row("a calibration that arrives", [](const View &view) {
        view.call("takeStitchSettings",
                  R"({"success": true, "message": "Welcome", "data": {"Camera1Yaw": 7}})", "0");
        QCOMPARE(view.window()->property("settings").toMap().value(QStringLiteral("Camera1Yaw")).toString(),
                 QStringLiteral("7"));
        QCOMPARE(view.property(QStringLiteral("messageText"), "text").toString(), QStringLiteral("Welcome"));
    });
    for (const char *function :
         {"refreshDrives", "refreshDevices", "loadTemplates", "refreshDestination", "loadStitchSettings",
          "getSelectedSettingsDeviceName", "getSelectedDataDeviceName", "getSelectedE1Firmware"})
        row(function, [function](const View &view) { view.call(function); });
}

void TestStart::functionsBeforeTheFirstFrame()
{
    QFETCH(Action, action);
    ScriptedController controller;
    equip(&controller);
    const View view(&controller, View::State::Loaded);
    QVERIFY(view.window() != nullptr);
    QCOMPARE(view.window()->property("ready").toBool(), false);
    action(view);
    QTRY_VERIFY(view.window()->property("ready").toBool());
    for (const char *device : {"devicesComboData", "devicesComboSettings"})
        QCOMPARE(view.property(QString::fromLatin1(device), "currentIndex").toInt(), 1);
}

QTEST_MAIN(TestStart)
#include "tst_start.moc"
