#include "tests/views/view.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

using Entries = QList<QPair<QString, QString>>;

const QList<const char *> cardFlags = {"cardOneCopying", "cardTwoCopying", "cardThreeCopying"};

QVariantList listOf(const Entries &entries)
{
    QVariantList list;
    for (const auto &entry : entries)
        ScriptedController::append(&list, entry.first, entry.second);
    return list;
}

Entries threeCards()
{
    return {{QStringLiteral("/media/a"), QStringLiteral("KELPORA360_1")},
            {QStringLiteral("/media/b"), QStringLiteral("KELPORA360_2")},
            {QStringLiteral("/media/c"), QStringLiteral("KELPORA360_3")}};
}

QList<bool> flags(const View &view)
{
    QList<bool> raised;
    for (const char *flag : cardFlags)
        raised.append(view.flag(flag));
    return raised;
}

} // namespace

class TestCopyFilesPage : public ViewTest
{
    Q_OBJECT

    void equip() override;

private slots:
    void theWindow();
    void texts();
    void theTabs();
    void theVersion_data();
    void theVersion();
    void drivesAreOfferedByNameAndPath();
    void preselection_data();
    void preselection();
    void refreshingCards();
    void refreshingTemplates();
    void emptyLists();
    void theMoviesFolderIsTheFirstDestination();
    void theListShowsNamesAsTheyAre_data();
    void theListShowsNamesAsTheyAre();
    void theAnglesText_data();
    void theAnglesText();
    void copyFiles_data();
    void copyFiles();
    void readyToCopyFiles_data();
    void readyToCopyFiles();
    void clickingRaisesTheFlags();
    void readyToExit_data();
    void readyToExit();
    void exitClosesTheWindow();
    void progress_data();
    void progress();
    void progressOfOtherNumbersIsIgnored_data();
    void progressOfOtherNumbersIsIgnored();
    void theLastReportsOfThreeCardsEndTheImport();
    void reportsInQuickSuccession();
    void endsThatAreLong_data();
    void endsThatAreLong();
};

void TestCopyFilesPage::equip()
{
    controller.drives = listOf(threeCards());
    controller.templates = listOf({{QStringLiteral("/templates/b.kava"), QStringLiteral("b")},
                                   {QStringLiteral("/templates/A.kava"), QStringLiteral("A")}});
    controller.settings = {{QStringLiteral("OverwriteAngles"), QStringLiteral("1")}};
    controller.moviesLocation = QStringLiteral("/home/user/Movies");
}

void TestCopyFilesPage::theWindow()
{
    const View &view = show();
    QCOMPARE(view.window()->title(), QStringLiteral("Kelpora 360"));
    QCOMPARE(view.window()->size(), QSize(700, 920));
    QCOMPARE(view.window()->minimumSize(), QSize(700, 920));
    QCOMPARE(view.window()->maximumSize(), QSize(700, 920));
}

void TestCopyFilesPage::texts()
{
    const View &view = show();
    QQuickItem *page = view.page(0);
    const QStringList expected =
        split("Source:|Card 1|...|Card 2|...|Card 3|...|Refresh Cards|Erase Cards|Destination:|"
              "Folder|...|Project Name|Stitching:|Camera Angles|"
              "Overwrite camera angles in template.|Change|Template|...|Refresh Templates|"
              "Copy Files|Progress:|Card 1||Card 2||Card 3|");
    const QList<QQuickItem *> items = textItems(page);
    QCOMPARE(::texts(items), expected);
    // The style would set the texts of buttons in capitals.
    for (const QQuickItem *item : items)
        QCOMPARE(item->property("font").value<QFont>().capitalization(), QFont::MixedCase);
    for (const QQuickItem *item : items)
        QVERIFY2(item->isVisible(), qPrintable(item->property("text").toString()));
    QCOMPARE(view.property(QStringLiteral("exitButton"), "text").toString(), QStringLiteral("Exit"));
}

