#include "tests/views/view.h"

#include <QtTest>

namespace {

const QPoint outside(350, 850);

} // namespace

class TestPopups : public ViewTest
{
    Q_OBJECT

private slots:
    void theMessage();
    void theMessageCloses_data();
    void theMessageCloses();
    void theWait();
    void theWaitClosesOnlyByTheProgram_data();
    void theWaitClosesOnlyByTheProgram();
    void keepsPressesFromTheWindow_data();
    void keepsPressesFromTheWindow();
    void longTextsStayInTheWindow_data();
    void longTextsStayInTheWindow();
    void textsAreShownAsTheyAreWritten();
    void enterPressesTheButton_data();
    void enterPressesTheButton();
    void aClickRightAfterAJobIsTaken_data();
    void aClickRightAfterAJobIsTaken();
    void boxesBeginChecked_data();
    void boxesBeginChecked();

private:
    static bool open(const View &view, const QString &popup);
};

bool TestPopups::open(const View &view, const QString &popup)
{
    QMetaObject::invokeMethod(view.object(popup), "open");
    return QTest::qWaitFor([&] { return view.property(popup, "opened").toBool(); });
}

void TestPopups::theMessage()
{
    const View &view = show();
    const QString popup = QStringLiteral("messagePopup");
    QCOMPARE(view.property(popup, "visible").toBool(), false);
    view.object(popup)->setProperty("text", "Something happened.");
    QVERIFY(open(view, popup));
    QCOMPARE(view.property(popup, "modal").toBool(), true);
    QCOMPARE(view.property(popup, "x").toDouble(), 100.0);
    QCOMPARE(view.property(popup, "y").toDouble(), 100.0);
    QCOMPARE(texts(textItems(view.contentOf(popup))), (QStringList{"Info", "Something happened.", "Ok"}));
    QCOMPARE(view.property(QStringLiteral("messageText"), "text").toString(),
             QStringLiteral("Something happened."));
}

void TestPopups::theMessageCloses_data()
{
    QTest::addColumn<QString>("by");
    QTest::newRow("by Escape") << "escape";
    QTest::newRow("by a press outside") << "outside";
    QTest::newRow("by its button") << "button";
}

void TestPopups::theMessageCloses()
{
    QFETCH(QString, by);
    const View &view = show();
    const QString popup = QStringLiteral("messagePopup");
    QVERIFY(open(view, popup));
    if (by == QLatin1String("escape"))
        QTest::keyClick(view.window(), Qt::Key_Escape);
    else if (by == QLatin1String("outside"))
        QTest::mouseClick(view.window(), Qt::LeftButton, Qt::NoModifier, outside);
    else
        view.click(textItems(view.contentOf(popup)).last());
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
}

void TestPopups::theWait()
{
    const View &view = show();
    const QString popup = QStringLiteral("waitPopup");
    QCOMPARE(view.property(popup, "visible").toBool(), false);
    QVERIFY(open(view, popup));
    QCOMPARE(view.property(popup, "modal").toBool(), true);
    QCOMPARE(view.property(popup, "x").toDouble(), 100.0);
    QCOMPARE(view.property(popup, "y").toDouble(), 100.0);
    QCOMPARE(texts(textItems(view.contentOf(popup))), (QStringList{"Please wait ...", ""}));
    view.object(popup)->setProperty("text", "Half of it is done.");
    QCOMPARE(view.property(QStringLiteral("waitText"), "text").toString(),
             QStringLiteral("Half of it is done."));
}

void TestPopups::theWaitClosesOnlyByTheProgram_data()
{
    QTest::addColumn<bool>("key");
    QTest::newRow("not by Escape") << true;
    QTest::newRow("not by a press outside") << false;
}

void TestPopups::theWaitClosesOnlyByTheProgram()
{
    QFETCH(bool, key);
    const View &view = show();
    const QString popup = QStringLiteral("waitPopup");
    QVERIFY(open(view, popup));
    if (key)
        QTest::keyClick(view.window(), Qt::Key_Escape);
    else
        QTest::mouseClick(view.window(), Qt::LeftButton, Qt::NoModifier, outside);
    // "opened" falls at once when a popup begins to close.
    QTest::qWait(50);
    QCOMPARE(view.property(popup, "opened").toBool(), true);
    QMetaObject::invokeMethod(view.object(popup), "close");
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
}

void TestPopups::keepsPressesFromTheWindow_data()
{
    QTest::addColumn<QString>("popup");
    QTest::newRow("message") << "messagePopup";
    QTest::newRow("wait") << "waitPopup";
}

