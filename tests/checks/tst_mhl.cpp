#include "checks/c4.h"
#include "checks/mhl.h"
#include "checks/mhlhistory.h"
#include "platform/stopflag.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QtTest>

namespace {

const QDateTime begun(QDate(2026, 5, 1), QTime(10, 30, 5), Qt::UTC);
const QString manifest1 = QStringLiteral("dive/ascmhl/0001_dive_2026-05-01_103005Z.mhl");
const QString manifest2 = QStringLiteral("dive/ascmhl/0002_dive_2026-05-01_103105Z.mhl");
const QString chainPath = QStringLiteral("dive/ascmhl/ascmhl_chain.xml");

MhlRecord record(const QString &path, char hash = 'a', MhlAction action = MhlAction::Original)
{
    return {path, 5, begun, QByteArray(16, hash), action, {}};
}

QVector<MhlRecord> records(const QStringList &paths)
{
    QVector<MhlRecord> files;
    for (const QString &path : paths)
        files.append(record(path));
    return files;
}

QStringList pathsOf(const QVector<MhlRecord> &files)
{
    QStringList paths;
    for (const MhlRecord &file : files)
        paths.append(file.path);
    return paths;
}

/// What seals two files, and then a third. Returns the folder.
QString sealTwice(const Workspace &workspace)
{
    const QString root = workspace.makeFolder("dive");
    const StopFlag stop;
    if (sealFiles(root, records({"a.MOV", "b.MOV"}), begun, stop).added != 2 ||
        sealFiles(root, records({"a.MOV", "b.MOV", "c.MOV"}), begun.addSecs(60), stop).added != 1)
        qFatal("can't seal");
    return root;
}

/// Whether `file` is valid by the standard's schema `schema`; what xmllint says if it isn't.
QString invalid(const QString &file, const QString &schema)
{
    QProcess xmllint;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XML_CATALOG_FILES", QStringLiteral(MHL_SCHEMAS "/catalog.xml"));
    xmllint.setProcessEnvironment(environment);
    xmllint.start("xmllint",
                  {"--nonet", "--noout", "--schema", QStringLiteral(MHL_SCHEMAS "/") + schema, file});
    if (!xmllint.waitForFinished(60000))
        return xmllint.errorString();
    return xmllint.exitCode() == 0 ? QString() : QString::fromUtf8(xmllint.readAllStandardError());
}

QByteArray manifestWith(const QByteArray &hashes)
{
    return "<hashlist version=\"2.0\" "
           "xmlns=\"urn:ASC:MHL:v2.0\"><creatorinfo/><processinfo><process>transfer</process>"
           "</processinfo><hashes>" +
           hashes + "</hashes></hashlist>";
}

QByteArray hashOf(const QByteArray &path)
{
    return "<hash><path>" + path + "</path><xxh128>00fd03cd9996ee8cf8be6a756bf82a42</xxh128></hash>";
}

QByteArray chainWith(const QByteArray &entries)
{
    return "<ascmhldirectory xmlns=\"urn:ASC:MHL:DIRECTORY:v2.0\">" + entries + "</ascmhldirectory>";
}

} // namespace

class TestMhl : public QObject
{
    Q_OBJECT

private slots:
    void c4_data();
    void c4();
    void manifestsOfOthers();
    void damagedManifests_data();
    void damagedManifests();
    void manifestGoesRoundTrip();
    void damagedChains_data();
    void damagedChains();
    void ignored_data();
    void ignored();
    void pathsThatFit_data();
    void pathsThatFit();
    void aSeal();
    void laterFilesAreAGenerationOfTheirOwn();
    void nothingNewIsNoGeneration();
    void whatStitchersRewriteIsLeftOut();
    void altered();
    void renamedByAnotherProgram();
    void fiveThousandFilesAreValid();
    void damagedSeals_data();
    void damagedSeals();
    void interruptedSeals();
    void interruptedFirstSeal();
    void anotherProgramAddsAGeneration();
    void aStoppedRunWritesNothing();
    void fullDisk();
    void noRights();
};

