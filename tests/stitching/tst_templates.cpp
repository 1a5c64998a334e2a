#include "app/paths.h"
#include "stitching/templates.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>

namespace {

const QString folderName = QStringLiteral("app/templates");

void fill(const Workspace &workspace, const QStringList &names)
{
    for (const QString &name : names) {
        const QString path = folderName + QLatin1Char('/') + name;
        if (name.endsWith(QLatin1Char('/')))
            workspace.makeFolder(path);
        else if (name.contains(QLatin1String("->")))
            QFile::link(workspace.path(folderName) + QLatin1Char('/') + name.section(QStringLiteral("->"), 1),
                        workspace.path(folderName) + QLatin1Char('/') +
                            name.section(QStringLiteral("->"), 0, 0));
        else
            workspace.write(path, "x");
    }
}

} // namespace

class TestTemplates : public QObject
{
    Q_OBJECT

private slots:
    void list_data();
    void list();
    void missingFolder();
    void theUsersFolder();
    void readAfresh();
    void picture_data();
    void picture();
};

void TestTemplates::list_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("shown");

    const auto row = [](const char *title, const QStringList &files, const QStringList &names,
                        const QStringList &shown) { QTest::newRow(title) << files << names << shown; };
    row("an empty folder", {}, {}, {});
    row("lower-case letters come before capitals", {"a.kava", "B.kava"}, {"a.kava", "B.kava"}, {"a", "B"});
    row("descending by name", {"A.kava", "C.kava", "B.kava", "a.kava", "c.kava"},
        {"c.kava", "a.kava", "C.kava", "B.kava", "A.kava"}, {"c", "a", "C", "B", "A"});
    row("digits come after letters", {"2.kava", "10.kava", "A.kava"}, {"A.kava", "2.kava", "10.kava"},
        {"A", "2", "10"});
    row("every extension is removed", {"Dive.kava.kava"}, {"Dive.kava.kava"}, {"Dive"});
    row("an extension within the name is removed", {"a.kavab.kava"}, {"a.kavab.kava"}, {"ab"});
    row("other files are passed over", {"a.kava", "a.jpg", "a.pano", "kava", "a.kava~", "akava"}, {"a.kava"},
        {"a"});
    row("the extension is case-sensitive", {"a.KAVA", "b.Kava"}, {}, {});
    row("folders are passed over", {"a.kava/", "b.kava"}, {"b.kava"}, {"b"});
    row("files in folders are passed over", {"sub/a.kava"}, {}, {});
    row("links are passed over", {"a.kava", "b.kava->a.kava", "c.kava->gone"}, {"a.kava"}, {"a"});
    row("hidden files are passed over", {".a.kava", ".kelpora360-0123456789abcdef.part"}, {}, {});
    row("blanks and letters beyond ASCII", {QString::fromUtf8("Rif ä.kava")},
        {QString::fromUtf8("Rif ä.kava")}, {QString::fromUtf8("Rif ä")});
}

void TestTemplates::list()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, names);
    QFETCH(QStringList, shown);

    const Workspace workspace;
    const QString folder = workspace.makeFolder(folderName);
    fill(workspace, files);
    QStringList lines = {QStringLiteral("info: Template dir: \"%1\"").arg(folder)};
    for (const QString &name : names)
        lines.append(QStringLiteral("info: Found template \"%1\"").arg(name));
    if (names.isEmpty())
        lines.append(QStringLiteral("warning: No templates found"));

    const MessageLog log;
    const QVariantList templates = listTemplates();
    QCOMPARE(templates.size(), names.size());
    for (int i = 0; i < names.size(); ++i) {
        QCOMPARE(templates.at(i).userType(), int(QMetaType::QJsonObject));
        const QJsonObject expected = {
            {QStringLiteral("key"), folder + QLatin1Char('/') + names.at(i)},
            {QStringLiteral("value"), shown.at(i)},
        };
        QCOMPARE(templates.at(i).toJsonObject(), expected);
    }
    QCOMPARE(MessageLog::lines(), lines);
}

void TestTemplates::missingFolder()
{
    const Workspace workspace;
    const MessageLog log;
    QCOMPARE(listTemplates(), QVariantList());
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")), QStringList{QStringLiteral("No templates found")});
    QCOMPARE(templatePicture(), QString());
    QCOMPARE(QDir(getTemplateDir()).exists(), false);
}

void TestTemplates::theUsersFolder()
{
    const Workspace workspace;
    const MessageLog log;
    const QString support = getApplicationSupportPath();
    QVERIFY(QDir(support).mkdir(QStringLiteral("templates")));
    QFile file(support + QStringLiteral("/templates/Rig.kava"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(listTemplates().value(0).toJsonObject().value(QStringLiteral("key")).toString(),
             file.fileName());
}

void TestTemplates::readAfresh()
{
    const Workspace workspace;
    const MessageLog log;
    const QString first = workspace.write(folderName + QStringLiteral("/a.kava"), "x");
    QCOMPARE(listTemplates().size(), 1);
    workspace.write(folderName + QStringLiteral("/b.kava"), "x");
    QCOMPARE(listTemplates().size(), 2);
    QVERIFY(QFile::remove(first));
    QCOMPARE(listTemplates().size(), 1);
    QCOMPARE(listTemplates().at(0).toJsonObject().value(QStringLiteral("value")).toString(),
             QStringLiteral("b"));
}

void TestTemplates::picture_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("first");

    QTest::newRow("an empty folder") << QStringList() << QString();
    QTest::newRow("the first by name") << QStringList{"b.jpg", "a.jpg"} << QStringLiteral("a.jpg");
    QTest::newRow("the extension is case-sensitive")
        << QStringList{"a.JPG", "b.jpeg", "c.jpg"} << QStringLiteral("c.jpg");
    QTest::newRow("no picture of that extension") << QStringList{"a.JPG", "a.kava"} << QString();
    QTest::newRow("folders are passed over") << QStringList{"a.jpg/", "b.jpg"} << QStringLiteral("b.jpg");
    QTest::newRow("links are passed over")
        << QStringList{"c.jpg", "a.jpg->c.jpg", "b.jpg->gone"} << QStringLiteral("c.jpg");
}

void TestTemplates::picture()
{
    QFETCH(QStringList, files);
    QFETCH(QString, first);

    const Workspace workspace;
    workspace.makeFolder(folderName);
    fill(workspace, files);
    const MessageLog log;
    QCOMPARE(templatePicture(),
             first.isEmpty() ? QString() : workspace.path(folderName) + QLatin1Char('/') + first);
}

KELPORA_TEST_MAIN(TestTemplates)
#include "tst_templates.moc"
