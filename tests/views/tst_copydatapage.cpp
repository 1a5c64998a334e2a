#include "tests/views/view.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

using Devices = QList<QStringList>;

const QString hint =
    QStringLiteral("Please connect the camera with a Micro-USB cable and tap the record button twice.");
const QString dataCombo = QStringLiteral("devicesComboData");
const QString settingsCombo = QStringLiteral("devicesComboSettings");

} // namespace

class TestCopyDataPage : public ViewTest
{
    Q_OBJECT

    void equip() override;

private slots:
    void texts();
    void preselection_data();
    void preselection();
    void devicesAreOfferedBySerialAndManufacturer();
    void refreshingDevices();
    void thePortAtTheStart_data();
    void thePortAtTheStart();
    void theHint_data();
    void theHint();
    void typingMirrorsOneWay_data();
    void typingMirrorsOneWay();
    void ready_data();
    void ready();
    void copyData_data();
    void copyData();
    void eraseMemory_data();
    void eraseMemory();
    void theEraseMemoryPopup();
    void theEraseMemoryPopupClosesOnlyByItsButtons();
    void progress_data();
    void progress();
    void theLastReportFreesTheWindow();
    void tabReachesEveryControl();
};

void TestCopyDataPage::equip()
{
    controller.addDevice(QStringLiteral("ttyS0"), QStringLiteral("A1"), QStringLiteral("Maker"));
    controller.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA7"), QStringLiteral("Kelpora"));
    controller.moviesLocation = QStringLiteral("/home/user/Movies");
}

void TestCopyDataPage::texts()
{
    const View &view = show();
    QCOMPARE(::texts(textItems(view.page(1))),
             split("Connection:|Device|Refresh Devices||Destination:|Folder|...|Project Name|"
                   "Copy Data|Erase Memory|Progress:|Data|"));
    QCOMPARE(view.property("destinationDataText", "text").toString(), controller.moviesLocation);
    QCOMPARE(view.property("projectNameDataText", "text").toString(), QString());
    QCOMPARE(view.property("dataProgressBar", "from").toDouble(), 0.0);
    QCOMPARE(view.property("dataProgressBar", "to").toDouble(), 3.0);
    QCOMPARE(view.property("dataProgressBar", "value").toDouble(), 0.0);
}

void TestCopyDataPage::preselection_data()
{
    QTest::addColumn<Devices>("devices");
    QTest::addColumn<int>("chosen");
    const auto row = [](const char *name, const Devices &devices, int chosen) {
        QTest::newRow(name) << devices << chosen;
    };
    row("none", Devices{}, -1);
    row("KELPORA before FTDI", Devices{{"a", "FTDI1", "m"}, {"b", "xKELPORAx", "m"}}, 1);
    row("the first KELPORA", Devices{{"a", "x", "m"}, {"b", "KELPORA2", "m"}, {"c", "KELPORA1", "m"}}, 1);
    row("FTDI where there is no KELPORA",
        Devices{{"a", "x", "m"}, {"b", "y", "m"}, {"c", "1FTDI", "m"}, {"d", "FTDI", "m"}}, 2);
    row("neither leaves the choice that the drop-down has", Devices{{"a", "x", "m"}, {"b", "y", "m"}}, -1);
    row("not by the manufacturer or the name",
        Devices{{"a", "x", "m"}, {"KELPORA", "y", "KELPORA"}, {"FTDI", "z", "FTDI"}}, -1);
    row("not in small letters", Devices{{"a", "x", "m"}, {"b", "kelpora", "m"}, {"c", "ftdi", "m"}}, -1);
}

void TestCopyDataPage::preselection()
{
    QFETCH(Devices, devices);
    QFETCH(int, chosen);
    controller.devices.clear();
    for (const QStringList &device : devices)
        controller.addDevice(device.at(0), device.at(1), device.at(2));
    const View &view = show();
    for (const QString &combo : {dataCombo, settingsCombo})
        QCOMPARE(view.property(combo, "currentIndex").toInt(), chosen);
}

void TestCopyDataPage::devicesAreOfferedBySerialAndManufacturer()
{
    controller.addDevice(QStringLiteral("cu.x"), QString(), QString());
    const View &view = show();
    for (const QString &combo : {dataCombo, settingsCombo})
        QCOMPARE(offered(view.object(combo)), (QStringList{"A1 (Maker)", "KELPORA7 (Kelpora)", " ()"}));
}