void TestMhl::c4_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("id");

    // Published with the C4 ID.
    QTest::newRow("nothing")
        << QByteArray()
        << QByteArray("c459dsjfscH38cYeXXYogktxf4Cd9ibshE3BHUo6a58hBXmRQdZrAkZzsWcbWtDg5oQstpDuni4Hirj75G"
                      "EmTc1sFT");
    QTest::newRow("a word")
        << QByteArray("alfa")
        << QByteArray("c43zYcLni5LF9rR4Lg4B8h3Jp8SBwjcnyyeh4bc6gTPHndKuKdjUWx1kJPYhZxYt3zV6tQXpDs2shPsPYjg"
                      "G81wZM1");
    QTest::newRow("a small number, padded")
        << QByteArray("0")
        << QByteArray(
               "c41zgA3RiM67Fb4w1mXdSeroZSfb5T7Gk5uwVLjuWsyd16PEu2jb3aHbNB95h28atSkc9EtCj2pfPARG5xaz85Zs1r");
}

void TestMhl::c4()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, id);
    QCOMPARE(c4Of(content), id);
}

void TestMhl::manifestsOfOthers()
{
    const MhlManifest manifest = readManifest(R"(<?xml version="1.0"?>
<m:hashlist version="2.0" xmlns:m="urn:ASC:MHL:v2.0" xmlns:x="other"><m:creatorinfo><m:tool>another</m:tool></m:creatorinfo>
<m:processinfo><m:process>in-place</m:process><m:roothash><m:content/></m:roothash>
<m:ignore><m:pattern>*.tmp</m:pattern><m:pattern>/tmp</m:pattern></m:ignore></m:processinfo>
<m:hashes>
<m:hash><m:path size="5" lastmodificationdate="2026-05-01T12:30:05+02:00">Clips/ä b.mov</m:path>
<m:md5 action="original">40e52b717fab6af085566c769cd9c6ea</m:md5>
<m:xxh128 action="verified" hashdate="2026-05-01T12:30:05+02:00">00FD03CD9996ee8cf8be6a756bf82a42</m:xxh128>
<m:previousPath>Clips/a.mov</m:previousPath><m:metadata><x:hash><x:path>../x</x:path></x:hash></m:metadata></m:hash>
<m:directoryhash><m:path>Clips</m:path></m:directoryhash>
<x:hash/>
<m:hash><m:path>b &amp; c</m:path><m:md5 action="original">40e52b717fab6af085566c769cd9c6ea</m:md5></m:hash>
</m:hashes><m:references/></m:hashlist>)");
    QCOMPARE(manifest.problem, QString());
    QCOMPARE(manifest.process, QString("in-place"));
    QCOMPARE(manifest.ignored, QStringList({"*.tmp", "/tmp"}));
    const QVector<MhlRecord> expected = {{QString::fromUtf8("Clips/ä b.mov"), 5, begun,
                                          QByteArray::fromHex("00fd03cd9996ee8cf8be6a756bf82a42"),
                                          MhlAction::Verified, "Clips/a.mov"},
                                         {"b & c", -1, {}, {}, MhlAction::Original, {}}};
    QCOMPARE(manifest.files, expected);
}

