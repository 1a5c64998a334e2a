#include "stitching/projectxml.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTextCodec>

#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Make = QByteArray (*)();
Q_DECLARE_METATYPE(Make)

namespace {

const QString templateName = QStringLiteral("Rig.kava");
constexpr int patienceS = 60;

QByteArray nested(int levels)
{
    return "<kava>" + QByteArray("<a>").repeated(levels - 1) + QByteArray("</a>").repeated(levels - 1) +
           "</kava>";
}

/// Ten levels of entities, each ten times the one before.
QByteArray nestedEntities(const QByteArray &body)
{
    QByteArray text = "<!DOCTYPE kava [<!ENTITY e0 \"0123456789\">";
    for (int level = 1; level < 10; ++level) {
        const QByteArray reference = "&e" + QByteArray::number(level - 1) + ";";
        text += "<!ENTITY e" + QByteArray::number(level) + " \"" + reference.repeated(10) + "\">";
    }
    return text + "]>" + body;
}

/// One long entity that is used very often.
QByteArray longEntity(const QByteArray &use)
{
    return "<!DOCTYPE kava [<!ENTITY e \"" + QByteArray(100000, 'x') + "\">]><kava>" + use.repeated(100000) +
           "</kava>";
}

QByteArray parameterEntities()
{
    QByteArray text = "<!DOCTYPE kava [<!ENTITY % p0 \"<!ELEMENT e ANY>\">";
    for (int level = 1; level < 10; ++level) {
        const QByteArray reference = "&#37;p" + QByteArray::number(level - 1) + ";";
        text += "<!ENTITY % p" + QByteArray::number(level) + " \"" + reference.repeated(10) + "\">";
    }
    return text + "%p9;]><kava/>";
}

QByteArray numbered(const char *before, const char *after, int count)
{
    QByteArray text;
    for (int i = 0; i < count; ++i)
        text += before + QByteArray::number(i) + after;
    return text;
}

} // namespace

class TestProjectXml : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refused_data();
    void refused();
    void notPlainFiles_data();
    void notPlainFiles();
    void unreadableFile();
    void accepted_data();
    void accepted();
    void layout_data();
    void layout();
    void attributesAreInTheOrderOfTheirNames();
    void emptyDocument();
    void panorama_data();
    void panorama();
    void hugeOrHostile_data();
    void hugeOrHostile();
};

void TestProjectXml::initTestCase()
{
    // QDomDocument::toString() replaces what the locale's codec can't express.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void TestProjectXml::refused_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("an empty file") << QByteArray();
    QTest::newRow("blanks only") << QByteArray(" \n ");
    QTest::newRow("no XML at all") << QByteArray("a template\n");
    QTest::newRow("bytes of a video") << QByteArray("\x00\x00\x00\x14"
                                                    "ftypqt  \xff\xfe\x00\x01",
                                                    16);
    QTest::newRow("an element left open after much that was read")
        << QByteArray("<kava><videos><video file='a'/></videos><pano><images/></pano>");
    QTest::newRow("a wrong end tag after much that was read")
        << QByteArray("<kava><videos><video file='a'/></videos></pano></kava>");
    QTest::newRow("cut off in a tag") << QByteArray("<kava><videos><video fi");
    QTest::newRow("cut off in a comment") << QByteArray("<kava/><!-- ");
    QTest::newRow("two root elements") << QByteArray("<kava/><kava/>");
    QTest::newRow("text after the root") << QByteArray("<kava/>text");
    QTest::newRow("a bare ampersand") << QByteArray("<kava>a & b</kava>");
    QTest::newRow("a zero byte") << QByteArray("<kava>\0</kava>", 14);
    QTest::newRow("a blank before the declaration") << QByteArray(" <?xml version='1.0'?><kava/>");
    QTest::newRow("one entity, unused") << QByteArray("<!DOCTYPE kava [<!ENTITY e 'x'>]><kava/>");
    QTest::newRow("one entity, used") << QByteArray("<!DOCTYPE kava [<!ENTITY e 'x'>]><kava>&e;</kava>");
    QTest::newRow("an entity in another file")
        << QByteArray("<!DOCTYPE kava [<!ENTITY e SYSTEM 'file:///etc/hostname'>]><kava>&e;</kava>");
    QTest::newRow("1001 levels") << nested(1001);
    const QByteArray lax = "<?xml version='1.1'?>";
    QTest::newRow("1001 levels, by other rules") << lax + nested(1001);
    QTest::newRow("1001 levels behind a comment, by other rules") << lax + "<!-- <a>'\" -->" + nested(1001);
    QTest::newRow("1001 levels whose attributes look like ends, by other rules")
        << lax + QByteArray("<kava b='/>' c=\"'/>\">").repeated(1001) + QByteArray("</kava>").repeated(1001);
    QTest::newRow("an element left open, by other rules") << lax + "<kava><a b='>'></kava>";
    QTest::newRow("one entity, by other rules") << lax + "<!DOCTYPE kava [<!ENTITY e 'x'>]><kava>&e;</kava>";
}