void TestPopups::keepsPressesFromTheWindow()
{
    QFETCH(QString, popup);
    const View &view = show();
    QVERIFY(open(view, popup));
    view.click(QStringLiteral("exitButton"));
    QVERIFY(view.window()->isVisible());
}

void TestPopups::longTextsStayInTheWindow_data()
{
    QTest::addColumn<QString>("popup");
    QTest::addColumn<QString>("label");
    QTest::addColumn<bool>("endShown");
    QTest::newRow("the message shows its first lines") << "messagePopup"
                                                       << "messageText" << false;
    QTest::newRow("the wait shows its last lines") << "waitPopup"
                                                   << "waitText" << true;
}

void TestPopups::longTextsStayInTheWindow()
{
    QFETCH(QString, popup);
    QFETCH(QString, label);
    QFETCH(bool, endShown);
    const View &view = show();
    QVERIFY(open(view, popup));
    for (const int lines : {1, 500}) {
        view.object(popup)->setProperty("text", QStringLiteral("Writing a page ... done.\n").repeated(lines));
        const QQuickItem *content = view.contentOf(popup);
        QTRY_VERIFY(content->mapToScene(QPointF(0, content->height())).y() < view.window()->height());
        const QQuickItem *text = view.item(label);
        const QQuickItem *shown = text->parentItem()->parentItem();
        const double top = text->mapToItem(shown, QPointF(0, 0)).y();
        const double bottom = text->mapToItem(shown, QPointF(0, text->height())).y();
        QTRY_COMPARE(lines == 1 || endShown, bottom < shown->height() + 1);
        QCOMPARE(lines == 1 || !endShown, top > -1);
    }
}

void TestPopups::textsAreShownAsTheyAreWritten()
{
    const View &view = show();
    const int plainText = 0;
    for (const char *label : {"messageText", "waitText", "card1ProgressText", "dataProgressText",
                              "settingsProgressText", "firmwareText", "batteryText"})
        QCOMPARE(view.property(QLatin1String(label), "textFormat").toInt(), plainText);
}

void TestPopups::enterPressesTheButton_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("Return") << int(Qt::Key_Return);
    QTest::newRow("Enter of the number pad") << int(Qt::Key_Enter);
    QTest::newRow("the space bar") << int(Qt::Key_Space);
}

void TestPopups::enterPressesTheButton()
{
    QFETCH(int, key);
    const View &view = show();
    for (const char *popup : {"messagePopup", "eraseCardsPopup", "eraseMemoryPopup"}) {
        QVERIFY(open(view, QLatin1String(popup)));
        QTest::keyClick(view.window(), static_cast<Qt::Key>(key));
        QTRY_COMPARE(view.property(QLatin1String(popup), "visible").toBool(), false);
    }
}

void TestPopups::aClickRightAfterAJobIsTaken_data()
{
    QTest::addColumn<bool>("read");
    QTest::newRow("a final report") << false;
    QTest::newRow("settings that were read") << true;
}

void TestPopups::aClickRightAfterAJobIsTaken()
{
    QFETCH(bool, read);
    const View &view = show();
    QVERIFY(view.showPage(2));
    view.call("updateCameraSettingsProgress", 0, 2, 1, QStringLiteral("Connecting ..."));
    QTRY_VERIFY(view.isOpen(QStringLiteral("waitPopup")));
    controller.asked.clear();
    if (read)
        view.call("updateCameraSettings", "1.24", "50 %", "2019-02-21 22:46:44", 0, 2.0, 20.0, 45.0, 30);
    else
        view.call("updateCameraSettingsProgress", 0, 2, 2, QStringLiteral("Done."));
    view.click(QStringLiteral("refreshDevicesSettingsButton"));
    QCOMPARE(controller.asked, QStringList{"getDevices"});
}

void TestPopups::boxesBeginChecked_data()
{
    QTest::addColumn<QString>("popup");
    QTest::addColumn<QStringList>("boxes");
    QTest::newRow("erase cards") << "eraseCardsPopup" << QStringList{"eraseCardsBox", "syncConfigBox"};
    QTest::newRow("erase memory") << "eraseMemoryPopup" << QStringList{"eraseMemoryBox"};
}

void TestPopups::boxesBeginChecked()
{
    QFETCH(QString, popup);
    QFETCH(QStringList, boxes);
    const View &view = show();
    for (int time = 0; time < 2; ++time) {
        QVERIFY(open(view, popup));
        for (const QString &box : boxes) {
            QCOMPARE(view.property(box, "checked").toBool(), true);
            view.click(box);
            QCOMPARE(view.property(box, "checked").toBool(), false);
        }
        view.click(popup + QStringLiteral("CancelButton"));
        QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    }
}

QTEST_MAIN(TestPopups)
#include "tst_popups.moc"