void TestMhl::damagedManifests_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("problem");

    const auto row = [](const char *title, const QByteArray &content, const char *problem) {
        QTest::newRow(title) << content << QString::fromLatin1(problem);
    };
    const QByteArray good = manifestWith(hashOf("a.MOV"));
    QCOMPARE(readManifest(good).problem, QString());
    row("nothing", "", "line 1: Premature end of document.");
    row("no XML", "This is a text.", "line 1: Start tag expected.");
    row("cut short", good.left(good.size() - 20), "line 1: Premature end of document.");
    row("something after the end", good + "<more/>", "line 1: Extra content at end of document.");
    row("another document", "<html/>", "line 1: another kind of document");
    row("another namespace", QByteArray(good).replace("urn:ASC:MHL:v2.0", "urn:other"),
        "line 1: another kind of document");
    row("the older version", QByteArray(good).replace("2.0\" ", "1.1\" "), "line 1: another version");
    row("no version", QByteArray(good).replace("version=\"2.0\"", ""), "line 1: another version");
    row("a short hash", QByteArray(good).replace("2a42<", "2a<"), "line 1: a hash that is none");
    row("a hash that is no number", QByteArray(good).replace("2a42<", "2axx<"),
        "line 1: a hash that is none");
    row("no path", manifestWith("<hash><md5>0</md5></hash>"),
        "line 1: a path that leads nowhere or out of the folder");
    row("one file twice", manifestWith(hashOf("a") + hashOf("b") + hashOf("a")),
        "line 1: two hashes of one file");
    row("a path out of the folder", manifestWith(hashOf("../a")),
        "line 1: a path that leads nowhere or out of the folder");
    row("a former path out of the folder",
        manifestWith("<hash><path>a</path><previousPath>/etc/passwd</previousPath></hash>"),
        "line 1: a path that leads nowhere or out of the folder");
    row("entities that grow",
        "<!DOCTYPE x [<!ENTITY a \"" + QByteArray(100, 'a') + "\"><!ENTITY b \"" +
            QByteArray("&a;").repeated(100) + "\"><!ENTITY c \"" + QByteArray("&b;").repeated(100) + "\">]>" +
            manifestWith(hashOf("&c;")),
        "line 1: Entity expands to more characters than the entity expansion limit.");
}

void TestMhl::damagedManifests()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, problem);
    QCOMPARE(readManifest(content).problem, problem);
}

void TestMhl::manifestGoesRoundTrip()
{
    MhlManifest manifest;
    manifest.process = QStringLiteral("in-place");
    manifest.ignored = QStringList({"*.kava", "ascmhl/"});
    manifest.files = {
        record(QString::fromUtf8(" <&\"'> ]]> ä 中 😀 \u00a0\u2028 "), '\xff', MhlAction::Failed),
        record("b/c.MOV", 'b', MhlAction::Verified)};
    manifest.files[1].previousPath = QStringLiteral("b/a.MOV");
    const MhlManifest again = readManifest(toXml(manifest, begun));
    QCOMPARE(again.problem, QString());
    QCOMPARE(again.process, manifest.process);
    QCOMPARE(again.ignored, manifest.ignored);
    QCOMPARE(again.files, manifest.files);
}

void TestMhl::damagedChains_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("problem");

    const auto row = [](const char *title, const QByteArray &content, const char *problem) {
        QTest::newRow(title) << content << QString::fromLatin1(problem);
    };
    const auto entry = [](int number, const QByteArray &path) {
        return "<hashlist sequencenr=\"" + QByteArray::number(number) + "\"><path>" + path +
               "</path><c4>c4 1 2</c4></hashlist>";
    };
    QCOMPARE(readChain(chainWith(entry(1, "a.mhl") + entry(2, "b.mhl"))).problem, QString());
    QCOMPARE(readChain(chainWith(entry(1, "a.mhl"))).generations.first().c4, QByteArray("c412"));
    row("no XML", "text", "line 1: Start tag expected.");
    row("a manifest", manifestWith(hashOf("a")), "line 1: another kind of document");
    row("no generation", chainWith({}), "it is empty");
    row("a number left out", chainWith(entry(1, "a.mhl") + entry(3, "b.mhl")),
        "line 1: the generations are not numbered one after another");
    row("a number twice", chainWith(entry(1, "a.mhl") + entry(1, "b.mhl")),
        "line 1: the generations are not numbered one after another");
    row("no number", chainWith("<hashlist><path>a.mhl</path><c4>c4</c4></hashlist>"),
        "line 1: the generations are not numbered one after another");
    row("a manifest elsewhere", chainWith(entry(1, "../a.mhl")),
        "line 1: a manifest that is not beside the chain");
    row("a manifest in a folder", chainWith(entry(1, "b/a.mhl")),
        "line 1: a manifest that is not beside the chain");
    row("no manifest", chainWith("<hashlist sequencenr=\"1\"/>"),
        "line 1: a manifest that is not beside the chain");
}

void TestMhl::damagedChains()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, problem);
    QCOMPARE(readChain(content).problem, problem);
}

