#include "stitching/projectxml.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QFile>
#include <QTextCodec>

#include <cstring>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Make = QByteArray (*)();
Q_DECLARE_METATYPE(Make)
using MakeFile = void (*)(const Workspace &workspace, QString &path);
Q_DECLARE_METATYPE(MakeFile)

namespace {

const QString templateName = QStringLiteral("Rig.kava");
constexpr int timeoutS = 60;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

QByteArray nested(int levels, const QByteArray &inside = {})
{
    return "<kava>" + QByteArray("<a>").repeated(levels - 1) + inside +
           QByteArray("</a>").repeated(levels - 1) + "</kava>";
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

QByteArray withDoctype(const QByteArray &declarations, const QByteArray &root = "<kava/>")
{
    return "<!DOCTYPE kava [" + declarations + "]>" + root;
}

/// As many uses of an entity of 4000 characters as asked for.
QByteArray longEntity(const QByteArray &use, int count)
{
    return withDoctype("<!ENTITY e \"" + QByteArray(4000, 'x') + "\">",
                       "<kava>" + use.repeated(count) + "</kava>");
}

QByteArray parameterEntities()
{
    QByteArray text = "<!ENTITY % p0 \"<!ELEMENT e ANY>\">";
    for (int level = 1; level < 10; ++level) {
        const QByteArray reference = "&#37;p" + QByteArray::number(level - 1) + ";";
        text += "<!ENTITY % p" + QByteArray::number(level) + " \"" + reference.repeated(10) + "\">";
    }
    return withDoctype(text + "%p9;");
}

QByteArray numbered(const char *before, const char *after, int count)
{
    QByteArray text;
    for (int i = 0; i < count; ++i)
        text += before + QByteArray::number(i) + after;
    return text;
}

ProjectTemplate parse(const QByteArray &text)
{
    return parseTemplate({text, {}});
}

/// One line per node and attribute, in document order but for the attributes, which are sorted.
QStringList listed(const QDomNode &node)
{
    QStringList attributes;
    for (int i = 0; i < node.attributes().count(); ++i)
        attributes += node.attributes().item(i).nodeName() + '=' + node.attributes().item(i).nodeValue();
    attributes.sort();
    QStringList lines = {QString::number(node.nodeType()) + ' ' + node.nodeName() + ": " + node.nodeValue()};
    lines += attributes;
    if (node.isDocument()) {
        const QDomDocumentType type = node.toDocument().doctype();
        lines += QStringList{type.name(), type.publicId(), type.systemId()};
        lines += QString::number(type.entities().count()) + ' ' + QString::number(type.notations().count());
    }
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
        lines += listed(child);
    return lines + QStringList{QStringLiteral("end")};
}

/// The text with fewer escapes: writers may choose which of these they write.
QString unescaped(QString text)
{
    for (const auto &[escape, character] : {std::pair{"&gt;", ">"},
                                            {"&quot;", "\""},
                                            {"&#xa;", "&#10;"},
                                            {"&#x9;", "&#9;"},
                                            {"&#xd;", "&#13;"}})
        text.replace(QLatin1String(escape), QLatin1String(character));
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
    void aQuoteInTheDeclaration();
    void layout_data();
    void layout();
    void instructionsAddNoLines();
    void charactersThatXmlCannotExpress_data();
    void charactersThatXmlCannotExpress();
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
    QTest::newRow("an entity that contains itself")
        << QByteArray("<!DOCTYPE kava [<!ENTITY e '&f;'><!ENTITY f '&e;'>]><kava>&e;</kava>");
    QTest::newRow("a parameter entity that contains itself")
        << QByteArray("<!DOCTYPE kava [<!ENTITY % p '&#37;p;'>%p;]><kava/>");
    QTest::newRow("nested parameter entities") << parameterEntities();
    const QByteArray lax = "<?xml version='1.1'?>";
    QTest::newRow("an element left open, by other rules") << lax + "<kava><a b='>'></kava>";
}

void TestProjectXml::refused()
{
    QFETCH(QByteArray, text);

    const ProjectTemplate read = parse(text);
    QVERIFY2(read.problem.startsWith(QStringLiteral("line ")), qPrintable(read.problem));
    QVERIFY(!read.aboveLimit);
    QVERIFY(!read.document.hasChildNodes());
    QCOMPARE(toXml(read.document), QByteArray());
}

void TestProjectXml::notPlainFiles_data()
{
    QTest::addColumn<MakeFile>("make");
    QTest::addColumn<QString>("problem");

    const auto row = [](const char *title, MakeFile make, const char *problem) {
        QTest::newRow(title) << make << QString::fromLatin1(problem);
    };
    row(
        "a missing file", [](const Workspace &, QString &) {}, "there is no such file");
    row(
        "a folder", [](const Workspace &workspace, QString &) { workspace.makeFolder(templateName); },
        "it is not a file");
    row(
        "a pipe that nobody writes to",
        [](const Workspace &, QString &path) {
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        },
        "it is not a file");
    row(
        "a device without end", [](const Workspace &, QString &path) { path = QStringLiteral("/dev/zero"); },
        "it is not a file");
    row(
        "a link to nothing",
        [](const Workspace &workspace, QString &path) {
            QVERIFY(QFile::link(workspace.path(QStringLiteral("gone")), path));
        },
        "there is no such file");
    row(
        "no path", [](const Workspace &, QString &path) { path.clear(); }, "there is no such file");
}

void TestProjectXml::notPlainFiles()
{
    QFETCH(MakeFile, make);
    QFETCH(QString, problem);

    const Workspace workspace;
    QString path = workspace.path(templateName);
    make(workspace, path);
    const ProjectTemplate read = parseTemplate(readTemplateFile(path));
    QCOMPARE(read.problem, problem);
    QVERIFY(!read.aboveLimit);
    QVERIFY(!read.document.hasChildNodes());
}

void TestProjectXml::unreadableFile()
{
    const Workspace workspace;
    const QString path = workspace.write(templateName, "<kava/>");
    QCOMPARE(readTemplateFile(path).content, QByteArray("<kava/>"));
    QVERIFY(QFile::setPermissions(path, QFileDevice::Permissions()));
    const PlainUser user;
    QCOMPARE(readTemplateFile(path).problem, QStringLiteral("Permission denied"));
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
    QTest::newRow("an entity that nobody uses") << withDoctype("<!ENTITY e 'x'>", "<kava>a</kava>") << "a";
    QTest::newRow("an entity in text") << withDoctype("<!ENTITY e 'x'>", "<kava>a&e;&e;b</kava>") << "axxb";
    QTest::newRow("an entity in an attribute")
        << withDoctype("<!ENTITY e 'x'>", "<kava a='&e;'>a</kava>") << "a";
    QTest::newRow("an entity with an element")
        << withDoctype("<!ENTITY e '<b>x</b>'>", "<kava>a&e;</kava>") << "ax";
    QTest::newRow("an entity that uses one declared later")
        << withDoctype("<!ENTITY e '&f;&f;'><!ENTITY f 'x'>", "<kava>&e;</kava>") << "xx";
    QTest::newRow("an entity that uses itself and is not used")
        << withDoctype("<!ENTITY e '&e;'>", "<kava>a</kava>") << "a";
    QTest::newRow("a parameter entity")
        << withDoctype("<!ENTITY % p '<!ENTITY e \"x\">'>%p;", "<kava>&e;</kava>") << "x";
    QTest::newRow("an entity in another file is not read")
        << withDoctype("<!ENTITY e SYSTEM 'file:///etc/hostname'>", "<kava>a&e;</kava>") << "a";
    QTest::newRow("a content model") << withDoctype("<!ELEMENT kava ((a|b)*,c?)>", "<kava>a</kava>") << "a";
    QTest::newRow("a prefix that is not declared") << QByteArray("<kava><x:a>a</x:a></kava>") << "a";
    // What a strict reader refuses and the DOM takes, without and with a document type.
    struct LaxText
    {
        const char *title;
        QByteArray prolog;
        QByteArray root;
        QString content;
    };
    const QByteArray version11 = "<?xml version='1.1'?>";
    for (const LaxText &lax : {
             LaxText{"another version", version11, "<kava>a</kava>", "a"},
             {"an entity that is not declared", {}, "<kava>a&nbsp;b</kava>", "ab"},
             {"a doubled attribute", {}, "<kava x='1' x='2'>a</kava>", "a"},
             {"no blank between attributes", {}, "<kava x='1'y='2'>a</kava>", "a"},
             {"a control character", {}, "<kava>a&#1;</kava>", "a\x01"},
             {"a control character as it is", {}, "<kava>a\x1f</kava>", "a\x1f"},
             {"a control character in an attribute", {}, "<kava x='&#1;\x02'>a</kava>", "a"},
             {"a control character in a comment", {}, "<kava>a<!--\x01--></kava>", "a"},
             {"an unknown encoding", "<?xml version='1.0' encoding='ansi'?>", "<kava>a</kava>", "a"},
             {"1000 levels", version11, nested(1000), {}},
         }) {
        QTest::addRow("%s", lax.title) << lax.prolog + lax.root << lax.content;
        QTest::addRow("%s, with a document type", lax.title)
            << lax.prolog + "<!DOCTYPE kava>" + lax.root << lax.content;
        QTest::addRow("%s, with a declared entity", lax.title)
            << lax.prolog + withDoctype("<!ENTITY e 'x'>", lax.root) << lax.content;
    }
    QTest::newRow("a declared encoding does not count")
        << QByteArray("<?xml version='1.0' encoding='ISO-8859-1'?><kava>\xc3\xa4</kava>")
        << QString::fromUtf8("ä");
}

void TestProjectXml::accepted()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, content);

