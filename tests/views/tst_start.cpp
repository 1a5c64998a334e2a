#include "tests/views/view.h"

#include <QSignalSpy>
#include <QtTest>

#include <functional>

namespace {

QStringList warnings;

void collect(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type != QtInfoMsg && type != QtDebugMsg)
        warnings.append(text);
}

} // namespace

/// What holds as soon as the document is loaded, when the window has not shown anything yet.
class TestStart : public ViewTest
{
    Q_OBJECT

    void equip() override;

private slots:
    void init()
    {
        ViewTest::init();
        warnings.clear();
        before_ = qInstallMessageHandler(collect);
    }
    void cleanup()
    {
        ViewTest::cleanup();
        qInstallMessageHandler(before_);
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join(QLatin1Char(10))));
    }
    void whatTheControllerIsAsked();
    void whatIsChosenOnceThePagesStand();
    void nothingIsChosenThatIsNotRecognised();
    void functionsBeforeThePages_data();
    void functionsBeforeThePages();
    void requestsBeforeThePages_data();
    void requestsBeforeThePages();

private:
    QtMessageHandler before_ = nullptr;
};

void TestStart::equip()
{
    for (const char *number : {"1", "2", "3"})
        ScriptedController::append(&controller.drives, QStringLiteral("/media/KELPORA360_%1").arg(number),
                                   QStringLiteral("KELPORA360_%1").arg(number));
    ScriptedController::append(&controller.templates, QStringLiteral("/templates/a.kava"),
                               QStringLiteral("a"));
    controller.addDevice(QStringLiteral("ttyS0"), QStringLiteral("other"), QStringLiteral("maker"));
    controller.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA1"), QStringLiteral("maker"));
    controller.moviesLocation = QStringLiteral("/home/diver/Videos");
    for (const char *key : {"Serialnumber", "RadiansAngles", "OverwriteAngles"})
        controller.settings.insert(QString::fromLatin1(key), QStringLiteral("0"));
    for (const char *camera : {"Camera1", "Camera2", "Camera3"}) {
        for (const char *key : {"Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"})
            controller.settings.insert(QLatin1String(camera) + QLatin1String(key), QStringLiteral("12.5"));
    }
}

void TestStart::whatTheControllerIsAsked()
{
    const View &view = show(View::State::Loaded);
    QCOMPARE(view.flag("ready"), false);
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
    const View &view = show();
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
    controller.clear();
    ScriptedController::append(&controller.drives, QStringLiteral("/media/stick"), QStringLiteral("stick"));
    controller.addDevice(QStringLiteral("ttyS0"), QStringLiteral("other"), QStringLiteral("maker"));
    const View &view = show();
    QCOMPARE(controller.ports, QStringList());
    for (const char *choice :
         {"card1Combo", "card2Combo", "card3Combo", "devicesComboData", "devicesComboSettings"})
        QCOMPARE(view.property(QString::fromLatin1(choice), "currentIndex").toInt(), -1);
}

using Step = std::function<void(const View &)>;
Q_DECLARE_METATYPE(Step)

void TestStart::functionsBeforeThePages_data()
{
    QTest::addColumn<Step>("call");
    QTest::addColumn<Step>("afterwards");
    const auto row = [](const char *name, const Step &call, const Step &afterwards = {}) {
        QTest::newRow(name) << call << afterwards;
    };
    const QString text = QStringLiteral("text");
    row(
        "a card's progress",
        [text](const View &view) {
            view.call("updateCardProgress", 2, 0, 10, 4, text);
            QCOMPARE(view.flag("cardTwoCopying"), true);
        },
        [text](const View &view) {
            QCOMPARE(view.property("card2ProgressText", "text").toString(), text);
            QCOMPARE(view.property("card2ProgressBar", "value").toDouble(), 4.0);
            QCOMPARE(view.property("exitButton", "enabled").toBool(), false);
        });
    row(
        "a data job's progress",
        [text](const View &view) {
            view.call("updateDataProgress", 0, 2, 1, text);
            QCOMPARE(view.flag("dataCopying"), true);
        },
        [text](const View &view) {
            QCOMPARE(view.property("dataProgressText", "text").toString(), text);
            QCOMPARE(view.property("waitText", "text").toString(), text);
            QTRY_VERIFY(view.isOpen("waitPopup"));
        });
    for (const char *function : {"updateCameraSettingsProgress", "updateFirmwareProgress"}) {
        row(
            function, [text, function](const View &view) { view.call(function, 0, 2, 2, text); },
            [text](const View &view) {
                QCOMPARE(view.property("settingsProgressText", "text").toString(), text);
                QCOMPARE(view.property("waitPopup", "visible").toBool(), false);
            });
    }
    row(
        "settings that were read",
        [](const View &view) {
            view.call("updateCameraSettings", "1.24", "50 %", "2019-02-21 22:46:44", 0, 2.0, 20.0, 45.0, 30);
            QCOMPARE(view.call("getSelectedE1Firmware").toInt(), 30);
        },
        [](const View &view) {
            QCOMPARE(view.property("firmwareText", "text").toString(), QStringLiteral("1.24"));
            QCOMPARE(view.property("recLedBox", "checked").toBool(), false);
            QCOMPARE(view.property("photoTimeoutSlider", "value").toDouble(), 45.0);
            QCOMPARE(view.property("e1FirmwareCombo", "currentIndex").toInt(), 2);
        });
    row("setE1Firmware", [](const View &view) {
        view.call("setE1Firmware", 29);
        QCOMPARE(view.call("getSelectedE1Firmware").toInt(), 29);
    });
    row("saving the angles", [](const View &view) {
        view.call("saveStitchSettings");
        QCOMPARE(view.window()->property("settings").toMap().value(QStringLiteral("Camera1Yaw")).toString(),
                 QStringLiteral("12.5"));
    });
    row(
        "a calibration that arrives",
        [](const View &view) {
            QMetaObject::invokeMethod(
                view.object("calibration"), "takeAnswer",
                Q_ARG(QVariant, R"({"success": true, "message": "Welcome", "data": {"Camera1Yaw": 7}})"),
                Q_ARG(QVariant, "0"));
            QCOMPARE(
                view.window()->property("settings").toMap().value(QStringLiteral("Camera1Yaw")).toString(),
                QStringLiteral("7"));
        },
        [](const View &view) {
            QCOMPARE(view.property("messageText", "text").toString(), QStringLiteral("Welcome"));
            QTRY_VERIFY(view.isOpen("messagePopup"));
        });
    for (const char *function :
         {"refreshDrives", "refreshDevices", "loadTemplates", "refreshDestination", "loadStitchSettings"})
        row(function, [function](const View &view) { view.call(function); });
    row("downloadStitchSettings without a serial", [](const View &view) {
        view.window()->setProperty("settings", QVariantMap());
        view.call("downloadStitchSettings");
    });
    for (const char *function : {"getSelectedSettingsDeviceName", "getSelectedDataDeviceName"}) {
        row(function, [function](const View &view) {
            QCOMPARE(view.call(function).toString(), QStringLiteral("ttyUSB0"));
        });
    }
    for (const char *rule : {"readyToExit", "readyToCopyFiles", "readyToEraseCards", "readyToCopyData",
                             "readyToEraseMemory", "readyToReadSettings", "readyToSaveCameraSettings",
                             "readyToResetCameraSettings", "readyToUpdateFirmware"})
        row(rule, [rule](const View &view) { QCOMPARE(view.call(rule).toBool(), true); });
}