void TestMhl::ignored_data()
{
    QTest::addColumn<QStringList>("patterns");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("matches");

    const auto row = [](const QStringList &patterns, const char *path, bool matches) {
        QTest::newRow(qPrintable(patterns.join(", ") + ": " + path))
            << patterns << QString::fromLatin1(path) << matches;
    };
    row({"*.kava"}, "a.kava", true);
    row({"*.kava"}, "b/c/a.kava", true);
    row({"*.kava"}, "a.kava.MOV", false);
    row({"*.kava"}, "a.kava/b.MOV", true);
    row({"*.kava  "}, "a.kava", true);
    row({"ascmhl/"}, "ascmhl/a", true);
    row({"ascmhl/"}, "b/ascmhl/a", true);
    row({"ascmhl/"}, "b/ascmhl", false);
    row({"/tmp"}, "tmp", true);
    row({"/tmp"}, "tmp/a", true);
    row({"/tmp"}, "b/tmp", false);
    row({"a/b"}, "a/b", true);
    row({"a/b"}, "c/a/b", false);
    row({"a/*"}, "a/b/c", true);
    row({"a?c"}, "abc", true);
    row({"a?c"}, "a/c", false);
    row({"[a-c]x"}, "bx", true);
    row({"[!a-c]x"}, "bx", false);
    row({"[!a-c]x"}, "dx", true);
    row({"[abc"}, "[abc", true);
    row({"**/a/b"}, "x/y/a/b", true);
    row({"**/a"}, "a", true);
    row({"a/**"}, "a/b/c", true);
    row({"a/**"}, "a", false);
    row({"a/**/b"}, "a/b", true);
    row({"a/**/b"}, "a/x/y/b", true);
    row({"a/**/b"}, "a/xb", false);
    row({"*.MOV", "!b.MOV"}, "a.MOV", true);
    row({"*.MOV", "!b.MOV"}, "b.MOV", false);
    row({"d/", "!b.MOV"}, "d/b.MOV", true);
    row({"\\!a"}, "!a", true);
    row({"a.b"}, "axb", false);
    row({"(a+)"}, "(a+)", true);
    row({""}, "a", false);
    row({"/"}, "a", false);
}

void TestMhl::ignored()
{
    QFETCH(QStringList, patterns);
    QFETCH(QString, path);
    QFETCH(bool, matches);
    QCOMPARE(MhlIgnore(patterns).matches(path), matches);
}

void TestMhl::pathsThatFit_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("fits");

    QTest::newRow("a file") << "a.MOV" << true;
    QTest::newRow("a file in folders") << "a/b/c.MOV" << true;
    QTest::newRow("dots in a name") << "a/..b/...c" << true;
    QTest::newRow("blanks") << " a / b " << true;
    QTest::newRow("a surrogate pair") << QString::fromUtf8("😀") << true;
    QTest::newRow("half of one") << QString(QChar(0xd83d)) << false;
    QTest::newRow("nothing") << "" << false;
    QTest::newRow("absolute") << "/a" << false;
    QTest::newRow("out of the folder") << "a/../../b" << false;
    QTest::newRow("a roundabout way") << "a/./b" << false;
    QTest::newRow("a folder") << "a/" << false;
    QTest::newRow("a line end") << "a\nb" << false;
    QTest::newRow("a carriage return") << "a\r" << false;
    QTest::newRow("no character") << QString(QChar(0xffff)) << false;
}

void TestMhl::pathsThatFit()
{
    QFETCH(QString, path);
    QFETCH(bool, fits);
    QCOMPARE(fitsManifest(path), fits);
}

