#include "tests/views/view.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QtTest>

namespace {

const char *const saveSignature =
    SIGNAL(saveCameraSettings(QString, QString, int, double, double, double, int));
const QString settingsCombo = QStringLiteral("devicesComboSettings");
const QString dataCombo = QStringLiteral("devicesComboData");
const QString wait = QStringLiteral("waitPopup");

} // namespace

class TestSettingsPage : public ViewTest
{
    Q_OBJECT

    void equip() override;

private slots:
    void texts();
    void theStart();
    void now();
    void sliders_data();
    void sliders();
    void slidersByKeyboard_data();
    void slidersByKeyboard();
    void intervalsThatWereRead_data();
    void intervalsThatWereRead();
    void e1Firmware_data();
    void e1Firmware();
    void ready_data();
    void ready();
    void requests_data();
    void requests();
    void save_data();
    void save();
    void requestsWhileAJobRuns();
    void settingsThatWereRead_data();
    void settingsThatWereRead();
    void settingsFromTheControllersSignal();
    void progress_data();
    void progress();
    void aJobFromTheClickToTheEnd();
    void tabReachesEveryControl();
};

void TestSettingsPage::equip()
{
    controller.addDevice(QStringLiteral("ttyS0"), QStringLiteral("A1"), QStringLiteral("Maker"));
    controller.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA7"), QStringLiteral("Kelpora"));
}

void TestSettingsPage::texts()
{
    const View &view = show();
    QCOMPARE(::texts(textItems(view.page(2))),
             split("Camera Device:|Port|Refresh Devices|Connect||Camera Settings:|Firmware:|-|"
                   "Battery:|-|Date/Time|Now|Record LED|LED is on while recording|Video interval|"
                   "1.0 seconds|Photo interval|5 seconds|Photo timeout|90 minutes|E1 Firmware|"
                   "Save Settings|Reset Settings|Progress:|Settings|"));
    QCOMPARE(offered(view.object(QStringLiteral("e1FirmwareCombo"))),
             (QStringList{"0.26", "0.29", "0.30 (in beta, not officially supported)"}));
}

void TestSettingsPage::theStart()
{
    const View &view = show();
    QCOMPARE(view.property("dateTimeText", "text").toString(), QString());
    QCOMPARE(view.property("recLedBox", "checked").toBool(), true);
    QCOMPARE(view.property("settingsProgressBar", "from").toDouble(), 0.0);
    QCOMPARE(view.property("settingsProgressBar", "to").toDouble(), 3.0);
    QCOMPARE(view.property("settingsProgressBar", "value").toDouble(), 0.0);
}

void TestSettingsPage::now()
{
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.set("dateTimeText", "text", "yesterday");
    const QDateTime before = QDateTime::currentDateTime();
    view.click(view.rowButton(2, QStringLiteral("Date/Time")));
    const QDateTime after = QDateTime::currentDateTime();
    const QString format = QStringLiteral("yyyy-MM-dd hh:mm:ss");
    const QString text = view.property("dateTimeText", "text").toString();
    QVERIFY2(text >= before.toString(format) && text <= after.toString(format), qPrintable(text));
    QCOMPARE(QDateTime::fromString(text, format).toString(format), text);
}

void TestSettingsPage::sliders_data()
{
    QTest::addColumn<QString>("slider");
    QTest::addColumn<QList<double>>("range");
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("set");
    QTest::addColumn<QString>("shown");
    const auto row = [](const char *name, const QString &slider, const QList<double> &range, double value,
                        double set, const QString &shown) {
        QTest::newRow(name) << slider << range << value << set << shown;
    };
    const QList<double> video = {0.2, 10, 0.1};
    const QList<double> photo = {5, 120, 1};
    const QList<double> timeout = {5, 360, 5};
    row("the least video interval", "videoIntervalSlider", video, 1.0, 0.2, "0.2 seconds");
    row("a video interval", "videoIntervalSlider", video, 1.0, 2.3, "2.3 seconds");
    row("the most video interval", "videoIntervalSlider", video, 1.0, 10.0, "10.0 seconds");
    row("a photo interval", "photoIntervalSlider", photo, 5.0, 17.0, "17 seconds");
    row("the most photo interval", "photoIntervalSlider", photo, 5.0, 120.0, "120 seconds");
    row("a photo timeout", "photoTimeoutSlider", timeout, 90.0, 5.0, "5 minutes");
    row("the most photo timeout", "photoTimeoutSlider", timeout, 90.0, 360.0, "360 minutes");
}