void TestCopyFilesPage::theTabs()
{
    const View &view = show();
    QStringList tabs;
    for (const QQuickItem *item : textItems(view.window()->contentItem())) {
        if (item->inherits("QQuickTabButton"))
            tabs.append(item->property("text").toString());
    }
    QCOMPARE(tabs, (QStringList{"Copy Files", "Copy Data", "Settings"}));
}

void TestCopyFilesPage::theVersion_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("shown");
    QTest::newRow("this version") << "1.8.0"
                                  << "Version 1.8.0";
    QTest::newRow("any version") << "12.0 beta"
                                 << "Version 12.0 beta";
}

void TestCopyFilesPage::theVersion()
{
    QFETCH(QString, version);
    QFETCH(QString, shown);
    controller.version = version;
    const View &view = show();
    QCOMPARE(view.property(QStringLiteral("versionText"), "text").toString(), shown);
}

void TestCopyFilesPage::drivesAreOfferedByNameAndPath()
{
    controller.drives = listOf({{"/media/a b", "CARD"}, {"/Volumes/X", "X (old)"}, {"/media/none", ""}});
    const View &view = show();
    const QStringList expected = {"CARD (/media/a b)", "X (old) (/Volumes/X)", " (/media/none)"};
    for (const QString &combo : cardCombos)
        QCOMPARE(offered(view.object(combo)), expected);
}

void TestCopyFilesPage::preselection_data()
{
    QTest::addColumn<Entries>("drives");
    QTest::addColumn<QList<int>>("chosen");
    const auto row = [](const char *name, const Entries &drives, const QList<int> &chosen) {
        QTest::newRow(name) << drives << chosen;
    };
    row("names that end in 1, 2 and 3", threeCards(), QList<int>{0, 1, 2});
    row("in any order", Entries{{"/m/z", "KELPORA360_3"}, {"/m/y", "KELPORA360_1"}, {"/m/x", "KELPORA360_2"}},
        QList<int>{1, 2, 0});
    row("among other drives", Entries{{"/m/1", "DATA1"}, {"/m/a", "KELPORA360_2"}, {"/", "root"}},
        QList<int>{-1, 1, -1});
    row("360 in the path alone", Entries{{"/media/360/x", "CARD_3"}}, QList<int>{-1, -1, 0});
    row("360 in the name alone", Entries{{"/media/x", "a360b1"}}, QList<int>{0, -1, -1});
    row("the digit ends the path alone", Entries{{"/media/card2", "360"}}, QList<int>{-1, 0, -1});
    row("the digit stands inside", Entries{{"/media/1x", "360_1_a"}}, QList<int>{-1, -1, -1});
    row("360 is in neither", Entries{{"/media/card1", "CARD1"}, {"/media/36", "0_2"}},
        QList<int>{-1, -1, -1});
    row("another digit", Entries{{"/media/a", "KELPORA360_4"}, {"/media/b", "KELPORA360"}},
        QList<int>{-1, -1, -1});
    row("a later match overrides an earlier one",
        Entries{{"/m/a", "KELPORA360_1"},
                {"/m/b", "KELPORA360_1"},
                {"/m/c", "KELPORA360_2"},
                {"/m/d", "OLD360_2"}},
        QList<int>{1, 3, -1});
    row("1 in the path goes before 2 in the name", Entries{{"/media/x1", "KELPORA360_2"}},
        QList<int>{0, -1, -1});
    row("2 in the path goes before 3 in the name", Entries{{"/media/x2", "KELPORA360_3"}},
        QList<int>{-1, 0, -1});
    row("1 in the name goes before 3 in the path", Entries{{"/media/x3", "KELPORA360_1"}},
        QList<int>{0, -1, -1});
    row("no drives", Entries{}, QList<int>{-1, -1, -1});
}

