#include "tests/support/workspace.h"
#include "tests/views/view.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtTest>

namespace {

const char *const copySignature = SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString));

/// The dialog of an opened chooser.
QObject *dialogOf(const View &view, const QString &chooser)
{
    return view.property(chooser, "item").value<QObject *>();
}

/// Ends the open dialog of `chooser` as its own button does, with `path` chosen.
bool accept(const View &view, const QString &chooser, const QString &path)
{
    QObject *dialog = dialogOf(view, chooser);
    if (dialog == nullptr || !dialog->property("visible").toBool())
        return false;
    const QUrl url = QUrl::fromLocalFile(path);
    bool added = false;
    const bool chosen =
        QMetaObject::invokeMethod(dialog, "clearSelection") &&
        QMetaObject::invokeMethod(dialog, "addSelection", Q_RETURN_ARG(bool, added), Q_ARG(QUrl, url)) &&
        added && dialog->property("fileUrl").toUrl() == url;
    return chosen && QMetaObject::invokeMethod(dialog, "accept") &&
           QTest::qWaitFor([&] { return !dialog->property("visible").toBool(); });
}

bool chooseSource(const View &view, int card, const QString &path)
{
    view.click(view.rowButton(0, QStringLiteral("Card %1").arg(card)));
    return accept(view, QStringLiteral("sourceChooser"), path);
}

QStringList keys(const View &view, const char *list)
{
    QStringList found;
    const QVariantList entries = view.window()->property(list).toList();
    for (const QVariant &entry : entries)
        found.append(entry.toMap().value(QStringLiteral("key")).toString() + QLatin1Char('=') +
                     entry.toMap().value(QStringLiteral("value")).toString());
    return found;
}

/// The field of the dialog that shows where it is and can be typed into.
QQuickItem *pathField(const QQuickItem *top)
{
    const QList<QQuickItem *> children = top->childItems();
    for (QQuickItem *child : children) {
        QQuickItem *found = child->inherits("QQuickTextInput") && !child->property("readOnly").toBool() &&
                                    child->property("text").toString().startsWith(QLatin1Char('/'))
                                ? child
                                : pathField(child);
        if (found != nullptr)
            return found;
    }
    return nullptr;
}

void nameRows()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << "take1";
    QTest::newRow("blanks") << "two  words ";
    QTest::newRow("a percent sign") << "100% reef";
    QTest::newRow("a percent sign before digits") << "a%20b%41%2F";
    QTest::newRow("a hash") << "dive #3";
    QTest::newRow("a question mark") << "what?now=1&then";
    QTest::newRow("plus and semicolon") << "a+b;c";
    QTest::newRow("brackets and quotes") << "[x]{y}'\"<z>|^`";
    QTest::newRow("a backslash") << "a\\b";
    QTest::newRow("placeholders") << "%1%2";
    QTest::newRow("accents") << QString::fromUtf8("T\u00e4uchg\u00e4nge");
    QTest::newRow("other scripts") << QString::fromUtf8("\u6d77\u5e95 \u0645\u0627\u0621");
    QTest::newRow("beyond the basic plane") << QString::fromUtf8("\U0001f420");
    QTest::newRow("like a URL") << "file:";
}

} // namespace

class TestChoosers : public ViewTest
{
    Q_OBJECT

    void equip() override;

private slots:
    void initTestCase();
    void dialogs_data();
    void dialogs();
    void noDialogIsLoadedAtTheStart();
    void sourceIndexes_data();
    void sourceIndexes();
    void sourcesStayUntilTheRefresh();
    void sourceNames_data();
    void sourceNames();
    void destinations_data();
    void destinations();
    void destinationNames_data();
    void destinationNames();
    void templates();
    void firmware_data();
    void firmware();
    void firmwareWithoutDevice();
    void cancelled_data();
    void cancelled();
    void theDialogItself();

private:
    Workspace workspace_;
};