void TestSettingsPage::sliders()
{
    QFETCH(QString, slider);
    QFETCH(QList<double>, range);
    QFETCH(double, value);
    QFETCH(double, set);
    QFETCH(QString, shown);
    const View &view = show();
    const QList<double> has = {view.property(slider, "from").toDouble(),
                               view.property(slider, "to").toDouble(),
                               view.property(slider, "stepSize").toDouble()};
    QCOMPARE(has, range);
    QCOMPARE(view.property(slider, "value").toDouble(), value);
    const int snapAlways = 1;
    if (slider == QLatin1String("photoIntervalSlider"))
        QCOMPARE(view.property(slider, "snapMode").toInt(), snapAlways);
    view.set(slider, "value", set);
    QCOMPARE(view.property(slider + "Text", "text").toString(), shown);
}

void TestSettingsPage::slidersByKeyboard_data()
{
    QTest::addColumn<QString>("slider");
    QTest::addColumn<int>("presses");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<int>("argument");
    QTest::addColumn<int>("sent");
    QTest::newRow("the video interval") << "videoIntervalSlider" << 1 << "1.1 seconds" << 3 << 1100;
    QTest::newRow("rounding errors don't add up")
        << "videoIntervalSlider" << 40 << "5.0 seconds" << 3 << 5000;
    QTest::newRow("the photo interval") << "photoIntervalSlider" << 1 << "6 seconds" << 4 << 6000;
    QTest::newRow("the photo timeout") << "photoTimeoutSlider" << 1 << "95 minutes" << 5 << 95000;
}

void TestSettingsPage::slidersByKeyboard()
{
    QFETCH(QString, slider);
    QFETCH(int, presses);
    QFETCH(QString, shown);
    QFETCH(int, argument);
    QFETCH(int, sent);
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.item(slider)->forceActiveFocus(Qt::TabFocusReason);
    for (int press = 0; press < presses; ++press)
        QTest::keyClick(view.window(), Qt::Key_Right);
    QCOMPARE(view.property(slider + "Text", "text").toString(), shown);
    QSignalSpy saves(view.window(), saveSignature);
    view.call("saveCameraSettingsClicked");
    // The controller counts in thousandths and cuts off what is below.
    QCOMPARE(static_cast<int>(saves.first().at(argument).toDouble() * 1000), sent);
}

void TestSettingsPage::intervalsThatWereRead_data()
{
    QTest::addColumn<QList<double>>("read");
    QTest::addColumn<QList<double>>("saved");
    using Values = QList<double>;
    QTest::newRow("between two steps") << Values{2.34, 7.5, 12} << Values{2.34, 7.5, 12};
    QTest::newRow("below the sliders") << Values{0, 0, 0} << Values{0.2, 5, 5};
    QTest::newRow("beyond the sliders") << Values{10.1, 3600, 361} << Values{10, 120, 360};
}

/// They are saved as the sliders show them, whether the page stands or not.
void TestSettingsPage::intervalsThatWereRead()
{
    QFETCH(QList<double>, read);
    QFETCH(QList<double>, saved);
    for (const View::State state : {View::State::Loaded, View::State::Ready}) {
        const View &view = show(state);
        view.call("updateCameraSettings", "1.24", "50 %", "", 0, read.at(0), read.at(1), read.at(2), 30);
        QSignalSpy saves(view.window(), saveSignature);
        view.call("saveCameraSettingsClicked");
        const QVariantList &sent = saves.first();
        const QList<double> intervals = {sent.at(3).toDouble(), sent.at(4).toDouble(), sent.at(5).toDouble()};
        QCOMPARE(intervals, saved);
    }
}