void TestCopyFilesPage::preselection()
{
    QFETCH(Entries, drives);
    QFETCH(QList<int>, chosen);
    controller.drives = listOf(drives);
    const View &view = show();
    QCOMPARE(chosenCards(view), chosen);

    view.click(QStringLiteral("refreshCardsButton"));
    QCOMPARE(chosenCards(view), chosen);
}

void TestCopyFilesPage::refreshingCards()
{
    const View &view = show();
    QCOMPARE(chosenCards(view), (QList<int>{0, 1, 2}));

    controller.drives = listOf({{"/media/new", "NEW"}, {"/media/c", "KELPORA360_3"}});
    view.click(QStringLiteral("refreshCardsButton"));
    for (const QString &combo : cardCombos)
        QCOMPARE(offered(view.object(combo)), (QStringList{"NEW (/media/new)", "KELPORA360_3 (/media/c)"}));
    QCOMPARE(chosenCards(view), (QList<int>{-1, -1, 1}));
    QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), false);
}

void TestCopyFilesPage::refreshingTemplates()
{
    const View &view = show();
    const QString combo = QStringLiteral("templateCombo");
    QCOMPARE(offered(view.object(combo)), (QStringList{"b", "A"}));
    QCOMPARE(view.property(combo, "currentIndex").toInt(), 0);
    QCOMPARE(view.property(combo, "displayText").toString(), QStringLiteral("b"));

    view.set(combo, "currentIndex", 1);
    controller.templates = listOf({{"/t/z.kava", "z"}, {"/t/y.kava", "y"}, {"/t/x.kava", "x"}});
    view.click(QStringLiteral("refreshTemplatesButton"));
    QCOMPARE(offered(view.object(combo)), (QStringList{"z", "y", "x"}));
    QCOMPARE(view.property(combo, "currentIndex").toInt(), 0);

    controller.templates.clear();
    view.click(QStringLiteral("refreshTemplatesButton"));
    QCOMPARE(view.property(combo, "count").toInt(), 0);
    QCOMPARE(view.property(combo, "currentIndex").toInt(), -1);
}

void TestCopyFilesPage::emptyLists()
{
    controller.clear();
    const View &view = show();
    for (const QString &combo : cardCombos + QStringList{QStringLiteral("templateCombo")}) {
        QCOMPARE(view.property(combo, "count").toInt(), 0);
        QCOMPARE(view.property(combo, "currentIndex").toInt(), -1);
        QCOMPARE(view.property(combo, "displayText").toString(), QString());
    }
    QCOMPARE(view.property(QStringLiteral("destinationFilesText"), "text").toString(), QString());
    QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), false);
    QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), true);
}

void TestCopyFilesPage::theMoviesFolderIsTheFirstDestination()
{
    const View &view = show();
    QCOMPARE(view.property(QStringLiteral("destinationFilesText"), "text").toString(),
             QStringLiteral("/home/user/Movies"));
    QCOMPARE(view.property(QStringLiteral("projectNameText"), "text").toString(), QString());
}

void TestCopyFilesPage::theListShowsNamesAsTheyAre_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::newRow("an ampersand") << "/media/Dive & Reef"
                                  << "Dive & Reef";
    QTest::newRow("two of them") << "/media/R&&D"
                                 << "R&&D";
    QTest::newRow("markup") << "/media/<b>x<b>"
                            << "<b>x</b>";
    const QString folder = QStringLiteral("/home/diver/") + QString(60, QLatin1Char('d')) + "/card one";
    QTest::newRow("a path that is too long") << folder << folder;
}