void TestChoosers::equip()
{
    for (const char *name : {"A", "B", "C"})
        ScriptedController::append(&controller.drives, QStringLiteral("/m/") + QLatin1String(name),
                                   QLatin1String(name));
    ScriptedController::append(&controller.templates, QStringLiteral("/t/x.kava"), QStringLiteral("x"));
    controller.addDevice(QStringLiteral("ttyS0"), QStringLiteral("A1"), QStringLiteral("Maker"));
    controller.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA7"), QStringLiteral("Kelpora"));
    controller.moviesLocation = QStringLiteral("/movies");
}

void TestChoosers::initTestCase()
{
    // Qt's own dialogs keep their size under these names.
    QCoreApplication::setOrganizationName(QStringLiteral("test"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("test.example"));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(workspace_.makeFolder(QStringLiteral("config"))));
}

void TestChoosers::dialogs_data()
{
    QTest::addColumn<QString>("chooser");
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("folder");
    QTest::addColumn<int>("startsIn");
    QTest::addColumn<QStringList>("filters");
    const auto row = [](const char *name, const QString &chooser, const QString &title, bool folder,
                        int startsIn, const QStringList &filters) {
        QTest::newRow(name) << chooser << title << folder << startsIn << filters;
    };
    row("source", "sourceChooser", "Choose a directory", true, int(QStandardPaths::DesktopLocation),
        QStringList{});
    row("destination", "destinationChooser", "Choose the target directory", true,
        int(QStandardPaths::MoviesLocation), QStringList{});
    row("template", "templateChooser", "Select a stitching template", false,
        int(QStandardPaths::MoviesLocation), QStringList{"Autopano Project Template (*.kava)"});
    row("firmware", "firmwareChooser", "Please select the new firmware file", false,
        int(QStandardPaths::DocumentsLocation), QStringList{"Kelpora Firmware (*.hex)"});
}

void TestChoosers::dialogs()
{
    QFETCH(QString, chooser);
    QFETCH(QString, title);
    QFETCH(bool, folder);
    QFETCH(int, startsIn);
    QFETCH(QStringList, filters);
    const View &view = show();
    for (int round = 0; round < 2; ++round) {
        QVERIFY(QMetaObject::invokeMethod(view.object(chooser), "open"));
        const QObject *dialog = dialogOf(view, chooser);
        QVERIFY(dialog != nullptr);
        QCOMPARE(dialog->property("visible").toBool(), true);
        QCOMPARE(dialog->property("title").toString(), title);
        QCOMPARE(dialog->property("selectFolder").toBool(), folder);
        QCOMPARE(dialog->property("selectExisting").toBool(), true);
        QCOMPARE(dialog->property("selectMultiple").toBool(), false);
        QCOMPARE(dialog->property("sidebarVisible").toBool(), true);
        QCOMPARE(dialog->property("modality").toInt(), int(Qt::WindowModal));
        QCOMPARE(dialog->property("nameFilters").toStringList(), filters);
        const auto location = static_cast<QStandardPaths::StandardLocation>(startsIn);
        QCOMPARE(dialog->property("folder").toUrl(),
                 QUrl::fromLocalFile(QStandardPaths::writableLocation(location)));
        QVERIFY(QMetaObject::invokeMethod(dialogOf(view, chooser), "reject"));
        QTRY_COMPARE(dialog->property("visible").toBool(), false);
    }
}

void TestChoosers::noDialogIsLoadedAtTheStart()
{
    const View &view = show();
    for (const char *chooser : {"sourceChooser", "destinationChooser", "templateChooser", "firmwareChooser"})
        QVERIFY(dialogOf(view, QLatin1String(chooser)) == nullptr);
}