void TestProjectXml::refused()
{
    QFETCH(QByteArray, text);

    const Workspace workspace;
    const QDomDocument document = readTemplate(workspace.write(templateName, text));
    QVERIFY(!document.hasChildNodes());
    QCOMPARE(toXml(document), QByteArray());
}

void TestProjectXml::notPlainFiles_data()
{
    QTest::addColumn<QString>("kind");

    QTest::newRow("a missing file") << "missing";
    QTest::newRow("a folder") << "folder";
    QTest::newRow("a pipe that nobody writes to") << "pipe";
    QTest::newRow("a device without end") << "device";
    QTest::newRow("a link to nothing") << "link";
    QTest::newRow("no path") << "none";
}

void TestProjectXml::notPlainFiles()
{
    QFETCH(QString, kind);

    const Workspace workspace;
    QString path = workspace.path(templateName);
    if (kind == QLatin1String("folder"))
        workspace.makeFolder(templateName);
    else if (kind == QLatin1String("pipe"))
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    else if (kind == QLatin1String("device"))
        path = QStringLiteral("/dev/zero");
    else if (kind == QLatin1String("link"))
        QVERIFY(QFile::link(workspace.path(QStringLiteral("gone")), path));
    else if (kind == QLatin1String("none"))
        path.clear();
    QVERIFY(!readTemplate(path).hasChildNodes());
}

void TestProjectXml::unreadableFile()
{
    const Workspace workspace;
    const QString path = workspace.write(templateName, "<kava/>");
    QVERIFY(readTemplate(path).hasChildNodes());
    QVERIFY(QFile::setPermissions(path, QFileDevice::Permissions()));
    const PlainUser user;
    QVERIFY(!QFile(path).open(QIODevice::ReadOnly));
    QVERIFY(!readTemplate(path).hasChildNodes());
}

void TestProjectXml::accepted_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("content");

    QTest::newRow("1000 levels") << nested(1000) << QString();
    QTest::newRow("a byte order mark")
        << QByteArray("\xef\xbb\xbf<?xml version='1.0'?><kava>a</kava>") << "a";
    QTest::newRow("letters beyond ASCII")
        << QByteArray("<kava>\xc3\xa4\xe4\xb8\xad\xf0\x9f\x90\x99</kava>") << QString::fromUtf8("ä中🐙");
    QTest::newRow("the five entities of XML")
        << QByteArray("<kava>&lt;&gt;&amp;&quot;&apos;</kava>") << "<>&\"'";
    QTest::newRow("character references")
        << QByteArray("<kava>&#65;&#xe4;</kava>") << QString::fromUtf8("Aä");
    QTest::newRow("line ends of another system") << QByteArray("<kava>a\r\nb</kava>") << "a\r\nb";
    QTest::newRow("a document type without entities")
        << QByteArray("<!DOCTYPE kava [<!ELEMENT kava ANY>]><kava>a</kava>") << "a";
    QTest::newRow("a document type in another file that is not there")
        << QByteArray("<!DOCTYPE kava SYSTEM 'gone.dtd'><kava>a</kava>") << "a";
    QTest::newRow("a prefix that is not declared") << QByteArray("<kava><x:a>a</x:a></kava>") << "a";
    // What a strict reader refuses and the DOM takes.
    const QByteArray lax = "<?xml version='1.1'?>";
    QTest::newRow("another version") << lax + "<kava>a</kava>"
                                     << "a";
    QTest::newRow("an entity that is not declared") << QByteArray("<kava>a&nbsp;b</kava>") << "ab";
    QTest::newRow("a doubled attribute") << QByteArray("<kava x='1' x='2'>a</kava>") << "a";
    QTest::newRow("no blank between attributes") << QByteArray("<kava x='1'y='2'>a</kava>") << "a";
    QTest::newRow("a control character") << QByteArray("<kava>a&#1;</kava>") << QStringLiteral("a\x01");
    QTest::newRow("an unknown encoding")
        << QByteArray("<?xml version='1.0' encoding='ansi'?><kava>a</kava>") << "a";
    QTest::newRow("1000 levels, by other rules") << lax + nested(1000) << QString();
    QTest::newRow("a thousand elements that are not nested, by other rules")
        << lax + "<kava>" +
               QByteArray("<a b='/>'/><a c=\"'>\"></a><!-- <a> --><?a <a> ?><![CDATA[<a>]]>").repeated(1000) +
               "</kava>"
        << QStringLiteral("<a>").repeated(1000);
    QTest::newRow("a declared encoding does not count")
        << QByteArray("<?xml version='1.0' encoding='ISO-8859-1'?><kava>\xc3\xa4</kava>")
        << QString::fromUtf8("ä");
}