void TestCopyDataPage::refreshingDevices()
{
    controller.clear();
    const View &view = show();
    equip();
    QVERIFY(view.showPage(1));
    view.click(QStringLiteral("refreshDevicesDataButton"));
    for (const QString &combo : {dataCombo, settingsCombo}) {
        QCOMPARE(view.property(combo, "count").toInt(), 2);
        QCOMPARE(view.property(combo, "currentIndex").toInt(), 1);
    }
    controller.devices.clear();
    QVERIFY(view.showPage(2));
    view.click(QStringLiteral("refreshDevicesSettingsButton"));
    for (const QString &combo : {dataCombo, settingsCombo}) {
        QCOMPARE(view.property(combo, "count").toInt(), 0);
        QCOMPARE(view.property(combo, "currentIndex").toInt(), -1);
    }
    QCOMPARE(view.property("connectButton", "enabled").toBool(), false);
}

void TestCopyDataPage::thePortAtTheStart_data()
{
    QTest::addColumn<Devices>("devices");
    QTest::addColumn<QStringList>("ports");
    QTest::newRow("the chosen one") << Devices{{"ttyA", "x", "m"}, {"ttyB", "KELPORA", "m"}}
                                    << QStringList{"ttyB"};
    QTest::newRow("left alone without devices") << Devices{} << QStringList{};
}

void TestCopyDataPage::thePortAtTheStart()
{
    QFETCH(Devices, devices);
    QFETCH(QStringList, ports);
    controller.devices.clear();
    for (const QStringList &device : devices)
        controller.addDevice(device.at(0), device.at(1), device.at(2));
    const View &view = show();
    QCOMPARE(controller.ports, ports);
    QCOMPARE(view.call("getSelectedDataDeviceName").toString(), ports.value(0));
    QCOMPARE(view.call("getSelectedSettingsDeviceName").toString(), ports.value(0));
    QCOMPARE(controller.ports, ports + ports + ports);
}

void TestCopyDataPage::theHint_data()
{
    QTest::addColumn<int>("dataIndex");
    QTest::addColumn<int>("settingsIndex");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<bool>("shown");
    QTest::newRow("with a device") << 0 << 0 << false << false;
    QTest::newRow("it follows the settings' device") << -1 << 0 << false << false;
    QTest::newRow("not this page's") << 0 << -1 << false << true;
    QTest::newRow("while a job runs") << 0 << 0 << true << true;
}

void TestCopyDataPage::theHint()
{
    QFETCH(int, dataIndex);
    QFETCH(int, settingsIndex);
    QFETCH(bool, busy);
    QFETCH(bool, shown);
    const View &view = show();
    view.set(dataCombo, "currentIndex", dataIndex);
    view.set(settingsCombo, "currentIndex", settingsIndex);
    view.window()->setProperty("dataCopying", busy);
    for (const int page : {1, 2})
        QCOMPARE(::texts(textItems(view.page(page))).count(hint), shown ? 1 : 0);
}

void TestCopyDataPage::typingMirrorsOneWay_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("typedInto");
    QTest::addColumn<QString>("other");
    QTest::addColumn<bool>("mirrored");
    const auto row = [](const char *name, int page, const QString &typedInto, const QString &other,
                        bool mirrored) { QTest::newRow(name) << page << typedInto << other << mirrored; };
    row("the folder of the files", 0, "destinationFilesText", "destinationDataText", true);
    row("the project of the files", 0, "projectNameText", "projectNameDataText", true);
    row("the folder of the data", 1, "destinationDataText", "destinationFilesText", false);
    row("the project of the data", 1, "projectNameDataText", "projectNameText", false);
}

void TestCopyDataPage::typingMirrorsOneWay()
{
    QFETCH(int, page);
    QFETCH(QString, typedInto);
    QFETCH(QString, other);
    QFETCH(bool, mirrored);
    const View &view = show();
    QVERIFY(view.showPage(page));
    const QString before = view.property(other, "text").toString();
    view.click(typedInto);
    QTest::keyClick(view.window(), Qt::Key_A, Qt::ControlModifier);
    for (const char key : {'r', 'e', 'e', 'f'})
        QTest::keyClick(view.window(), key);
    QCOMPARE(view.property(typedInto, "text").toString(), QStringLiteral("reef"));
    QCOMPARE(view.property(other, "text").toString(), mirrored ? QStringLiteral("reef") : before);
    QTest::keyClick(view.window(), Qt::Key_Backspace);
    QCOMPARE(view.property(other, "text").toString(), mirrored ? QStringLiteral("ree") : before);
}

void TestCopyDataPage::ready_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("busy");
    QTest::addColumn<bool>("copy");
    QTest::addColumn<bool>("erase");
    const auto row = [](const char *name, int device, const QString &folder, const QString &busy, bool copy,
                        bool erase) { QTest::newRow(name) << device << folder << busy << copy << erase; };
    row("a device and a folder", 0, "/dst", "", true, true);
    row("no device", -1, "/dst", "", false, false);
    row("no folder", 1, "", "", false, true);
    row("a controller job runs", 0, "/dst", "dataCopying", false, false);
    row("a card is busy", 0, "/dst", "cardTwoCopying", true, true);
}