void TestMhl::aSeal()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder("dive");
    const SealResult result = sealFiles(root, records({"DCIM/b.MOV", "DCIM/a.MOV"}), begun, StopFlag());
    QCOMPARE(result.problem, QString());
    QCOMPARE(result.added, 2);
    QCOMPARE(workspace.tree("dive").keys(),
             QStringList({"ascmhl/0001_dive_2026-05-01_103005Z.mhl", "ascmhl/ascmhl_chain.xml"}));
    QCOMPARE(invalid(workspace.path(manifest1), "ASCMHL.xsd"), QString());
    QCOMPARE(invalid(workspace.path(chainPath), "ASCMHLDirectory.xsd"), QString());
    // The schemas tell the two kinds of documents apart.
    QVERIFY(!invalid(workspace.path(chainPath), "ASCMHL.xsd").isEmpty());

    const MhlManifest manifest = readManifest(workspace.read(manifest1));
    QCOMPARE(manifest.process, QString("transfer"));
    QCOMPARE(manifest.files, records({"DCIM/a.MOV", "DCIM/b.MOV"}));
    QCOMPARE(manifest.ignored, QStringList({".DS_Store", "ascmhl/", "*.kava", "*.pano", "*.MOV.jpg",
                                            "Kelpora360.log", ".kelpora360-*.part"}));
    const QVector<MhlGeneration> chain = {
        {"0001_dive_2026-05-01_103005Z.mhl", c4Of(workspace.read(manifest1))}};
    QCOMPARE(readChain(workspace.read(chainPath)).generations, chain);
    const MhlHistory history(root);
    QVERIFY(history.exists());
    QCOMPARE(history.problems(), QStringList());
    QCOMPARE(history.files().value("DCIM/a.MOV").hash, QByteArray(16, 'a'));
    QCOMPARE(history.files().value("DCIM/a.MOV").size, qint64{5});
}

void TestMhl::laterFilesAreAGenerationOfTheirOwn()
{
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    QCOMPARE(pathsOf(readManifest(workspace.read(manifest2)).files), QStringList({"c.MOV"}));
    QCOMPARE(invalid(workspace.path(manifest2), "ASCMHL.xsd"), QString());
    QCOMPARE(invalid(workspace.path(chainPath), "ASCMHLDirectory.xsd"), QString());
    const MhlHistory history(root);
    QCOMPARE(history.generations(), 2);
    QCOMPARE(history.problems(), QStringList());
    QCOMPARE(history.files().size(), 3);
}

void TestMhl::nothingNewIsNoGeneration()
{
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    const QMap<QString, QByteArray> before = workspace.tree("dive");
    const SealResult result = sealFiles(root, records({"b.MOV", "c.MOV"}), begun.addSecs(120), StopFlag());
    QCOMPARE(result.problem, QString());
    QCOMPARE(result.added, 0);
    QCOMPARE(result.known, 2);
    QCOMPARE(workspace.tree("dive"), before);
}

void TestMhl::whatStitchersRewriteIsLeftOut()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder("dive");
    const QStringList paths = {"a.MOV",          "a.kava",
                               "d/a.pano",       "d/a_cam1.MOV.jpg",
                               "Kelpora360.log", "d/.kelpora360-0123456789abcdef.part",
                               "ascmhl/x",       "a.MOV",
                               "a\nb.MOV"};
    const SealResult result = sealFiles(root, records(paths), begun, StopFlag());
    QCOMPARE(result.added, 1);
    QCOMPARE(result.ignored, 6);
    QCOMPARE(result.leftOut, QStringList({"a\nb.MOV"}));
    QCOMPARE(pathsOf(readManifest(workspace.read(manifest1)).files), QStringList({"a.MOV"}));
}

void TestMhl::altered()
{
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    const SealResult result = sealFiles(root, {record("a.MOV", 'x'), record("b.MOV"), record("d.MOV")},
                                        begun.addSecs(120), StopFlag());
    QCOMPARE(result.problem, QString());
    QCOMPARE(result.added, 1);
    QCOMPARE(result.known, 1);
    QCOMPARE(result.altered, QStringList({"a.MOV"}));
    const QVector<MhlRecord> expected = {record("a.MOV", 'x', MhlAction::Failed), record("d.MOV")};
    QCOMPARE(readManifest(workspace.read("dive/ascmhl/0003_dive_2026-05-01_103205Z.mhl")).files, expected);
    // It is still compared with what it was at first.
    QCOMPARE(MhlHistory(root).files().value("a.MOV").hash, QByteArray(16, 'a'));

    // The same is not entered again, another content is.
    const SealResult same = sealFiles(root, {record("a.MOV", 'x')}, begun.addSecs(180), StopFlag());
    QCOMPARE(same.altered, QStringList({"a.MOV"}));
    QCOMPARE(same.added, 0);
    QCOMPARE(MhlHistory(root).generations(), 3);
    QCOMPARE(sealFiles(root, {record("a.MOV", 'y')}, begun.addSecs(240), StopFlag()).altered, same.altered);
    QCOMPARE(MhlHistory(root).generations(), 4);
    // It was good again meanwhile.
    QCOMPARE(MhlHistory(root).append({record("a.MOV", 'a', MhlAction::Verified)}, "in-place",
                                     begun.addSecs(300), StopFlag()),
             QString());
    QCOMPARE(sealFiles(root, {record("a.MOV", 'y')}, begun.addSecs(360), StopFlag()).altered, same.altered);
    QCOMPARE(MhlHistory(root).generations(), 6);
}