    const ProjectTemplate read = parse(text);
    QCOMPARE(read.problem, QString());
    QCOMPARE(read.document.documentElement().tagName(), QStringLiteral("kava"));
    QCOMPARE(read.document.documentElement().text(), content);
    QCOMPARE(listed(parse(toXml(read.document)).document), listed(read.document));
}

void TestProjectXml::aQuoteInTheDeclaration()
{
    const ProjectTemplate read = parse("<?xml version='1.0' encoding=\"U'F-8\"?><kava>a</kava>");
    QCOMPARE(read.problem, QString());
    QCOMPARE(toXml(read.document), QByteArray("<?xml version='1.0' encoding='UTF-8'?>\n<kava>a</kava>\n"));
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
    const QByteArray written = toXml(parse(text).document);
    QCOMPARE(unescaped(QString::fromUtf8(written)), unescaped(reference.toString(1)));
    QCOMPARE(listed(parse(written).document), listed(reference));
}

void TestProjectXml::instructionsAddNoLines()
{
    const QByteArray text = "<kava>\n <?do it=\"now\"?>\n <a>t<?do it?>t</a>\n</kava>\n";
    QCOMPARE(toXml(parse(text).document), text);
}

void TestProjectXml::charactersThatXmlCannotExpress_data()
{
    QTest::addColumn<QString>("character");

    QTest::newRow("half a surrogate pair") << "&#xd800;";
    QTest::newRow("U+FFFE") << "&#xfffe;";
    QTest::newRow("a noncharacter that the writer uses itself") << "&#xfdd1;";
}