void TestSettingsPage::e1Firmware_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<QVariant>("generation");
    QTest::addColumn<int>("after");
    QTest::addColumn<int>("selected");
    QTest::newRow("0.26") << 2 << QVariant(26) << 0 << 26;
    QTest::newRow("0.29") << 0 << QVariant(29) << 1 << 29;
    QTest::newRow("0.30") << 0 << QVariant(30) << 2 << 30;
    QTest::newRow("an unknown one leaves the choice") << 2 << QVariant(27) << 2 << 30;
    QTest::newRow("nothing leaves the choice") << 0 << QVariant(0) << 0 << 26;
    QTest::newRow("without a choice it's 0.29") << -1 << QVariant(31) << -1 << 29;
}

void TestSettingsPage::e1Firmware()
{
    QFETCH(int, before);
    QFETCH(QVariant, generation);
    QFETCH(int, after);
    QFETCH(int, selected);
    const View &view = show();
    view.set("e1FirmwareCombo", "currentIndex", before);
    view.call("setE1Firmware", generation);
    QCOMPARE(view.property("e1FirmwareCombo", "currentIndex").toInt(), after);
    QCOMPARE(view.call("getSelectedE1Firmware").toInt(), selected);
}

void TestSettingsPage::ready_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("busy");
    QTest::addColumn<bool>("ready");
    QTest::newRow("a device") << 0 << "" << true;
    QTest::newRow("no device") << -1 << "" << false;
    QTest::newRow("a controller job runs") << 0 << "dataCopying" << false;
    QTest::newRow("a card is busy") << 0 << "cardOneCopying" << true;
}

void TestSettingsPage::ready()
{
    QFETCH(int, device);
    QFETCH(QString, busy);
    QFETCH(bool, ready);
    const View &view = show();
    view.set(settingsCombo, "currentIndex", device);
    view.set(dataCombo, "currentIndex", device < 0 ? 0 : -1);
    view.raise(busy);
    for (const char *rule : {"readyToReadSettings", "readyToResetCameraSettings", "readyToSaveCameraSettings",
                             "readyToUpdateFirmware"})
        QCOMPARE(view.call(rule).toBool(), ready);
    for (const char *button : {"connectButton", "saveSettingsButton", "resetSettingsButton"})
        QCOMPARE(view.property(button, "enabled").toBool(), ready);
    QCOMPARE(view.property("refreshDevicesSettingsButton", "enabled").toBool(), true);
}

void TestSettingsPage::requests_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<QByteArray>("signature");
    QTest::newRow("connect") << "connectButton" << QByteArray(SIGNAL(readCameraSettings(QString)));
    QTest::newRow("reset") << "resetSettingsButton" << QByteArray(SIGNAL(resetCameraSettings(QString)));
    QTest::newRow("save") << "saveSettingsButton" << QByteArray(saveSignature);
}

void TestSettingsPage::requests()
{
    QFETCH(QString, button);
    QFETCH(QByteArray, signature);
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.set(settingsCombo, "currentIndex", 0);
    view.set(wait, "text", "left over");
    controller.ports.clear();
    QSignalSpy spy(view.window(), signature.constData());
    QVERIFY(spy.isValid());
    view.click(button);
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.first().first().toString(), QStringLiteral("ttyS0"));
    QCOMPARE(controller.ports, QStringList{"ttyS0"});
    QCOMPARE(view.flag("dataCopying"), true);
    QTRY_VERIFY(view.isOpen(wait));
    QCOMPARE(view.property(wait, "text").toString(), QString());
    QCOMPARE(view.property(button, "enabled").toBool(), false);
    QCOMPARE(view.property("exitButton", "enabled").toBool(), false);
}

void TestSettingsPage::save_data()
{
    QTest::addColumn<QString>("date");
    QTest::addColumn<bool>("led");
    QTest::addColumn<QList<double>>("values");
    QTest::addColumn<int>("e1Index");
    QTest::addColumn<int>("e1");
    QTest::newRow("at the start") << "" << true << QList<double>{1, 5, 90} << 0 << 26;
    QTest::newRow("everything changed")
        << "2026-01-02 03:04:05" << false << QList<double>{0.2, 120, 360} << 2 << 30;
    QTest::newRow("a date as it was typed") << "soon %1" << true << QList<double>{9.9, 6, 5} << 1 << 29;
    QTest::newRow("no choice of the firmware") << "" << true << QList<double>{10, 5, 5} << -1 << 29;
}