void TestMhl::renamedByAnotherProgram()
{
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    MhlRecord renamed = record("new.MOV", 'a', MhlAction::Verified);
    renamed.previousPath = QStringLiteral("a.MOV");
    QCOMPARE(MhlHistory(root).append({renamed}, "in-place", begun.addSecs(120), StopFlag()), QString());
    const MhlHistory history(root);
    QVERIFY(!history.files().contains("a.MOV"));
    QCOMPARE(history.files().value("new.MOV").hash, QByteArray(16, 'a'));
}

void TestMhl::fiveThousandFilesAreValid()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder("dive");
    QStringList paths;
    for (int i = 0; i < 5000; ++i)
        paths.append(QStringLiteral("DCIM/10%1MEDIA/IMG%2_räv & <reef>_cam1.JPG")
                         .arg(i / 1000)
                         .arg(i, 4, 10, QLatin1Char('0')));
    QCOMPARE(sealFiles(root, records(paths), begun, StopFlag()).added, 5000);
    QCOMPARE(invalid(workspace.path(manifest1), "ASCMHL.xsd"), QString());
    QCOMPARE(pathsOf(readManifest(workspace.read(manifest1)).files), paths);
}

void TestMhl::damagedSeals_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("from");
    QTest::addColumn<QByteArray>("to");
    QTest::addColumn<QStringList>("problems");
    QTest::addColumn<int>("files");

    const auto row = [](const char *title, const QString &file, const QByteArray &from, const QByteArray &to,
                        const QStringList &problems,
                        int files) { QTest::newRow(title) << file << from << to << problems << files; };
    const QString name1 = QString(manifest1).remove("dive/");
    const QString name2 = QString(manifest2).remove("dive/");
    const QString altered = QStringLiteral(": it was altered: its C4 is not that of the chain");
    row("a manifest edited by hand", manifest1, "6161", "6162", {name1 + altered}, 1);
    row("a blank more in a manifest", manifest2, "<hashes>", "<hashes> ", {name2 + altered}, 2);
    row("a manifest removed", manifest2, "", "", {name2 + ": it is missing"}, 2);
    row("a note is no fault", "dive/ascmhl/README.txt", "", "x", {}, 3);
    row("the chain removed", chainPath, "", "", {"ascmhl/ascmhl_chain.xml: it is missing"}, 0);
    row("the chain cut short", chainPath, "</ascmhldirectory>", "",
        {"ascmhl/ascmhl_chain.xml: line 12: Premature end of document."}, 0);
}

void TestMhl::damagedSeals()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);
    QFETCH(QStringList, problems);
    QFETCH(int, files);

    const Workspace workspace;
    const QString root = sealTwice(workspace);
    if (from.isEmpty() && to.isEmpty()) {
        QVERIFY(QFile::remove(workspace.path(file)));
    } else {
        const QByteArray content = workspace.read(file);
        QVERIFY(content.contains(from));
        workspace.write(file, from.isEmpty() ? to : QByteArray(content).replace(from, to));
    }
    const QMap<QString, QByteArray> before = workspace.tree("dive");

    MhlHistory history(root);
    QVERIFY(history.exists());
    QCOMPARE(history.problems(), problems);
    QCOMPARE(history.files().size(), files);
    const SealResult result = sealFiles(root, records({"new.MOV"}), begun.addSecs(120), StopFlag());
    if (problems.isEmpty()) {
        QCOMPARE(result.problem, QString());
        return;
    }
    // Nothing is added to what can't be relied on.
    QCOMPARE(result.problem, "the seal is damaged: " + problems.first());
    QCOMPARE(workspace.tree("dive"), before);
}