void TestCopyFilesPage::theListShowsNamesAsTheyAre()
{
    QFETCH(QString, path);
    QFETCH(QString, name);
    controller.drives = listOf({{path, name}});
    const View &view = show();
    auto *list = view.property(cardCombos.constFirst(), "popup").value<QObject *>();
    QVERIFY(QMetaObject::invokeMethod(list, "open"));
    QTRY_VERIFY(list->property("opened").toBool());
    QStringList drawn;
    QList<QQuickItem *> items{list->property("contentItem").value<QQuickItem *>()};
    QVERIFY(QMetaObject::invokeMethod(items.first(), "forceLayout"));
    for (int i = 0; i < items.size(); ++i) {
        const QQuickItem *item = items.at(i);
        items += item->childItems();
        if (!item->inherits("QQuickText") || item->property("text").toString().isEmpty())
            continue;
        drawn.append(item->property("text").toString());
        QCOMPARE(item->property("textFormat").toInt(), static_cast<int>(Qt::PlainText));
        QCOMPARE(item->property("elide").toInt(), static_cast<int>(Qt::ElideMiddle));
        QVERIFY(item->width() <= view.item(cardCombos.constFirst())->width());
    }
    QCOMPARE(drawn, QStringList{name + " (" + path + ")"});
}

void TestCopyFilesPage::theAnglesText_data()
{
    QTest::addColumn<QVariantMap>("settings");
    QTest::addColumn<QString>("shown");
    const QString overwrite = QStringLiteral("Overwrite camera angles in template.");
    const QString use = QStringLiteral("Use camera angles from template.");
    QTest::newRow("1") << QVariantMap{{"OverwriteAngles", "1"}} << overwrite;
    QTest::newRow("0 is a text, and so true as well") << QVariantMap{{"OverwriteAngles", "0"}} << overwrite;
    QTest::newRow("no such key") << QVariantMap{{"Camera1Yaw", "1"}} << use;
    QTest::newRow("no settings") << QVariantMap() << use;
}

void TestCopyFilesPage::theAnglesText()
{
    QFETCH(QVariantMap, settings);
    QFETCH(QString, shown);
    controller.settings = settings;
    const View &view = show();
    QCOMPARE(view.property(QStringLiteral("cameraAnglesText"), "text").toString(), shown);
}

void TestCopyFilesPage::copyFiles_data()
{
    QTest::addColumn<QList<int>>("cards");
    QTest::addColumn<int>("templateIndex");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("projectName");
    QTest::addColumn<QVariantList>("arguments");
    const auto row = [](const char *name, const QList<int> &cards, int templateIndex, const QString &folder,
                        const QString &projectName, const QVariantList &arguments) {
        QTest::newRow(name) << cards << templateIndex << folder << projectName << arguments;
    };
    row("with template and project name", QList<int>{0, 1, 2}, 1, "/dst", "reef",
        QVariantList{"/media/a", "/media/b", "/media/c", "/dst", "/templates/A.kava", "reef"});
    row("without template", QList<int>{0, 1, 2}, -1, "/dst", "reef",
        QVariantList{"/media/a", "/media/b", "/media/c", "/dst", "", "reef"});
    row("without project name", QList<int>{0, 1, 2}, 0, "/dst", "",
        QVariantList{"/media/a", "/media/b", "/media/c", "/dst", "/templates/b.kava", ""});
    row("cards in another order", QList<int>{2, 0, 1}, -1, "/d s t/\u00e4", "",
        QVariantList{"/media/c", "/media/a", "/media/b", "/d s t/\u00e4", "", ""});
    row("one card three times", QList<int>{1, 1, 1}, -1, "relative", "%1 x",
        QVariantList{"/media/b", "/media/b", "/media/b", "relative", "", "%1 x"});
}

void TestCopyFilesPage::copyFiles()
{
    QFETCH(QList<int>, cards);
    QFETCH(int, templateIndex);
    QFETCH(QString, folder);
    QFETCH(QString, projectName);
    QFETCH(QVariantList, arguments);
    const View &view = show();
    chooseCards(view, cards);
    view.set("templateCombo", "currentIndex", templateIndex);
    view.set("destinationFilesText", "text", folder);
    view.set("projectNameText", "text", projectName);

    QSignalSpy requests(view.window(),
                        SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString)));
    QVERIFY(requests.isValid());
    view.click(QStringLiteral("copyFilesButton"));
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first(), arguments);
}