void TestChoosers::sourceIndexes_data()
{
    QTest::addColumn<QList<int>>("before");
    QTest::addColumn<int>("card");
    QTest::addColumn<QList<int>>("after");
    const QList<int> all = {0, 1, 2};
    QTest::newRow("card 1") << all << 1 << QList<int>{0, 2, 3};
    QTest::newRow("card 2") << all << 2 << QList<int>{1, 0, 3};
    QTest::newRow("card 3") << all << 3 << QList<int>{1, 2, 0};
    QTest::newRow("all on one drive") << QList<int>{2, 2, 2} << 2 << QList<int>{3, 0, 3};
    QTest::newRow("another card without a choice takes the new folder")
        << QList<int>{0, 1, -1} << 1 << QList<int>{0, 2, 0};
    QTest::newRow("two others without a choice") << QList<int>{-1, -1, 1} << 3 << QList<int>{0, 0, 0};
    QTest::newRow("the card itself without a choice") << QList<int>{-1, 0, 2} << 1 << QList<int>{0, 1, 3};
    QTest::newRow("none has a choice") << QList<int>{-1, -1, -1} << 2 << QList<int>{0, 0, 0};
}

void TestChoosers::sourceIndexes()
{
    QFETCH(QList<int>, before);
    QFETCH(int, card);
    QFETCH(QList<int>, after);
    const QString path = workspace_.makeFolder(QStringLiteral("cards/one"));
    const View &view = show();
    chooseCards(view, before);
    QVERIFY(chooseSource(view, card, path));
    QCOMPARE(chosenCards(view), after);
    const QString entry = path + " (" + path + ')';
    for (const QString &combo : cardCombos)
        QCOMPARE(offered(view.object(combo)), (QStringList{entry, "A (/m/A)", "B (/m/B)", "C (/m/C)"}));
    QCOMPARE(keys(view, "drives"), (QStringList{path + '=' + path, "/m/A=A", "/m/B=B", "/m/C=C"}));
    // What the controller gets is what the lists show.
    QVariantList expected;
    for (const int index : after)
        expected.append(QStringList{path, "/m/A", "/m/B", "/m/C"}.at(index));
    QSignalSpy requests(view.window(), copySignature);
    view.call("copyFilesClicked");
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().mid(0, 3), expected);
}

void TestChoosers::sourcesStayUntilTheRefresh()
{
    const QString one = workspace_.makeFolder(QStringLiteral("cards/one"));
    const QString two = workspace_.makeFolder(QStringLiteral("cards/two"));
    const View &view = show();
    chooseCards(view, {0, 1, 2});
    QVERIFY(chooseSource(view, 1, one));
    QVERIFY(chooseSource(view, 3, two));
    QVERIFY(chooseSource(view, 2, one));
    QCOMPARE(keys(view, "drives"),
             (QStringList{one + '=' + one, two + '=' + two, one + '=' + one, "/m/A=A", "/m/B=B", "/m/C=C"}));
    QCOMPARE(chosenCards(view), (QList<int>{2, 0, 1}));
    view.click(QStringLiteral("refreshCardsButton"));
    QCOMPARE(keys(view, "drives"), (QStringList{"/m/A=A", "/m/B=B", "/m/C=C"}));
    for (const QString &combo : cardCombos)
        QCOMPARE(view.property(combo, "count").toInt(), 3);
}

void TestChoosers::sourceNames_data()
{
    nameRows();
}

void TestChoosers::sourceNames()
{
    QFETCH(QString, name);
    const QString path = workspace_.makeFolder(QStringLiteral("names/") + name);
    controller.clear();
    const View &view = show();
    QVERIFY(chooseSource(view, 2, path));
    QSignalSpy requests(view.window(), SIGNAL(eraseCards(QString, QString, QString, bool, bool)));
    view.call("eraseCardsClicked", false, true);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first(), (QVariantList{path, path, path, false, true}));
    QCOMPARE(view.property("card2Combo", "displayText").toString(), path + " (" + path + ')');
}

void TestChoosers::destinations_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<bool>("filesToo");
    QTest::newRow("from the page of the files it's both pages' folder") << 0 << true;
    QTest::newRow("from the page of the data it's that page's alone") << 1 << false;
}