void TestSettingsPage::save()
{
    QFETCH(QString, date);
    QFETCH(bool, led);
    QFETCH(QList<double>, values);
    QFETCH(int, e1Index);
    QFETCH(int, e1);
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.set("dateTimeText", "text", date);
    view.set("recLedBox", "checked", led);
    view.set("videoIntervalSlider", "value", values.at(0));
    view.set("photoIntervalSlider", "value", values.at(1));
    view.set("photoTimeoutSlider", "value", values.at(2));
    view.set("e1FirmwareCombo", "currentIndex", e1Index);
    QSignalSpy spy(view.window(), saveSignature);
    view.click(QStringLiteral("saveSettingsButton"));
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.first(),
             (QVariantList{"ttyUSB0", date, led ? 1 : 0, values.at(0), values.at(1), values.at(2), e1}));
}

void TestSettingsPage::requestsWhileAJobRuns()
{
    const View &view = show();
    view.window()->setProperty("dataCopying", true);
    QSignalSpy reads(view.window(), SIGNAL(readCameraSettings(QString)));
    QSignalSpy resets(view.window(), SIGNAL(resetCameraSettings(QString)));
    QSignalSpy saves(view.window(), saveSignature);
    for (const char *clicked :
         {"connectButtonClicked", "resetCameraSettingsClicked", "saveCameraSettingsClicked"})
        view.call(clicked);
    QCOMPARE(reads.size() + resets.size() + saves.size(), 0);
    QCOMPARE(view.property(wait, "visible").toBool(), false);
}

void TestSettingsPage::settingsThatWereRead_data()
{
    QTest::addColumn<QVariant>("led");
    QTest::addColumn<bool>("checked");
    QTest::addColumn<int>("e1");
    QTest::addColumn<int>("e1Index");
    QTest::newRow("the light is on") << QVariant(1) << true << 30 << 2;
    QTest::newRow("the light is off") << QVariant(0) << false << 26 << 0;
    QTest::newRow("neither 0 nor 1") << QVariant(2) << false << 29 << 1;
    QTest::newRow("an unknown firmware") << QVariant(-1) << false << 12 << 1;
}

void TestSettingsPage::settingsThatWereRead()
{
    QFETCH(QVariant, led);
    QFETCH(bool, checked);
    QFETCH(int, e1);
    QFETCH(int, e1Index);
    for (const bool open : {false, true}) {
        const View &view = show();
        view.set("e1FirmwareCombo", "currentIndex", 1);
        if (open)
            view.call("connectButtonClicked");
        view.call("updateCameraSettings", QStringLiteral("1.2.3"), QStringLiteral("87%"),
                  QStringLiteral("2026-05-06 07:08:09"), led, 2.5, 30.0, 45.0, e1);
        QCOMPARE(view.property("firmwareText", "text").toString(), QStringLiteral("1.2.3"));
        QCOMPARE(view.property("batteryText", "text").toString(), QStringLiteral("87%"));
        QCOMPARE(view.property("dateTimeText", "text").toString(), QStringLiteral("2026-05-06 07:08:09"));
        QCOMPARE(view.property("recLedBox", "checked").toBool(), checked);
        QCOMPARE(view.property("videoIntervalSlider", "value").toDouble(), 2.5);
        QCOMPARE(view.property("photoIntervalSlider", "value").toDouble(), 30.0);
        QCOMPARE(view.property("photoTimeoutSlider", "value").toDouble(), 45.0);
        QCOMPARE(view.property("videoIntervalSliderText", "text").toString(), QStringLiteral("2.5 seconds"));
        QCOMPARE(view.property("e1FirmwareCombo", "currentIndex").toInt(), e1Index);
        QCOMPARE(view.flag("dataCopying"), false);
        QTRY_COMPARE(view.property(wait, "visible").toBool(), false);
        QCOMPARE(view.property("connectButton", "enabled").toBool(), true);
    }
}