void TestProjectXml::accepted()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, content);

    const Workspace workspace;
    const QDomDocument document = readTemplate(workspace.write(templateName, text));
    QCOMPARE(document.documentElement().tagName(), QStringLiteral("kava"));
    QCOMPARE(document.documentElement().text(), content);
    QVERIFY(!toXml(document).isEmpty());
}

void TestProjectXml::layout_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("one empty element") << QByteArray("<kava/>");
    QTest::newRow("one element with an end tag") << QByteArray("<kava></kava>");
    QTest::newRow("nesting") << QByteArray("<kava><a><b><c x='1'/></b><b/></a><a/></kava>");
    QTest::newRow("text alone") << QByteArray("<kava><a>text</a></kava>");
    QTest::newRow("text before an element") << QByteArray("<kava>text<a/></kava>");
    QTest::newRow("text after an element") << QByteArray("<kava><a/>text</kava>");
    QTest::newRow("text between elements") << QByteArray("<kava><a/>text<b/><c/></kava>");
    QTest::newRow("text around an element") << QByteArray("<kava>text<a><b/></a>text</kava>");
    QTest::newRow("text with its own lines and blanks") << QByteArray("<kava>\n  text \n <a/>\n\n</kava>");
    QTest::newRow("blank text") << QByteArray("<kava> <a> </a> </kava>");
    QTest::newRow("a CDATA section") << QByteArray("<kava><a><![CDATA[<raw> & ]]></a></kava>");
    QTest::newRow("a CDATA section between elements") << QByteArray("<kava><a/><![CDATA[x]]><b/></kava>");
    QTest::newRow("a CDATA section beside text") << QByteArray("<kava>t<![CDATA[x]]>t<b/></kava>");
    QTest::newRow("a comment") << QByteArray("<kava><!-- c --><a/><!-- d --></kava>");
    QTest::newRow("a comment alone") << QByteArray("<kava><!-- c --></kava>");
    QTest::newRow("a comment of several lines") << QByteArray("<kava><!-- c\n  d\n--></kava>");
    QTest::newRow("a comment beside text") << QByteArray("<kava>t<!-- c -->t<a/></kava>");
    QTest::newRow("comments around the root") << QByteArray("<!-- a --><kava/><!-- b -->");
    QTest::newRow("a processing instruction") << QByteArray("<kava><?do it=\"now\"?><a/></kava>");
    QTest::newRow("a processing instruction beside text") << QByteArray("<kava>t<?do it?>t</kava>");
    QTest::newRow("processing instructions around the root") << QByteArray("<?a b?><kava/><?c d?>");
    QTest::newRow("a declaration") << QByteArray("<?xml version='1.0' encoding='UTF-8'?><kava/>");
    QTest::newRow("a declaration with more")
        << QByteArray("<?xml version=\"1.0\" standalone=\"yes\"?>\n\n<kava/>");
    QTest::newRow("a document type") << QByteArray("<!DOCTYPE kava><kava/>");
    QTest::newRow("a document type of another name") << QByteArray("<!DOCTYPE other><kava/>");
    QTest::newRow("a document type in a file") << QByteArray("<!DOCTYPE kava SYSTEM \"kava.dtd\"><kava/>");
    QTest::newRow("a public document type")
        << QByteArray("<!DOCTYPE kava PUBLIC \"-//K//K\" \"kava.dtd\"><kava/>");
    QTest::newRow("a document type with a notation")
        << QByteArray("<!DOCTYPE kava [<!NOTATION n SYSTEM \"x\">]><kava/>");
    QTest::newRow("a whole prolog") << QByteArray(
        "<?xml version='1.0'?><!-- a --><!DOCTYPE kava><!-- b --><?p q?><kava/><!-- c -->");
    QTest::newRow("entities in text") << QByteArray("<kava>&lt;&gt;&amp;&quot;&apos;]]&gt;</kava>");
    QTest::newRow("entities in an attribute") << QByteArray("<kava a='&lt;&gt;&amp;&quot;&apos;'/>");
    QTest::newRow("brackets in an attribute") << QByteArray("<kava a=']]&gt;]>]&gt;'/>");
    QTest::newRow("a bracket at the start of text")
        << QByteArray("<kava><a>&gt;</a><a>]&gt;</a><a>]]]&gt;</a></kava>");
    QTest::newRow("quotes in an attribute") << QByteArray("<kava a='\"'><b a=\"'\"/></kava>");
    QTest::newRow("line ends and tabs in an attribute") << QByteArray("<kava a='x&#10;y&#9;z&#13;'/>");
    QTest::newRow("line ends and tabs in text") << QByteArray("<kava>x&#10;y&#9;z&#13;</kava>");
    QTest::newRow("an empty attribute") << QByteArray("<kava a=''/>");
    QTest::newRow("a prefix") << QByteArray("<x:kava xmlns:x=\"urn:x\"><x:a x:b='1'/></x:kava>");
    QTest::newRow("a default namespace") << QByteArray("<kava xmlns=\"urn:x\"><a/></kava>");
    QTest::newRow("a byte order mark") << QByteArray("\xef\xbb\xbf<kava a='\xc3\xa4'>\xe4\xb8\xad</kava>");
    QTest::newRow("letters beyond ASCII")
        << QByteArray("<k\xc3\xa4va a='\xf0\x9f\x90\x99'>\xf0\x9f\x90\x99</k\xc3\xa4va>");
    QTest::newRow("line ends of another system") << QByteArray("<kava>\r\n<a>x\r\ny</a>\r\n</kava>\r\n");
    QTest::newRow("a placeholder") << QByteArray("<kava a='%1'>%2</kava>");
}