void TestCopyFilesPage::readyToCopyFiles_data()
{
    QTest::addColumn<QList<int>>("cards");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("busy");
    QTest::addColumn<bool>("ready");
    const auto row = [](const char *name, const QList<int> &cards, const QString &folder, const QString &busy,
                        bool ready) { QTest::newRow(name) << cards << folder << busy << ready; };
    const QList<int> all = {0, 1, 2};
    row("three cards and a folder", all, "/dst", "", true);
    row("the same card thrice", QList<int>{0, 0, 0}, "/dst", "", true);
    row("no first card", QList<int>{-1, 1, 2}, "/dst", "", false);
    row("no second card", QList<int>{0, -1, 2}, "/dst", "", false);
    row("no third card", QList<int>{0, 1, -1}, "/dst", "", false);
    row("no folder", all, "", "", false);
    row("the first card is busy", all, "/dst", "cardOneCopying", false);
    row("the second card is busy", all, "/dst", "cardTwoCopying", false);
    row("the third card is busy", all, "/dst", "cardThreeCopying", false);
    row("a controller job runs", all, "/dst", "dataCopying", true);
}

void TestCopyFilesPage::readyToCopyFiles()
{
    QFETCH(QList<int>, cards);
    QFETCH(QString, folder);
    QFETCH(QString, busy);
    QFETCH(bool, ready);
    const View &view = show();
    chooseCards(view, cards);
    view.set("destinationFilesText", "text", folder);
    view.raise(busy);

    QCOMPARE(view.call("readyToCopyFiles").toBool(), ready);
    QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), ready);
    const QList<bool> before = flags(view);
    QSignalSpy requests(view.window(),
                        SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString)));
    view.call("copyFilesClicked");
    QCOMPARE(requests.size(), ready ? 1 : 0);
    if (!ready)
        QCOMPARE(flags(view), before);
}

void TestCopyFilesPage::clickingRaisesTheFlags()
{
    const View &view = show();
    QCOMPARE(flags(view), (QList<bool>{false, false, false}));

    QSignalSpy requests(view.window(),
                        SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString)));
    view.click(QStringLiteral("copyFilesButton"));
    QCOMPARE(flags(view), (QList<bool>{true, true, true}));
    QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), false);
    QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), false);
    view.click(QStringLiteral("copyFilesButton"));
    QCOMPARE(requests.size(), 1);
}

void TestCopyFilesPage::readyToExit_data()
{
    QTest::addColumn<QString>("busy");
    QTest::addColumn<bool>("ready");
    QTest::newRow("nothing runs") << "" << true;
    QTest::newRow("the first card is busy") << "cardOneCopying" << false;
    QTest::newRow("the second card is busy") << "cardTwoCopying" << false;
    QTest::newRow("the third card is busy") << "cardThreeCopying" << false;
    QTest::newRow("a controller job runs") << "dataCopying" << false;
}

void TestCopyFilesPage::readyToExit()
{
    QFETCH(QString, busy);
    QFETCH(bool, ready);
    const View &view = show();
    view.raise(busy);
    QCOMPARE(view.call("readyToExit").toBool(), ready);
    QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), ready);
    view.click(QStringLiteral("exitButton"));
    QCOMPARE(view.window()->isVisible(), !ready);
}

void TestCopyFilesPage::exitClosesTheWindow()
{
    const View &view = show();
    QSignalSpy closed(view.window(), SIGNAL(closing(QQuickCloseEvent *)));
    QVERIFY(closed.isValid());
    view.click(QStringLiteral("exitButton"));
    QCOMPARE(closed.size(), 1);
    QVERIFY(!view.window()->isVisible());
}

