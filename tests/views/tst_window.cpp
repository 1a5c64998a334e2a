#include "tests/views/view.h"

#include <QtTest>

#include <functional>
#include <utility>

namespace {

const QString message = QStringLiteral("messagePopup");
const QString wait = QStringLiteral("waitPopup");

using Step = std::function<void(const View &)>;

void report(const View &view, int value)
{
    view.call("updateCameraSettingsProgress", 0, 2, value, QStringLiteral("Reading the settings"));
}

void close(const View &view)
{
    view.window()->close();
}

QQuickItem *okButton(const View &view)
{
    return textItems(view.contentOf(message)).last();
}

/// True if not more than one pixel of a hundred differs.
bool looksLike(const QImage &picture, const QImage &other)
{
    int differing = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            differing += picture.pixel(x, y) != other.pixel(x, y) ? 1 : 0;
    }
    return picture.size() == other.size() && differing * 100 <= picture.width() * picture.height();
}

/// The picture of the message's text once nothing moves.
QImage pictureOfMessage(const View &view)
{
    const QQuickItem *label = view.item(QStringLiteral("messageText"));
    const QRectF place = label->mapRectToScene(QRectF(0, 0, label->width(), label->height()));
    QImage before;
    QImage picture = view.window()->grabWindow();
    while (picture != before) {
        QTest::qWait(50);
        before = std::exchange(picture, view.window()->grabWindow());
    }
    return picture.copy(place.toAlignedRect());
}

} // namespace

Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(QList<Step>)

/// The window itself: how it closes, and where the keyboard starts.
class TestWindow : public ViewTest
{
    Q_OBJECT

    void equip() override;

private slots:
    void closing_data();
    void closing();
    void theMessageAboveTheWait_data();
    void theMessageAboveTheWait();
    void theFirstTab_data();
    void theFirstTab();
};

void TestWindow::equip()
{
    controller.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA7"), QStringLiteral("Kelpora"));
}

void TestWindow::closing_data()
{
    QTest::addColumn<QList<Step>>("steps");
    QTest::addColumn<bool>("closed");
    QTest::addColumn<bool>("told");
    const Step begin = [](const View &view) { report(view, 1); };
    const Step end = [](const View &view) { report(view, 2); };
    const Step click = [](const View &view) { view.call("connectButtonClicked"); };
    const Step card = [](const View &view) { view.call("updateCardProgress", 1, 0, 2, 1, "Copying"); };
    const Step endSession = [](const View &view) { view.window()->setProperty("sessionEnding", true); };
    const Step ok = [](const View &view) {
        QTRY_VERIFY(view.isOpen(message));
        view.click(okButton(view));
        QTRY_VERIFY(!view.property(message, "visible").toBool());
    };
    const auto row = [](const char *name, const QList<Step> &steps, bool closed, bool told) {
        QTest::newRow(name) << steps << closed << told;
    };
    row("nothing runs", {close}, true, false);
    row("a card is busy", {card, close}, true, false);
    row("a controller job was only clicked", {click, close}, false, true);
    row("a controller job runs", {begin, close}, false, true);
    row("the second attempt", {begin, close, close}, true, true);
    row("the second attempt after Ok and more reports", {begin, close, ok, begin, begin, close}, true, false);
    row("the job has ended", {begin, end, close}, true, false);
    row("the job has ended after the first attempt", {begin, close, end, close}, true, false);
    row("the next job counts anew", {begin, close, ok, end, begin, close}, false, true);
    row("the second attempt during the next job", {begin, close, end, begin, close, close}, true, true);
    row("the session ends", {begin, endSession, close}, true, false);
    row("the session ends after the first attempt", {begin, close, ok, endSession, close}, true, false);
}

void TestWindow::closing()
{
    QFETCH(QList<Step>, steps);
    QFETCH(bool, closed);
    QFETCH(bool, told);
    const View &view = show();
    for (const Step &step : steps)
        step(view);
    QCOMPARE(!view.window()->isVisible(), closed);
    QCOMPARE(view.property(message, "visible").toBool(), told);
    if (!told)
        return;
    const QString text = view.property("messageText", "text").toString();
    QVERIFY2(text.contains(QStringLiteral("controller")) && text.contains(QStringLiteral("again")),
             qPrintable(text));
}

void TestWindow::theMessageAboveTheWait_data()
{
    QTest::addColumn<bool>("waitsFirst");
    QTest::addColumn<bool>("byKey");
    QTest::newRow("after the wait, Ok clicked") << true << false;
    QTest::newRow("after the wait, Ok by the keyboard") << true << true;
    QTest::newRow("before the wait, Ok clicked") << false << false;
    QTest::newRow("before the wait, Ok by the keyboard") << false << true;
}

void TestWindow::theMessageAboveTheWait()
{
    QFETCH(bool, waitsFirst);
    QFETCH(bool, byKey);
    const View &view = show();
    const Step openWait = [](const View &shown) {
        report(shown, 1);
        QTRY_VERIFY(shown.isOpen(wait));
    };
    if (waitsFirst)
        openWait(view);
    else
        view.window()->setProperty("dataCopying", true);
    close(view);
    QTRY_VERIFY(view.isOpen(message));
    if (!waitsFirst)
        openWait(view);
    const QImage above = pictureOfMessage(view);
    view.call("updateCameraSettingsProgress", 0, 2, 1, QStringLiteral("Another text\n").repeated(9));
    QVERIFY(looksLike(pictureOfMessage(view), above));

    if (byKey)
        QTest::keyClick(view.window(), Qt::Key_Space);
    else
        view.click(okButton(view));
    QTRY_VERIFY(!view.property(message, "visible").toBool());
    QVERIFY(view.isOpen(wait));
    QVERIFY(view.window()->isVisible());
    // The keyboard stays away from the page.
    QCOMPARE(view.property(wait, "activeFocus").toBool(), true);
}

void TestWindow::theFirstTab_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("first");
    QTest::newRow("Copy Files") << 0 << "card1Combo";
    QTest::newRow("Copy Data") << 1 << "devicesComboData";
    QTest::newRow("Settings") << 2 << "devicesComboSettings";
}

void TestWindow::theFirstTab()
{
    QFETCH(int, page);
    QFETCH(QString, first);
    const View &view = show();
    QVERIFY(view.showPage(page));
    QTest::keyClick(view.window(), Qt::Key_Tab);
    QCOMPARE(view.window()->activeFocusItem()->objectName(), first);
    QTest::keyClick(view.window(), Qt::Key_Tab);
    QVERIFY(view.window()->activeFocusItem()->objectName() != first);
}

QTEST_MAIN(TestWindow)
#include "tst_window.moc"