void TestProjectXml::layout()
{
    QFETCH(QByteArray, text);

    QDomDocument reference;
    QVERIFY(reference.setContent(QString::fromUtf8(text), false));
    const Workspace workspace;
    const QByteArray written = toXml(readTemplate(workspace.write(templateName, text)));
    QCOMPARE(QString::fromUtf8(written), reference.toString(1));
}

void TestProjectXml::attributesAreInTheOrderOfTheirNames()
{
    const Workspace workspace;
    const QByteArray text =
        "<kava z=\"1\" b=\"&lt;2\" a=\"3\" B=\"4\" x:c=\"5\" a2=\"\"><v n=\"1\" m=\"2\"/></kava>";
    QCOMPARE(toXml(readTemplate(workspace.write(templateName, text))),
             QByteArray("<kava B=\"4\" a=\"3\" a2=\"\" b=\"&lt;2\" x:c=\"5\" z=\"1\">\n <v m=\"2\" "
                        "n=\"1\"/>\n</kava>\n"));
}

void TestProjectXml::emptyDocument()
{
    QCOMPARE(toXml(QDomDocument()), QByteArray());
}

void TestProjectXml::panorama_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("none") << QByteArray("<kava/>") << QByteArray();
    QTest::newRow("an empty one") << QByteArray("<kava><pano/></kava>") << QByteArray("<pano/>\n");
    QTest::newRow("its level becomes the first")
        << QByteArray("<kava><pano b='2' a='1'><images><image/></images></pano></kava>")
        << QByteArray("<pano a=\"1\" b=\"2\">\n <images>\n  <image/>\n </images>\n</pano>\n");
    QTest::newRow("text beside it stays out")
        << QByteArray("<kava>text<pano/>text</kava>") << QByteArray("<pano/>\n");
    QTest::newRow("text within it") << QByteArray("<kava><pano>\xc3\xa4<a/></pano></kava>")
                                    << QByteArray("<pano>\xc3\xa4<a/>\n</pano>\n");
}