void TestChoosers::destinations()
{
    QFETCH(int, page);
    QFETCH(bool, filesToo);
    const View &view = show();
    QVERIFY(view.showPage(page));
    // Each time, also after the other page had it open.
    for (const char *name : {"dst1", "dst2"}) {
        const QString path = workspace_.makeFolder(QLatin1String(name));
        view.click(view.rowButton(page, QStringLiteral("Folder")));
        QVERIFY(accept(view, QStringLiteral("destinationChooser"), path));
        QCOMPARE(view.property("destinationDataText", "text").toString(), path);
        QCOMPARE(view.property("destinationFilesText", "text").toString(),
                 filesToo ? path : QStringLiteral("/movies"));
    }
    const QString last = workspace_.makeFolder(QStringLiteral("last"));
    QVERIFY(view.showPage(1 - page));
    view.click(view.rowButton(1 - page, QStringLiteral("Folder")));
    QVERIFY(accept(view, QStringLiteral("destinationChooser"), last));
    QCOMPARE(view.property("destinationDataText", "text").toString(), last);
    QCOMPARE(view.property("destinationFilesText", "text").toString(),
             filesToo ? workspace_.path(QStringLiteral("dst2")) : last);
}

void TestChoosers::destinationNames_data()
{
    nameRows();
}

void TestChoosers::destinationNames()
{
    QFETCH(QString, name);
    const QString path = workspace_.makeFolder(QStringLiteral("names/") + name);
    const View &view = show();
    view.click(view.rowButton(0, QStringLiteral("Folder")));
    QVERIFY(accept(view, QStringLiteral("destinationChooser"), path));
    QCOMPARE(view.property("destinationFilesText", "text").toString(), path);
}

void TestChoosers::templates()
{
    const QString one = workspace_.write(QStringLiteral("t/100% #1 \u00fc.kava"), "x");
    const QString two = workspace_.write(QStringLiteral("t/two.kava"), "x");
    const View &view = show();
    const QString combo = QStringLiteral("templateCombo");
    QStringList expected = {"x"};
    QStringList entries = {"/t/x.kava=x"};
    for (const QString &path : {one, two}) {
        view.click(view.rowButton(0, QStringLiteral("Template")));
        QVERIFY(accept(view, QStringLiteral("templateChooser"), path));
        expected.prepend(path);
        entries.prepend(path + '=' + path);
        QCOMPARE(offered(view.object(combo)), expected);
        QCOMPARE(view.property(combo, "currentIndex").toInt(), 0);
        QCOMPARE(keys(view, "templates"), entries);
    }
    chooseCards(view, {0, 1, 2});
    QSignalSpy requests(view.window(), copySignature);
    view.set(combo, "currentIndex", 1);
    view.call("copyFilesClicked");
    QCOMPARE(requests.first().at(4).toString(), one);
    view.click(QStringLiteral("refreshTemplatesButton"));
    QCOMPARE(offered(view.object(combo)), QStringList{"x"});
    QCOMPARE(view.property(combo, "currentIndex").toInt(), 0);
}

void TestChoosers::firmware_data()
{
    nameRows();
}

void TestChoosers::firmware()
{
    QFETCH(QString, name);
    const QString path = workspace_.write(QStringLiteral("fw/") + name + QStringLiteral(".hex"), "x");
    const View &view = show();
    view.set("devicesComboSettings", "currentIndex", 0);
    controller.ports.clear();
    QVERIFY(QMetaObject::invokeMethod(view.object(QStringLiteral("firmwareChooser")), "open"));
    QVERIFY(accept(view, QStringLiteral("firmwareChooser"), path));
    QCOMPARE(controller.flashed, (QList<QStringList>{{"ttyS0", path}}));
    QCOMPARE(controller.ports, QStringList{"ttyS0"});
}