void TestCopyDataPage::ready()
{
    QFETCH(int, device);
    QFETCH(QString, folder);
    QFETCH(QString, busy);
    QFETCH(bool, copy);
    QFETCH(bool, erase);
    const View &view = show();
    view.set(dataCombo, "currentIndex", device);
    // The other page's device says nothing here.
    view.set(settingsCombo, "currentIndex", device < 0 ? 0 : -1);
    view.set("destinationDataText", "text", folder);
    view.raise(busy);
    QCOMPARE(view.call("readyToCopyData").toBool(), copy);
    QCOMPARE(view.call("readyToEraseMemory").toBool(), erase);
    QCOMPARE(view.property("copyDataButton", "enabled").toBool(), copy);
    QCOMPARE(view.property("eraseMemoryButton", "enabled").toBool(), erase);
    // The handlers check again.
    const bool running = busy == QLatin1String("dataCopying");
    QSignalSpy copies(view.window(), SIGNAL(copyData(QString, QString, QString)));
    view.call("copyDataClicked");
    QCOMPARE(copies.size(), copy ? 1 : 0);
    QCOMPARE(view.flag("dataCopying"), copy || running);
    view.window()->setProperty("dataCopying", running);
    QSignalSpy erasures(view.window(), SIGNAL(eraseMemory(QString)));
    view.call("eraseMemoryClicked", true);
    QCOMPARE(erasures.size(), erase ? 1 : 0);
    QCOMPARE(view.flag("dataCopying"), erase || running);
}

void TestCopyDataPage::copyData_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QVariantList>("arguments");
    QTest::newRow("with a project") << 1 << "/d s t/\u00fc"
                                    << "reef" << QVariantList{"ttyUSB0", "/d s t/\u00fc", "reef"};
    QTest::newRow("another device, without a project") << 0 << "/dst"
                                                       << "" << QVariantList{"ttyS0", "/dst", ""};
}

void TestCopyDataPage::copyData()
{
    QFETCH(int, device);
    QFETCH(QString, folder);
    QFETCH(QString, project);
    QFETCH(QVariantList, arguments);
    const View &view = show();
    QVERIFY(view.showPage(1));
    view.set(dataCombo, "currentIndex", device);
    view.set(settingsCombo, "currentIndex", 1 - device);
    view.set("destinationDataText", "text", folder);
    view.set("projectNameDataText", "text", project);
    // The page's own fields count, not those of the files.
    view.set("destinationFilesText", "text", "/other");
    view.set("projectNameText", "text", "other");
    controller.ports.clear();
    QSignalSpy requests(view.window(), SIGNAL(copyData(QString, QString, QString)));
    view.click(QStringLiteral("copyDataButton"));
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first(), arguments);
    QCOMPARE(controller.ports, QStringList{arguments.first().toString()});
    QCOMPARE(view.flag("dataCopying"), true);
    for (const char *button : {"copyDataButton", "eraseMemoryButton", "connectButton", "exitButton"})
        QCOMPARE(view.property(button, "enabled").toBool(), false);
    view.click(QStringLiteral("copyDataButton"));
    QCOMPARE(requests.size(), 1);
}

void TestCopyDataPage::eraseMemory_data()
{
    QTest::addColumn<bool>("checked");
    QTest::addColumn<bool>("erase");
    QTest::newRow("erase") << true << true;
    QTest::newRow("erase, but the box is empty") << false << true;
    QTest::newRow("cancel") << true << false;
}

void TestCopyDataPage::eraseMemory()
{
    QFETCH(bool, checked);
    QFETCH(bool, erase);
    const View &view = show();
    QVERIFY(view.showPage(1));
    QSignalSpy requests(view.window(), SIGNAL(eraseMemory(QString)));
    view.click(QStringLiteral("eraseMemoryButton"));
    const QString popup = QStringLiteral("eraseMemoryPopup");
    QTRY_VERIFY(view.isOpen(popup));
    if (!checked)
        view.click(QStringLiteral("eraseMemoryBox"));
    QCOMPARE(view.property("eraseMemoryBox", "checked").toBool(), checked);
    view.click(popup + (erase ? "EraseButton" : "CancelButton"));
    const bool emitted = checked && erase;
    QCOMPARE(requests.size(), emitted ? 1 : 0);
    if (emitted)
        QCOMPARE(requests.first(), QVariantList{"ttyUSB0"});
    QCOMPARE(view.flag("dataCopying"), emitted);
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
}