void TestProjectXml::panorama()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, body);

    const Workspace workspace;
    const QDomDocument document = readTemplate(workspace.write(templateName, text));
    const QDomElement pano = document.documentElement().firstChildElement(QStringLiteral("pano"));
    QCOMPARE(toPanoXml(pano), QByteArray("<?xml version='1.0' encoding='UTF-8'?>\n") + body);

    // The same as a document of its own.
    QDomDocument alone(QStringLiteral("pano"));
    alone.appendChild(pano.cloneNode());
    if (!pano.isNull() && pano.attributes().count() <= 1) {
        QCOMPARE(QString::fromUtf8(toPanoXml(pano)),
                 alone.toString(1).replace(QStringLiteral("<!DOCTYPE pano>"),
                                           QStringLiteral("<?xml version='1.0' encoding='UTF-8'?>")));
    }
}

void TestProjectXml::hugeOrHostile_data()
{
    QTest::addColumn<Make>("make");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<int>("mostMiB");

    const auto row = [](const char *name, Make make, bool accepted, int mostMiB) {
        QTest::newRow(name) << make << accepted << mostMiB;
    };
    row(
        "10,000 levels", [] { return nested(10000); }, false, 300);
    row(
        "1,000,000 levels", [] { return nested(1000000); }, false, 300);
    row(
        "1,000,000 levels left open", [] { return QByteArray("<a>").repeated(1000000); }, false, 300);
    row(
        "nested entities in text", [] { return nestedEntities("<kava>&e9;</kava>"); }, false, 300);
    row(
        "nested entities in an attribute", [] { return nestedEntities("<kava a='&e9;'/>"); }, false, 300);
    row(
        "nested entities that nobody uses", [] { return nestedEntities("<kava/>"); }, false, 300);
    row(
        "a long entity very often in text", [] { return longEntity("&e;"); }, false, 300);
    row(
        "a long entity very often in attributes", [] { return longEntity("<a x='&e;'/>"); }, false, 300);
    row(
        "an entity that contains itself",
        [] { return QByteArray("<!DOCTYPE kava [<!ENTITY e '&f;'><!ENTITY f '&e;'>]><kava>&e;</kava>"); },
        false, 300);
    row("nested parameter entities", parameterEntities, false, 300);
    row(
        "a parameter entity that contains itself",
        [] { return QByteArray("<!DOCTYPE kava [<!ENTITY % p '&#37;p;'>%p;]><kava/>"); }, false, 300);
    row(
        "100,000 entities",
        [] { return "<!DOCTYPE kava [" + numbered("<!ENTITY e", " 'x'>", 100000) + "]><kava/>"; }, false,
        300);
    row(
        "10,000 attributes of one element", [] { return "<kava" + numbered(" a", "='1'", 10000) + "/>"; },
        true, 1000);
    row(
        "1,000,000 elements side by side",
        [] { return "<kava>" + QByteArray("<a/>").repeated(1000000) + "</kava>"; }, true, 3000);
    row(
        "50 MB of text", [] { return "<kava>" + QByteArray("text &amp; ").repeated(5000000) + "</kava>"; },
        true, 3000);
    row(
        "50 MB of elements",
        [] {
            return "<kava>" + QByteArray("<v a='1'>" + QByteArray(490, 'x') + "</v>").repeated(100000) +
                   "</kava>";
        },
        true, 3000);
    row(
        "50 MB that break off at the end",
        [] { return "<kava>" + QByteArray("<v a='1'>" + QByteArray(490, 'x') + "</v>").repeated(100000); },
        false, 3000);
}

/// In a process of its own: a crash, a hang and the memory it takes are seen from outside.
void TestProjectXml::hugeOrHostile()
{
    QFETCH(Make, make);
    QFETCH(bool, accepted);
    QFETCH(int, mostMiB);

    const Workspace workspace;
    const QString path = workspace.write(templateName, make());
    QElapsedTimer clock;
    clock.start();
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        ::alarm(patienceS);
        const QDomDocument document = readTemplate(path);
        const bool any = document.hasChildNodes();
        ::_exit(any == !toXml(document).isEmpty() ? int(any) : 2);
    }
    int status = 0;
    struct rusage usage = {};
    QCOMPARE(::wait4(child, &status, 0, &usage), child);
    const long usedMiB = usage.ru_maxrss / 1024;
    qInfo("%lld ms, %ld MiB", static_cast<long long>(clock.elapsed()), usedMiB);
    QVERIFY2(WIFEXITED(status), ::strsignal(WTERMSIG(status)));
    QCOMPARE(WEXITSTATUS(status), int(accepted));
    QVERIFY(usedMiB <= mostMiB);
}

KELPORA_TEST_MAIN(TestProjectXml)
#include "tst_projectxml.moc"