void TestChoosers::firmwareWithoutDevice()
{
    const QString path = workspace_.write(QStringLiteral("fw/new.hex"), "x");
    controller.clear();
    const View &view = show();
    QVERIFY(QMetaObject::invokeMethod(view.object(QStringLiteral("firmwareChooser")), "open"));
    QVERIFY(accept(view, QStringLiteral("firmwareChooser"), path));
    QCOMPARE(controller.flashed, (QList<QStringList>{{"", path}}));
    QCOMPARE(controller.ports, QStringList());
}

void TestChoosers::cancelled_data()
{
    QTest::addColumn<QString>("row");
    QTest::addColumn<QString>("chooser");
    QTest::newRow("source") << "Card 1"
                            << "sourceChooser";
    QTest::newRow("destination") << "Folder"
                                 << "destinationChooser";
    QTest::newRow("template") << "Template"
                              << "templateChooser";
}

void TestChoosers::cancelled()
{
    QFETCH(QString, row);
    QFETCH(QString, chooser);
    const View &view = show();
    view.click(view.rowButton(0, row));
    QObject *dialog = dialogOf(view, chooser);
    QVERIFY(dialog != nullptr && dialog->property("visible").toBool());
    QVERIFY(QMetaObject::invokeMethod(dialog, "reject"));
    QTRY_COMPARE(dialog->property("visible").toBool(), false);
    QCOMPARE(chosenCards(view), (QList<int>{-1, -1, -1}));
    QCOMPARE(keys(view, "drives"), (QStringList{"/m/A=A", "/m/B=B", "/m/C=C"}));
    QCOMPARE(keys(view, "templates"), QStringList{"/t/x.kava=x"});
    QCOMPARE(view.property("destinationFilesText", "text").toString(), QStringLiteral("/movies"));
}

/// With the dialog's own window and the keyboard.
void TestChoosers::theDialogItself()
{
    const QString path = workspace_.makeFolder(QStringLiteral("typed folder"));
    const View &view = show();
    view.click(view.rowButton(0, QStringLiteral("Card 3")));
    QQuickWindow *window = nullptr;
    QTRY_VERIFY(QGuiApplication::topLevelWindows().size() > 1);
    const QList<QWindow *> windows = QGuiApplication::topLevelWindows();
    for (QWindow *other : windows) {
        if (other != view.window() && other->isVisible())
            window = qobject_cast<QQuickWindow *>(other);
    }
    if (window == nullptr)
        QSKIP("The dialogs of this platform are not Qt's own.");
    QCOMPARE(window->title(), QStringLiteral("Choose a directory"));
    QCOMPARE(window->modality(), Qt::WindowModal);
    QCOMPARE(window->transientParent(), view.window());
    window->requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(window));
    QQuickItem *field = nullptr;
    QTRY_VERIFY((field = pathField(window->contentItem())) != nullptr);
    // The dialog writes where it starts, a moment after it is shown, and once more when it has listed that
    // folder.
    QTRY_COMPARE(field->property("text").toString(),
                 QStandardPaths::writableLocation(QStandardPaths::DesktopLocation));
    const bool typed = QTest::qWaitFor([&] {
        QTest::mouseClick(window, Qt::LeftButton, Qt::NoModifier,
                          field->mapToScene(QPointF(field->width() / 2, field->height() / 2)).toPoint());
        QTest::keyClick(window, Qt::Key_A, Qt::ControlModifier);
        for (const QChar character : path)
            QTest::keyClick(window, character.toLatin1());
        return field->property("text").toString() == path;
    });
    QVERIFY2(typed, qPrintable(field->property("text").toString()));
    QTest::keyClick(window, Qt::Key_Return);
    QTRY_COMPARE(view.property("card3Combo", "displayText").toString(), path + " (" + path + ')');
    QTRY_COMPARE(window->isVisible(), false);
}

QTEST_MAIN(TestChoosers)
#include "tst_choosers.moc"
