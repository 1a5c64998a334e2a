#include "tests/views/view.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

const char *const eraseSignature = SIGNAL(eraseCards(QString, QString, QString, bool, bool));
const QString popup = QStringLiteral("eraseCardsPopup");

bool openPopup(const View &view)
{
    view.click(QStringLiteral("eraseCardsButton"));
    return QTest::qWaitFor([&] { return view.isOpen(popup); });
}

} // namespace

class TestEraseCards : public ViewTest
{
    Q_OBJECT

    void equip() override;
    const View &showPopup();

private slots:
    void thePopup();
    void answers_data();
    void answers();
    void cancel();
    void onlyTheFirstAnswerCounts_data();
    void onlyTheFirstAnswerCounts();
    void cards_data();
    void cards();
    void ready_data();
    void ready();
    void theReportsSetTheFlags();
    void closesOnlyByItsButtons();
    void tabStaysInThePopup();
    void tabReachesEveryControlOfThePage();
};

void TestEraseCards::equip()
{
    for (const char *card : {"1", "2", "3"})
        ScriptedController::append(&controller.drives, QStringLiteral("/m/") + QLatin1String(card),
                                   QStringLiteral("KELPORA360_") + QLatin1String(card));
}

const View &TestEraseCards::showPopup()
{
    const View &view = show();
    if (!openPopup(view))
        qFatal("The popup isn't shown");
    return view;
}

void TestEraseCards::thePopup()
{
    const View &view = showPopup();
    QCOMPARE(::texts(textItems(view.contentOf(popup))),
             (QStringList{"Please check all that apply:", "Erase cards. This can't be undone.",
                          "Write sync configuration files", "Erase", "Cancel"}));
    QCOMPARE(view.property("eraseCardsBox", "checked").toBool(), true);
    QCOMPARE(view.property("syncConfigBox", "checked").toBool(), true);
    QVERIFY(view.isModalInPlace(popup));
}

void TestEraseCards::answers_data()
{
    QTest::addColumn<bool>("erase");
    QTest::addColumn<bool>("sync");
    QTest::newRow("both") << true << true;
    QTest::newRow("erase alone") << true << false;
    QTest::newRow("configuration alone") << false << true;
    QTest::newRow("neither") << false << false;
}

void TestEraseCards::answers()
{
    QFETCH(bool, erase);
    QFETCH(bool, sync);
    const View &view = showPopup();
    if (!erase)
        view.click(QStringLiteral("eraseCardsBox"));
    if (!sync)
        view.click(QStringLiteral("syncConfigBox"));
    QSignalSpy requests(view.window(), eraseSignature);
    view.click(popup + QStringLiteral("EraseButton"));
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first(), (QVariantList{"/m/1", "/m/2", "/m/3", erase, sync}));
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    // Only the reports of the cards raise the flags.
    for (const char *flag : {"cardOneCopying", "cardTwoCopying", "cardThreeCopying"})
        QCOMPARE(view.flag(flag), false);
}

void TestEraseCards::cancel()
{
    const View &view = showPopup();
    QSignalSpy requests(view.window(), eraseSignature);
    view.click(popup + QStringLiteral("CancelButton"));
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QCOMPARE(requests.size(), 0);
}

void TestEraseCards::onlyTheFirstAnswerCounts_data()
{
    QTest::addColumn<QStringList>("presses");
    QTest::addColumn<int>("expected");
    QTest::newRow("erase again") << QStringList{"Erase", "Erase", "Erase"} << 1;
    QTest::newRow("erase after cancel") << QStringList{"Cancel", "Erase"} << 0;
}

void TestEraseCards::onlyTheFirstAnswerCounts()
{
    QFETCH(QStringList, presses);
    QFETCH(int, expected);
    const View &view = show();
    QSignalSpy requests(view.window(), eraseSignature);
    // The second time it is a new question.
    for (int time = 1; time <= 2; ++time) {
        QVERIFY(openPopup(view));
        // What was pressed while the cards were erased comes when the popup has gone.
        for (const QString &press : presses)
            view.click(popup + press + QStringLiteral("Button"));
        QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
        QCOMPARE(requests.size(), time * expected);
    }
}

void TestEraseCards::cards_data()
{
    QTest::addColumn<QList<int>>("chosen");
    QTest::addColumn<QVariantList>("roots");
    QTest::newRow("three") << QList<int>{0, 1, 2} << QVariantList{"/m/1", "/m/2", "/m/3"};
    QTest::newRow("the second alone") << QList<int>{-1, 0, -1} << QVariantList{"", "/m/1", ""};
    QTest::newRow("the third alone") << QList<int>{-1, -1, 2} << QVariantList{"", "", "/m/3"};
    QTest::newRow("in another order") << QList<int>{2, 0, -1} << QVariantList{"/m/3", "/m/1", ""};
}