void TestCopyFilesPage::progress_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<int>("value");
    QTest::addColumn<double>("shownValue");
    QTest::addColumn<bool>("running");
    QTest::newRow("at the start") << 0 << 5 << 1 << 1.0 << true;
    QTest::newRow("another start of the range") << 2 << 8 << 4 << 4.0 << true;
    QTest::newRow("one before the end") << 0 << 5 << 4 << 4.0 << true;
    QTest::newRow("at the end") << 0 << 5 << 5 << 5.0 << false;
    QTest::newRow("past the end") << 0 << 5 << 6 << 5.0 << false;
    QTest::newRow("the summary") << 0 << 1 << 1 << 1.0 << false;
    QTest::newRow("an error at once") << 0 << 0 << 0 << 0.0 << false;
}

void TestCopyFilesPage::progress()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(int, value);
    QFETCH(double, shownValue);
    QFETCH(bool, running);
    const View &view = show();
    for (int card = 1; card <= 3; ++card) {
        const QString row = QStringLiteral("card%1Progress").arg(card);
        QCOMPARE(view.property(row + "Bar", "from").toDouble(), 0.0);
        QCOMPARE(view.property(row + "Bar", "to").toDouble(), 3.0);
        QCOMPARE(view.property(row + "Bar", "value").toDouble(), 0.0);
        QCOMPARE(view.property(row + "Text", "text").toString(), QString());
    }

    view.call("copyFilesClicked");
    QList<bool> expected = {true, true, true};
    for (int card = 1; card <= 3; ++card) {
        const QString text = QStringLiteral("Card %1 says <b>%</b>").arg(card);
        view.call("updateCardProgress", card, from, to, value, text);
        expected[card - 1] = running;
        QCOMPARE(flags(view), expected);
        const QString row = QStringLiteral("card%1Progress").arg(card);
        QCOMPARE(view.property(row + "Bar", "from").toDouble(), double(from));
        QCOMPARE(view.property(row + "Bar", "to").toDouble(), double(to));
        QCOMPARE(view.property(row + "Bar", "value").toDouble(), shownValue);
        QCOMPARE(view.property(row + "Text", "text").toString(), text);
    }
    QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), !running);
    QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), !running);
}

void TestCopyFilesPage::progressOfOtherNumbersIsIgnored_data()
{
    QTest::addColumn<int>("card");
    QTest::newRow("0") << 0;
    QTest::newRow("4") << 4;
    QTest::newRow("-1") << -1;
    QTest::newRow("360") << 360;
}

void TestCopyFilesPage::progressOfOtherNumbersIsIgnored()
{
    QFETCH(int, card);
    const View &view = show();
    view.call("copyFilesClicked");
    view.call("updateCardProgress", card, 0, 1, 1, QStringLiteral("nobody's"));
    QCOMPARE(flags(view), (QList<bool>{true, true, true}));
    for (int shown = 1; shown <= 3; ++shown) {
        const QString row = QStringLiteral("card%1Progress").arg(shown);
        QCOMPARE(view.property(row + "Bar", "to").toDouble(), 3.0);
        QCOMPARE(view.property(row + "Text", "text").toString(), QString());
    }
}

void TestCopyFilesPage::theLastReportsOfThreeCardsEndTheImport()
{
    const View &view = show();
    view.click(QStringLiteral("copyFilesButton"));
    for (int card = 1; card <= 3; ++card) {
        QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), false);
        QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), false);
        view.call("updateCardProgress", card, 0, 1, 1, QStringLiteral("Copied 1/1 videos and 0/0 photos."));
    }
    QCOMPARE(view.property(QStringLiteral("copyFilesButton"), "enabled").toBool(), true);
    QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), true);
    // Its next file makes a card busy again.
    view.call("updateCardProgress", 2, 0, 5, 2, QStringLiteral("Copying /media/b/CLIP0001.MOV"));
    QCOMPARE(flags(view), (QList<bool>{false, true, false}));
    QCOMPARE(view.property(QStringLiteral("exitButton"), "enabled").toBool(), false);
}

