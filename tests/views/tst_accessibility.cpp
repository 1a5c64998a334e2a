#include "tests/views/view.h"

#include <QAccessible>
#include <QtTest>

/// What the operator has who doesn't use the mouse or the screen.
class TestAccessibility : public ViewTest
{
    Q_OBJECT

private slots:
    void initTestCase() { QAccessible::setActive(true); }
    void keysPressButtons_data();
    void keysPressButtons();
    void keysChooseTabs_data() { keysPressButtons_data(); }
    void keysChooseTabs();
    void aKeyHeldDownPressesOnce();
    void slidersTellTheirRange_data();
    void slidersTellTheirRange();
    void popupsHaveANameAndARole_data();
    void popupsHaveANameAndARole();
    void pagesHaveANameAndARole();
    void disabledControlsSaySo();
};

namespace {

QAccessibleInterface *accessible(QObject *object)
{
    QAccessibleInterface *found = QAccessible::queryAccessibleInterface(object);
    if (found == nullptr)
        qFatal("A screen reader is not told of %s", qPrintable(object->objectName()));
    return found;
}

} // namespace

void TestAccessibility::keysPressButtons_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("Return") << int(Qt::Key_Return);
    QTest::newRow("Enter of the number pad") << int(Qt::Key_Enter);
    QTest::newRow("the space bar") << int(Qt::Key_Space);
}

void TestAccessibility::keysPressButtons()
{
    QFETCH(int, key);
    const View &view = show();
    controller.asked.clear();
    view.item(QStringLiteral("refreshCardsButton"))->forceActiveFocus(Qt::TabFocusReason);
    QTest::keyClick(view.window(), static_cast<Qt::Key>(key));
    QCOMPARE(controller.asked, QStringList{"getDrives"});
}

void TestAccessibility::keysChooseTabs()
{
    QFETCH(int, key);
    const View &view = show();
    QList<QQuickItem *> tabs;
    for (QQuickItem *item : textItems(view.window()->contentItem())) {
        if (item->inherits("QQuickTabButton"))
            tabs.append(item);
    }
    // The second time it is the chosen one already.
    for (const int pressed : {1, 1, 0, 2}) {
        tabs.at(pressed)->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(view.window(), static_cast<Qt::Key>(key));
        for (int tab = 0; tab < tabs.size(); ++tab)
            QCOMPARE(tabs.at(tab)->property("checked").toBool(), tab == pressed);
        QTRY_COMPARE(view.page(pressed)->mapToScene(QPointF(0, 0)).x(), 0.0);
    }
}

void TestAccessibility::aKeyHeldDownPressesOnce()
{
    ScriptedController::append(&controller.drives, QStringLiteral("/m/1"), QStringLiteral("KELPORA360_1"));
    const View &view = show();
    view.item(QStringLiteral("eraseCardsButton"))->forceActiveFocus(Qt::TabFocusReason);
    for (const bool repeated : {false, true, true}) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, QString(), repeated);
        QCoreApplication::sendEvent(view.window(), &press);
    }
    // Once more would have answered the question that the first press opened.
    QVERIFY(view.isOpen(QStringLiteral("eraseCardsPopup")));
}

void TestAccessibility::slidersTellTheirRange_data()
{
    QTest::addColumn<QString>("slider");
    QTest::addColumn<QVariantList>("expected");
    QTest::newRow("video interval") << "videoIntervalSlider" << QVariantList{0.2, 1.0, 10.0};
    QTest::newRow("photo interval") << "photoIntervalSlider" << QVariantList{5.0, 5.0, 120.0};
    QTest::newRow("photo timeout") << "photoTimeoutSlider" << QVariantList{5.0, 90.0, 360.0};
}

void TestAccessibility::slidersTellTheirRange()
{
    QFETCH(QString, slider);
    QFETCH(QVariantList, expected);
    const View &view = show();
    QAccessibleValueInterface *range = accessible(view.item(slider))->valueInterface();
    QVERIFY(range != nullptr);
    QCOMPARE((QVariantList{range->minimumValue(), range->currentValue(), range->maximumValue()}), expected);
}

void TestAccessibility::popupsHaveANameAndARole_data()
{
    QTest::addColumn<QString>("popup");
    QTest::addColumn<QString>("name");
    QTest::newRow("message") << "messagePopup"
                             << "Info";
    QTest::newRow("wait") << "waitPopup"
                          << "Please wait ...";
    QTest::newRow("erase cards") << "eraseCardsPopup"
                                 << "Erase Cards";
    QTest::newRow("erase memory") << "eraseMemoryPopup"
                                  << "Erase Memory";
    QTest::newRow("angles") << "stitchPopup"
                            << "Custom camera calibration settings";
}

void TestAccessibility::popupsHaveANameAndARole()
{
    QFETCH(QString, popup);
    QFETCH(QString, name);
    controller.settings.insert(QStringLiteral("Serialnumber"), QString());
    for (const char *camera : {"Camera1", "Camera2", "Camera3"}) {
        for (const char *key : {"Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"})
            controller.settings.insert(QLatin1String(camera) + QLatin1String(key), QString());
    }
    const View &view = show();
    view.click(view.rowButton(0, QStringLiteral("Camera Angles")));
    QMetaObject::invokeMethod(view.object(popup), "open");
    QTRY_VERIFY(view.isOpen(popup));
    QAccessibleInterface *dialog = accessible(view.contentOf(popup)->parentItem());
    QCOMPARE(dialog->role(), QAccessible::Dialog);
    QCOMPARE(dialog->text(QAccessible::Name), name);
}

void TestAccessibility::pagesHaveANameAndARole()
{
    const View &view = show();
    const QStringList names{"Copy Files", "Copy Data", "Settings"};
    for (int i = 0; i < names.size(); ++i) {
        QAccessibleInterface *page = accessible(view.page(i));
        QCOMPARE(page->role(), QAccessible::Pane);
        QCOMPARE(page->text(QAccessible::Name), names.at(i));
    }
}

void TestAccessibility::disabledControlsSaySo()
{
    const View &view = show();
    QAccessibleInterface *copy = accessible(view.item(QStringLiteral("copyDataButton")));
    QCOMPARE(copy->text(QAccessible::Description), QStringLiteral("Disabled"));
    controller.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA1"), QStringLiteral("maker"));
    controller.moviesLocation = QStringLiteral("/home/diver/Videos");
    view.call("refreshDevices");
    view.call("refreshDestination");
    QCOMPARE(copy->text(QAccessible::Description), QString());
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