void TestCopyDataPage::theEraseMemoryPopup()
{
    const View &view = show();
    QVERIFY(view.showPage(1));
    view.click(QStringLiteral("eraseMemoryButton"));
    const QString popup = QStringLiteral("eraseMemoryPopup");
    QTRY_VERIFY(view.isOpen(popup));
    QCOMPARE(::texts(textItems(view.contentOf(popup))),
             (QStringList{"Please check all that apply:", "Erase memory. This can't be undone.", "Erase",
                          "Cancel"}));
    QCOMPARE(view.property("eraseMemoryBox", "checked").toBool(), true);
    QVERIFY(view.isModalInPlace(popup));
}

void TestCopyDataPage::theEraseMemoryPopupClosesOnlyByItsButtons()
{
    const View &view = show();
    QVERIFY(view.showPage(1));
    view.click(QStringLiteral("eraseMemoryButton"));
    const QString popup = QStringLiteral("eraseMemoryPopup");
    QTRY_VERIFY(view.isOpen(popup));
    QSignalSpy requests(view.window(), SIGNAL(eraseMemory(QString)));
    QVERIFY(view.staysOpen(popup));
    // The button that does no harm has the keyboard.
    QTest::keyClick(view.window(), Qt::Key_Space);
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QCOMPARE(requests.size(), 0);
}

void TestCopyDataPage::progress_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<int>("value");
    QTest::addColumn<bool>("running");
    QTest::newRow("at the start") << 0 << 3 << 0 << true;
    QTest::newRow("a relayed message") << 0 << 2 << 1 << true;
    QTest::newRow("another start of the range") << 2 << 8 << 4 << true;
    QTest::newRow("at the end") << 0 << 3 << 3 << false;
    QTest::newRow("past the end") << 0 << 3 << 4 << false;
    QTest::newRow("an error at once") << 0 << 0 << 0 << false;
}

void TestCopyDataPage::progress()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(int, value);
    QFETCH(bool, running);
    for (const bool openBefore : {false, true}) {
        const View &view = show();
        const QString wait = QStringLiteral("waitPopup");
        if (openBefore) {
            QMetaObject::invokeMethod(view.object(wait), "open");
            QTRY_VERIFY(view.isOpen(wait));
            view.set(wait, "text", "before");
        }
        const QString text = QStringLiteral("Run %1 <b>&amp;</b>");
        view.call("updateDataProgress", from, to, value, text);
        QCOMPARE(view.property("dataProgressBar", "from").toDouble(), double(from));
        QCOMPARE(view.property("dataProgressBar", "to").toDouble(), double(to));
        QCOMPARE(view.property("dataProgressBar", "value").toDouble(), double(qMin(value, to)));
        QCOMPARE(view.property("dataProgressText", "text").toString(), text);
        QCOMPARE(view.property("settingsProgressText", "text").toString(), QString());
        QCOMPARE(view.flag("dataCopying"), running);
        QCOMPARE(view.property(wait, "text").toString(), running ? text : QString());
        QTRY_COMPARE(view.property(wait, "visible").toBool(), running);
        QTRY_COMPARE(view.isOpen(wait), running);
    }
}

void TestCopyDataPage::theLastReportFreesTheWindow()
{
    const View &view = show();
    QVERIFY(view.showPage(1));
    view.click(QStringLiteral("copyDataButton"));
    view.call("updateDataProgress", 0, 3, 1, QStringLiteral("Run 1"));
    QTRY_VERIFY(view.isOpen(QStringLiteral("waitPopup")));
    const QStringList buttons = {"copyDataButton", "eraseMemoryButton", "connectButton", "exitButton"};
    for (const QString &button : buttons)
        QCOMPARE(view.property(button, "enabled").toBool(), false);
    view.call("updateDataProgress", 0, 3, 3, QStringLiteral("Done"));
    for (const QString &button : buttons)
        QCOMPARE(view.property(button, "enabled").toBool(), true);
    QTRY_COMPARE(view.property("waitPopup", "visible").toBool(), false);
}

void TestCopyDataPage::tabReachesEveryControl()
{
    const View &view = show();
    QVERIFY(view.showPage(1));
    view.item(dataCombo)->forceActiveFocus(Qt::TabFocusReason);
    QCOMPARE(view.tabThrough(7),
             (QStringList{"devicesComboData", "refreshDevicesDataButton", "destinationDataText", "...",
                          "projectNameDataText", "copyDataButton", "eraseMemoryButton"}));
    QCOMPARE(view.window()->activeFocusItem()->objectName(), QStringLiteral("exitButton"));
}

QTEST_MAIN(TestCopyDataPage)
#include "tst_copydatapage.moc"