void TestCopyFilesPage::reportsInQuickSuccession()
{
    const View &view = show();
    const auto text = [&view](int card) {
        return view.property(QStringLiteral("card%1ProgressText").arg(card), "text").toString();
    };
    const auto value = [&view](int card) {
        return view.property(QStringLiteral("card%1ProgressBar").arg(card), "value").toInt();
    };
    view.call("copyFilesClicked");
    // The first few are shown at once.
    for (int file = 1; file <= 3; ++file) {
        view.call("updateCardProgress", 2, 0, 501, file, QStringLiteral("Copying %1").arg(file));
        QCOMPARE(text(2), QStringLiteral("Copying %1").arg(file));
    }
    for (int file = 1; file <= 500; ++file) {
        view.call("updateCardProgress", 1, 0, 501, file, QStringLiteral("Copying %1").arg(file));
        view.call("updateCardProgress", 3, 0, 501, file, QStringLiteral("Copying %1").arg(file));
    }
    // Not every one of them is drawn, but the last one is, soon.
    QVERIFY(value(1) < 500);
    QTRY_COMPARE_WITH_TIMEOUT(value(1), 500, 1000);
    QCOMPARE(text(1), QStringLiteral("Copying 500"));
    QCOMPARE(value(3), 500);
    QCOMPARE(flags(view), (QList<bool>{true, true, true}));

    // An end is shown at once, and nothing that was said before it comes after it.
    for (int file = 1; file <= 500; ++file)
        view.call("updateCardProgress", 1, 0, 501, file, QStringLiteral("Copying %1").arg(file));
    view.call("updateCardProgress", 1, 0, 1, 1, QStringLiteral("Copied 501/501 videos and 0/0 photos."));
    QCOMPARE(text(1), QStringLiteral("Copied 501/501 videos and 0/0 photos."));
    QCOMPARE(flags(view), (QList<bool>{false, true, true}));
    QTest::qWait(300);
    QCOMPARE(text(1), QStringLiteral("Copied 501/501 videos and 0/0 photos."));
    QCOMPARE(value(1), 1);
}

void TestCopyFilesPage::endsThatAreLong_data()
{
    QTest::addColumn<QString>("text");
    for (const char *text :
         {"Error: Part of the card could not be read. Copied 1234/1235 videos and 2345/2346 photos.",
          "Error: The destination reports a write error after 1234/1235 videos and 2345/2346 photos.",
          "Error: Some copies were moved or deleted during the import. Copied 1234/1235 videos and 2345/2346 "
          "photos."})
        QTest::newRow(text) << QString::fromLatin1(text);
    QTest::newRow("a download's") << QStringLiteral(
        "Error: The controller did not send all data. Older files were kept. Wrote 412 records to 3 files in "
        "/media/diver/BACKUP_DRIVE/Expeditions/2026-03-14 Reef survey north");
}

void TestCopyFilesPage::endsThatAreLong()
{
    QFETCH(QString, text);
    const View &view = show();
    for (int card = 1; card <= 3; ++card) {
        const QString label = QStringLiteral("card%1ProgressText").arg(card);
        // What goes on stays on one line and keeps its end.
        view.call("updateCardProgress", card, 0, 2, 1, text);
        QTRY_COMPARE(view.property(label, "lineCount").toInt(), 1);
        QCOMPARE(view.property(label, "elide").toInt(), static_cast<int>(Qt::ElideMiddle));
        view.call("updateCardProgress", card, 0, 1, 1, text);
        QTRY_VERIFY(view.property(label, "lineCount").toInt() >= 2);
        QCOMPARE(view.property(label, "truncated").toBool(), false);
        const QQuickItem *item = view.item(label);
        QVERIFY(item->property("paintedHeight").toDouble() <= item->height());
    }
    // The last row stands above the footer.
    const QQuickItem *last = view.item(QStringLiteral("card3ProgressText"));
    const QQuickItem *exit = view.item(QStringLiteral("exitButton"));
    QVERIFY(last->mapToScene({0, last->height()}).y() < exit->mapToScene({0, 0}).y());
}

QTEST_MAIN(TestCopyFilesPage)
#include "tst_copyfilespage.moc"