void TestEraseCards::cards()
{
    QFETCH(QList<int>, chosen);
    QFETCH(QVariantList, roots);
    const View &view = show();
    chooseCards(view, chosen);
    QVERIFY(openPopup(view));
    QSignalSpy requests(view.window(), eraseSignature);
    view.click(popup + QStringLiteral("EraseButton"));
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first(), roots + QVariantList({true, true}));
}

void TestEraseCards::ready_data()
{
    QTest::addColumn<QList<int>>("chosen");
    QTest::addColumn<QString>("busy");
    QTest::addColumn<bool>("ready");
    QTest::newRow("three cards") << QList<int>{0, 1, 2} << "" << true;
    QTest::newRow("the first alone") << QList<int>{0, -1, -1} << "" << true;
    QTest::newRow("the second alone") << QList<int>{-1, 0, -1} << "" << true;
    QTest::newRow("the third alone") << QList<int>{-1, -1, 0} << "" << true;
    QTest::newRow("no card") << QList<int>{-1, -1, -1} << "" << false;
    QTest::newRow("the first card is busy") << QList<int>{0, 1, 2} << "cardOneCopying" << false;
    QTest::newRow("the second card is busy") << QList<int>{0, 1, 2} << "cardTwoCopying" << false;
    QTest::newRow("the third card is busy") << QList<int>{0, 1, 2} << "cardThreeCopying" << false;
    QTest::newRow("a controller job runs") << QList<int>{0, 1, 2} << "dataCopying" << true;
}

void TestEraseCards::ready()
{
    QFETCH(QList<int>, chosen);
    QFETCH(QString, busy);
    QFETCH(bool, ready);
    const View &view = show();
    chooseCards(view, chosen);
    // No folder is needed.
    view.set("destinationFilesText", "text", "");
    view.raise(busy);
    QCOMPARE(view.call("readyToEraseCards").toBool(), ready);
    QCOMPARE(view.property("eraseCardsButton", "enabled").toBool(), ready);
    QSignalSpy requests(view.window(), eraseSignature);
    view.call("eraseCardsClicked", true, false);
    QCOMPARE(requests.size(), ready ? 1 : 0);
}

void TestEraseCards::theReportsSetTheFlags()
{
    const View &view = showPopup();
    view.click(popup + QStringLiteral("EraseButton"));
    view.call("updateCardProgress", 2, 0, 2, 1, QStringLiteral("Erasing"));
    QCOMPARE(view.flag("cardTwoCopying"), true);
    QCOMPARE(view.property("card2ProgressText", "text").toString(), QStringLiteral("Erasing"));
    QCOMPARE(view.property("eraseCardsButton", "enabled").toBool(), false);
    QCOMPARE(view.property("exitButton", "enabled").toBool(), false);
    view.call("updateCardProgress", 2, 0, 2, 2, QStringLiteral("Erased and prepared."));
    QCOMPARE(view.flag("cardTwoCopying"), false);
    QCOMPARE(view.property("eraseCardsButton", "enabled").toBool(), true);
    QCOMPARE(view.property("exitButton", "enabled").toBool(), true);
}

void TestEraseCards::closesOnlyByItsButtons()
{
    const View &view = showPopup();
    QSignalSpy requests(view.window(), eraseSignature);
    QVERIFY(view.staysOpen(popup));
    // The button that does no harm has the keyboard.
    QTest::keyClick(view.window(), Qt::Key_Space);
    QTRY_COMPARE(view.property(popup, "visible").toBool(), false);
    QCOMPARE(requests.size(), 0);
}

void TestEraseCards::tabStaysInThePopup()
{
    const View &view = showPopup();
    view.item(QStringLiteral("eraseCardsBox"))->forceActiveFocus(Qt::TabFocusReason);
    QCOMPARE(view.tabThrough(5), (QStringList{"eraseCardsBox", "syncConfigBox", popup + "EraseButton",
                                              popup + "CancelButton", "eraseCardsBox"}));
}

void TestEraseCards::tabReachesEveryControlOfThePage()
{
    ScriptedController::append(&controller.templates, QStringLiteral("/t/x.kava"), QStringLiteral("x"));
    controller.moviesLocation = QStringLiteral("/movies");
    const View &view = show();
    const QStringList expected =
        split("card1Combo|...|card2Combo|...|card3Combo|...|refreshCardsButton|eraseCardsButton|"
              "destinationFilesText|...|projectNameText|Change|templateCombo|...|"
              "refreshTemplatesButton|copyFilesButton|exitButton|Copy Files|Copy Data|Settings|"
              "card1Combo");
    view.item(expected.first())->forceActiveFocus(Qt::TabFocusReason);
    QCOMPARE(view.tabThrough(expected.size()), expected);
}

QTEST_MAIN(TestEraseCards)
#include "tst_erasecards.moc"