void TestMhl::interruptedSeals()
{
    // The power went between the names of the manifest and the chain.
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    const QByteArray chain = workspace.read(chainPath);
    QCOMPARE(sealFiles(root, records({"d.MOV"}), begun.addSecs(120), StopFlag()).added, 1);
    workspace.write(chainPath, chain);

    const QStringList unfinished = {"ascmhl/0003_dive_2026-05-01_103205Z.mhl"};
    const MhlHistory interrupted(root);
    QCOMPARE(interrupted.problems(), QStringList());
    QCOMPARE(interrupted.unfinished(), unfinished);
    QCOMPARE(interrupted.generations(), 2);
    QVERIFY(!interrupted.files().contains("d.MOV"));
    QCOMPARE(sealFiles(root, records({"d.MOV"}), begun.addSecs(180), StopFlag()).added, 1);
    const MhlHistory history(root);
    QCOMPARE(history.problems(), QStringList());
    QCOMPARE(history.unfinished(), unfinished);
    QCOMPARE(history.generations(), 3);
    QVERIFY(history.files().contains("d.MOV"));
}

void TestMhl::interruptedFirstSeal()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder("dive");
    QCOMPARE(sealFiles(root, records({"a.MOV"}), begun, StopFlag()).added, 1);
    QVERIFY(QFile::remove(workspace.path(chainPath)));

    const MhlHistory interrupted(root);
    QVERIFY(!interrupted.exists());
    QCOMPARE(interrupted.problems(), QStringList());
    QCOMPARE(interrupted.unfinished(), QStringList("ascmhl/0001_dive_2026-05-01_103005Z.mhl"));
    QCOMPARE(sealFiles(root, records({"a.MOV"}), begun.addSecs(60), StopFlag()).added, 1);
    const MhlHistory history(root);
    QVERIFY(history.exists());
    QCOMPARE(history.problems(), QStringList());
    QCOMPARE(history.generations(), 1);
}

void TestMhl::anotherProgramAddsAGeneration()
{
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    MhlHistory before(root);
    QCOMPARE(sealFiles(root, records({"d.MOV"}), begun.addSecs(120), StopFlag()).added, 1);
    const QMap<QString, QByteArray> tree = workspace.tree("dive");
    QCOMPARE(before.append(records({"e.MOV"}), "transfer", begun.addSecs(180), StopFlag()),
             QString("another program changed the seal"));
    QCOMPARE(workspace.tree("dive"), tree);
}

void TestMhl::aStoppedRunWritesNothing()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder("dive");
    StopFlag stop;
    stop.raise();
    QCOMPARE(sealFiles(root, records({"a.MOV"}), begun, stop).problem, QString("stopped"));
    QVERIFY(!QFile::exists(root + "/ascmhl"));
    QVERIFY(!MhlHistory(root).exists());
}

void TestMhl::fullDisk()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder("dive");
    const TestVolume volume(root, 64);
    SKIP_UNLESS_MOUNTED(volume);
    QCOMPARE(sealFiles(root, records({"a.MOV"}), begun, StopFlag()).added, 1);
    const QMap<QString, QByteArray> before = workspace.tree("dive");
    QStringList paths;
    for (int i = 0; i < 1000; ++i)
        paths.append(QString::number(i));
    const SealResult result = sealFiles(root, records(paths), begun.addSecs(60), StopFlag());
    QVERIFY2(result.problem.contains("No space left"), qPrintable(result.problem));
    QCOMPARE(result.added, 0);
    QCOMPARE(workspace.tree("dive"), before);
}

void TestMhl::noRights()
{
    const Workspace workspace;
    const QString root = sealTwice(workspace);
    const QMap<QString, QByteArray> before = workspace.tree("dive");
    QVERIFY(QFile::setPermissions(root + "/ascmhl", QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    const PlainUser plain;
    QVERIFY(!sealFiles(root, records({"new.MOV"}), begun.addSecs(60), StopFlag()).problem.isEmpty());
    QCOMPARE(workspace.tree("dive"), before);
}

KELPORA_TEST_MAIN(TestMhl)

#include "tst_mhl.moc"