/// Each time that settings come, they fill the page, whatever was typed meanwhile.
void TestSettingsPage::settingsFromTheControllersSignal()
{
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.click(QStringLiteral("recLedBox"));
    QCOMPARE(view.property("recLedBox", "checked").toBool(), false);
    view.click(QStringLiteral("dateTimeText"));
    QTest::keyClick(view.window(), 'x');
    for (const int led : {1, 0, 1}) {
        const QString date = QStringLiteral("2026-01-01 00:00:0%1").arg(led);
        view.call("updateCameraSettings", QStringLiteral("f"), QStringLiteral("b"), date, led, 0.2 + led,
                  5.0 + led, 5.0 + 5 * led, 29);
        QCOMPARE(view.property("recLedBox", "checked").toBool(), led == 1);
        QCOMPARE(view.property("dateTimeText", "text").toString(), date);
        QCOMPARE(view.property("videoIntervalSlider", "value").toDouble(), 0.2 + led);
        QCOMPARE(view.property("photoTimeoutSlider", "value").toDouble(), 5.0 + 5 * led);
    }
}

void TestSettingsPage::progress_data()
{
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<int>("to");
    QTest::addColumn<int>("value");
    QTest::addColumn<bool>("running");
    for (const char *function : {"updateCameraSettingsProgress", "updateFirmwareProgress"}) {
        QTest::addRow("%s, a relayed message", function) << QByteArray(function) << 2 << 1 << true;
        QTest::addRow("%s, one before the end", function) << QByteArray(function) << 5 << 4 << true;
        QTest::addRow("%s, at the end", function) << QByteArray(function) << 2 << 2 << false;
        QTest::addRow("%s, past the end", function) << QByteArray(function) << 2 << 3 << false;
    }
}

void TestSettingsPage::progress()
{
    QFETCH(QByteArray, function);
    QFETCH(int, to);
    QFETCH(int, value);
    QFETCH(bool, running);
    for (const bool open : {false, true}) {
        const View &view = show();
        if (open) {
            view.call("connectButtonClicked");
            QTRY_VERIFY(view.isOpen(wait));
        }
        const QString text = QStringLiteral("Half of it\nis done.");
        view.call(function.constData(), 0, to, value, text);
        QCOMPARE(view.property("settingsProgressBar", "to").toDouble(), double(to));
        QCOMPARE(view.property("settingsProgressBar", "value").toDouble(), double(qMin(value, to)));
        QCOMPARE(view.property("settingsProgressText", "text").toString(), text);
        QCOMPARE(view.property("dataProgressText", "text").toString(), QString());
        QCOMPARE(view.flag("dataCopying"), running);
        QCOMPARE(view.property(wait, "text").toString(), running ? text : QString());
        QTRY_COMPARE(view.property(wait, "visible").toBool(), running);
        QTRY_COMPARE(view.isOpen(wait), running);
    }
}

void TestSettingsPage::aJobFromTheClickToTheEnd()
{
    const View &view = show();
    QVERIFY(view.showPage(2));
    for (int round = 0; round < 2; ++round) {
        view.click(QStringLiteral("connectButton"));
        QTRY_VERIFY(view.isOpen(wait));
        for (const int value : {0, 1, 1, 1}) {
            view.call("updateCameraSettingsProgress", 0, 2, value, QStringLiteral("Reading"));
            QVERIFY(view.isOpen(wait));
            QCOMPARE(view.property("waitText", "text").toString(), QStringLiteral("Reading"));
        }
        view.call("updateCameraSettingsProgress", 0, 2, 2, QStringLiteral("Done"));
        QTRY_COMPARE(view.property(wait, "visible").toBool(), false);
        QCOMPARE(view.property("connectButton", "enabled").toBool(), true);
        QCOMPARE(view.property("exitButton", "enabled").toBool(), true);
    }
}

void TestSettingsPage::tabReachesEveryControl()
{
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.item(settingsCombo)->forceActiveFocus(Qt::TabFocusReason);
    const QStringList expected =
        split("devicesComboSettings|refreshDevicesSettingsButton|connectButton|dateTimeText|Now|"
              "recLedBox|videoIntervalSlider|photoIntervalSlider|photoTimeoutSlider|"
              "e1FirmwareCombo|saveSettingsButton|resetSettingsButton|exitButton");
    QCOMPARE(view.tabThrough(expected.size()), expected);
}

QTEST_MAIN(TestSettingsPage)
#include "tst_settingspage.moc"