/// The window's own functions need no page.
void TestStart::functionsBeforeThePages()
{
    QFETCH(Step, call);
    QFETCH(Step, afterwards);
    const View &view = show(View::State::Loaded);
    call(view);
    QCOMPARE(view.flag("ready"), false);
    QTRY_VERIFY(view.flag("ready"));
    for (const char *device : {"devicesComboData", "devicesComboSettings"})
        QCOMPARE(view.property(device, "currentIndex").toInt(), 1);
    if (afterwards)
        afterwards(view);
}

void TestStart::requestsBeforeThePages_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QVariantList>("emitted");
    const auto row = [](const char *name, const QString &function, const QVariantList &arguments,
                        const QByteArray &signature, const QVariantList &emitted) {
        QTest::newRow(name) << function << arguments << signature << emitted;
    };
    const QVariantList cards = {"/media/KELPORA360_1", "/media/KELPORA360_2", "/media/KELPORA360_3"};
    row("copying files", "copyFilesClicked", QVariantList{},
        QByteArray(SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString))),
        cards + QVariantList{"/home/diver/Videos", "/templates/a.kava", ""});
    row("erasing cards", "eraseCardsClicked", QVariantList{true, false},
        QByteArray(SIGNAL(eraseCards(QString, QString, QString, bool, bool))),
        cards + QVariantList{true, false});
    row("copying data", "copyDataClicked", QVariantList{},
        QByteArray(SIGNAL(copyData(QString, QString, QString))),
        QVariantList{"ttyUSB0", "/home/diver/Videos", ""});
    row("erasing the memory", "eraseMemoryClicked", QVariantList{true},
        QByteArray(SIGNAL(eraseMemory(QString))), QVariantList{"ttyUSB0"});
    row("connecting", "connectButtonClicked", QVariantList{}, QByteArray(SIGNAL(readCameraSettings(QString))),
        QVariantList{"ttyUSB0"});
    row("saving the settings", "saveCameraSettingsClicked", QVariantList{},
        QByteArray(SIGNAL(saveCameraSettings(QString, QString, int, double, double, double, int))),
        QVariantList{"ttyUSB0", "", 1, 1.0, 5.0, 90.0, 26});
    row("resetting the settings", "resetCameraSettingsClicked", QVariantList{},
        QByteArray(SIGNAL(resetCameraSettings(QString))), QVariantList{"ttyUSB0"});
}

void TestStart::requestsBeforeThePages()
{
    QFETCH(QString, function);
    QFETCH(QVariantList, arguments);
    QFETCH(QByteArray, signature);
    QFETCH(QVariantList, emitted);
    const View &view = show(View::State::Loaded);
    QSignalSpy requests(view.window(), signature.constData());
    const QByteArray name = function.toLatin1();
    if (arguments.isEmpty())
        view.call(name.constData());
    else if (arguments.size() == 1)
        view.call(name.constData(), arguments.at(0));
    else
        view.call(name.constData(), arguments.at(0), arguments.at(1));
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first(), emitted);
    QCOMPARE(view.flag("ready"), false);
}

QTEST_MAIN(TestStart)
#include "tst_start.moc"