/// Better no project than one that lacks something of its template.
void TestProjectXml::charactersThatXmlCannotExpress()
{
    QFETCH(QString, character);

    for (const QString &text :
         {QStringLiteral("<kava><pano>%1</pano></kava>"), QStringLiteral("<kava><pano a='%1'/></kava>")}) {
        const QDomDocument document = parse(text.arg(character).toUtf8()).document;
        QVERIFY(document.hasChildNodes());
        QVERIFY_EXCEPTION_THROWN(static_cast<void>(toXml(document)), std::runtime_error);
        QVERIFY_EXCEPTION_THROWN(static_cast<void>(toPanoXml(document.documentElement())),
                                 std::runtime_error);
    }
}

void TestProjectXml::attributesAreInTheOrderOfTheirNames()
{
    const QByteArray text =
        "<kava z=\"1\" b=\"&lt;2\" a=\"3\" B=\"4\" x:c=\"5\" a2=\"\"><v n=\"1\" m=\"2\"/></kava>";
    QCOMPARE(toXml(parse(text).document),
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

    const QDomDocument document = parse(text).document;
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
    QTest::addColumn<QString>("problem");

    const auto row = [](const char *name, Make make, const char *problem = "") {
        QTest::newRow(name) << make << QString::fromLatin1(problem);
    };
    const char *bytes = "more than 4194304 bytes";
    const char *nodes = "more than 200000 elements, attributes and texts";
    const char *depth = "elements nested deeper than 1000";
    const char *attributes = "an element with more than 300 attributes";
    const char *doctype = "a document type of more than 4096 characters";
    const char *entity = "an entity that expands to more than 10000 characters";
    const char *expanded = "entities that expand to more than 4194304 characters";

    const char *indentation = "an indentation of more than 4194304 blanks";

    // clang-format off
    row("1000 levels", [] { return nested(1000); });
    row("many elements on a deep level", [] { return nested(900, QByteArray("<b/>").repeated(190000)); }, indentation);
    row("1001 levels", [] { return nested(1001); }, depth);
    row("1001 levels, by other rules", [] { return "<?xml version='1.1'?><!-- <a>'\" -->" + nested(1001); }, depth);
    row("1001 levels whose attributes look like ends",
        [] { return QByteArray("<kava b='/>' c=\"'/>\">").repeated(1001) + QByteArray("</kava>").repeated(1001); }, depth);
    row("500,000 levels", [] { return nested(500000); }, depth);
    row("1,000,000 levels left open", [] { return QByteArray("<a>").repeated(1000000); }, depth);
    row("a thousand elements that are not nested",
        [] { return "<kava>" + QByteArray("<a b='/>'/><a c=\"'>\"></a><!-- <a> --><?a <a> ?><![CDATA[<a>]]>").repeated(1000) + "</kava>"; });
    row("nested entities in text", [] { return nestedEntities("<kava>&e9;</kava>"); }, entity);
    row("nested entities in an attribute", [] { return nestedEntities("<kava a='&e9;'/>"); }, entity);
    row("nested entities that nobody uses", [] { return nestedEntities("<kava/>"); }, entity);
    row("nested entities, declared backwards",
        [] { return withDoctype("<!ENTITY c '" + QByteArray("&b;").repeated(300) + "'><!ENTITY b '" +
                                QByteArray("&a;").repeated(300) + "'><!ENTITY a 'x'><!ATTLIST kava k CDATA '&c;'>"); }, entity);
    row("a long entity often in text", [] { return longEntity("&e;", 1000); });
    row("a long entity too often in text", [] { return longEntity("&e;", 1100); }, expanded);
    row("a long entity often in attributes", [] { return longEntity("<a x='&e;'/>", 1000); });
    row("a long entity too often in attributes", [] { return longEntity("<a x='&e;'/>", 1100); }, expanded);
    row("a long entity in one attribute, very often", [] { return withDoctype("<!ENTITY e \"" + QByteArray(4000, 'x') + "\">",
        "<kava a='" + QByteArray("&e;").repeated(1000000) + "'/>"); }, expanded);
    row("a long parameter entity often",
        [] { return withDoctype("<!ENTITY % p '" + QByteArray(2000, ' ') + "'>" + QByteArray("%p;").repeated(600)); });
    row("an entity of a long parameter entity",
        [] { return withDoctype("<!ENTITY % p '" + QByteArray(2000, ' ') + "'><!ENTITY e '" +
                                QByteArray("%p;").repeated(600) + "'>"); }, entity);
    row("100 entities", [] { return withDoctype(numbered("<!ENTITY e", " 'x'>", 100)); });
    row("101 entities", [] { return withDoctype(numbered("<!ENTITY e", " 'x'>", 101)); }, "more than 100 entities");
    row("a long document type", [] { return withDoctype("<!--" + QByteArray(10000, 'x') + "-->"); }, doctype);
    row("a deep content model", [] { return withDoctype("<!ELEMENT kava " + QByteArray(1000000, '(')); }, doctype);
    row("300 attributes of one element", [] { return "<kava" + numbered(" a", "='1'", 300) + "/>"; });
    row("300 attributes of 660 elements",
        [] { return "<kava>" + ("<a" + numbered(" a", "=''", 300) + "/>").repeated(660) + "</kava>"; });
    row("301 attributes of one element", [] { return "<kava" + numbered(" a", "='1'", 301) + "/>"; }, attributes);
    row("100,000 attributes of one element", [] { return "<kava" + numbered(" a", "='1'", 100000) + "/>"; }, attributes);
    row("1,000,000 attributes without blanks", [] { return "<kava " + QByteArray("a=''").repeated(1000000) + "/>"; }, attributes);
    row("199,999 elements side by side", [] { return "<kava>" + QByteArray("<a/>").repeated(199999) + "</kava>"; });
    row("99,999 elements with an attribute", [] { return "<kava>" + QByteArray("<a b='1'/>").repeated(99999) + "</kava>"; });
    row("200,000 elements and the root", [] { return "<kava>" + QByteArray("<a/>").repeated(200000) + "</kava>"; }, nodes);
    row("200,000 comments", [] { return "<kava>" + QByteArray("<!---->").repeated(200000) + "</kava>"; }, nodes);
    row("200,000 instructions", [] { return "<kava>" + QByteArray("<?a b?>").repeated(200000) + "</kava>"; }, nodes);
    row("200,000 CDATA sections", [] { return "<kava>" + QByteArray("<![CDATA[]]>").repeated(200000) + "</kava>"; }, nodes);
    row("100,000 texts", [] { return "<kava>" + QByteArray("<a/>x").repeated(100000) + "</kava>"; }, nodes);
    row("1,000,000 entities that are not declared", [] { return "<kava>" + QByteArray("&e;").repeated(1000000) + "</kava>"; }, nodes);
    row("4 MB of text", [] { return "<kava>" + QByteArray("text &amp; ").repeated(380000) + "</kava>"; });
    row("4 MB of quotes", [] { return "<kava>" + QByteArray(4000000, '"') + "</kava>"; });
    row("4 MB of control characters", [] { return "<kava a='" + QByteArray(4000000, '\x01') + "'/>"; });
    row("4 MB of elements",
        [] { return "<kava>" + QByteArray("<v a='1'>" + QByteArray(490, 'x') + "</v>").repeated(8300) + "</kava>"; });
    row("4 MB that break off at the end",
        [] { return "<kava>" + QByteArray("<v a='1'>" + QByteArray(490, 'x') + "</v>").repeated(8300); }, "line 1, column ");
    row("50 MB of small elements", [] { return "<kava>" + QByteArray("<a/>").repeated(12500000) + "</kava>"; }, bytes);
    row("a comment of 30 MB", [] { return "<kava><!--" + QByteArray(30000000, 'x') + "--></kava>"; }, bytes);
    // clang-format on
}

/// In a process of its own: a crash, a hang and the memory it takes are seen from outside.
void TestProjectXml::hugeOrHostile()
{
    QFETCH(Make, make);
    QFETCH(QString, problem);

    constexpr long maxMiB = 250;
    constexpr long maxMs = 3000;
    const Workspace workspace;
    const QString path = workspace.write(templateName, make());
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        ::alarm(timeoutS);
        const ProjectTemplate read = parseTemplate(readTemplateFile(path));
        const bool asExpected = problem.isEmpty() ? read.problem.isEmpty() : read.problem.startsWith(problem);
        if (!asExpected)
            qWarning().noquote() << read.problem;
        const bool limited = !problem.isEmpty() && !problem.startsWith(QStringLiteral("line "));
        const bool written = !toXml(read.document).isEmpty();
        ::_exit(asExpected && read.aboveLimit == limited && written == problem.isEmpty() ? 0 : 1);
    }
    int status = 0;
    struct rusage usage = {};
    QCOMPARE(::wait4(child, &status, 0, &usage), child);
    QVERIFY2(WIFEXITED(status), ::strsignal(WTERMSIG(status)));
    QCOMPARE(WEXITSTATUS(status), 0);
    const long usedMiB = usage.ru_maxrss / 1024;
    // The time on the processor: the machine may be busy.
    const long usedMs = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
                        (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
    qInfo("%ld ms, %ld MiB", usedMs, usedMiB);
    if (sanitized)
        return;
    QVERIFY(usedMs <= maxMs);
    QVERIFY(usedMiB <= maxMiB);
}

KELPORA_TEST_MAIN(TestProjectXml)
#include "tst_projectxml.moc"
