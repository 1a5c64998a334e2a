#include "app/paths.h"
#include "stitching/autopano.h"
#include "tests/stitching/xmltree.h"
#include "tests/support/messagelog.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>

#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const QString templatesFolder = QStringLiteral("app/templates");
const QString folderTemplate = QStringLiteral("app/templates/Rig.kava");
const QString gigaTemplate = QStringLiteral("app/templates/Rig.pano");
const QByteArray declaration = "<?xml version='1.0' encoding='UTF-8'?>\n";

/// A template with more of everything than the program edits.
const QByteArray rig = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE kava>
<!-- the rig of the "Seahorse" -->
<kava version="2.5" xmlns:x="urn:x">
  <thumbnail>outside the panorama</thumbnail>
  <match a="outside the panorama"/>
  <videos count="4">
    <group><video file="nested.MOV" dt="9"/></group>
    <video file="a.MOV" dt="12.5" fps="25"><meta file="kept" dt="7"/></video>
    <audio file="x.wav" dt="3"/>
    <video file="b.MOV"/>
    <!-- between -->
    <video dt="1" x:note="&lt;&quot;&amp;">text of a video</video>
    <video file="d.MOV" dt="4"/>
  </videos>
  <videos><video file="second list" dt="3"/></videos>
  <stabilization on="1">
    <video file="a" dt="5"/><video file="b" dt="6"/><video file="c" dt="7"/><video file="d" dt="8"/>
  </stabilization>
  <exposure>
    <video file="a" ev="1"/><video ev="2"/><video file="c" ev="3"/><video file="d" ev="4"/>
  </exposure>
  <pano kind="sphere">
    <images ref="1">
      <image id="1"><thumbnail w="2">AAAA</thumbnail><def filename="a.jpg" fmt="j"/><def filename="second"/>
        <camera yaw="1" pitch="2" roll="3" offset_x="4" offset_y="5" f="16"/><camera yaw="second"/></image>
      <other><def filename="kept"/></other>
      <image id="2"><def filename="b.jpg"/><camera yaw="1" f="17"/></image>
      <image id="3"><camera roll="9"/><def/></image>
      <image id="4"><def filename="d.jpg"/><camera yaw="44"/><thumbnail/></image>
    </images>
    <images><image><def filename="second list"/><camera yaw="5"/></image></images>
    <links><match a="1" b="2"><match/><point/></match><match/><keep><match>text</match></keep></links>
    <deep><thumbnail><match/><keep/></thumbnail><match><thumbnail/></match>text</deep>
    <thumbnail/>
    <matches n="0"/><Thumbnail/><thumbnails/>
  </pano>
  <pano><thumbnail/><match/><images><image><def filename="second panorama"/></image></images></pano>
  <output file="old.kava" width="4096"/>
  <output file="second"/>
  <encodingrules presets="1;" quality="9" profile="" framerateMode="3;" vbitrate="1" abitrate="2" codec="h264"/>
  <encodingrules quality="second"/>
  <notes>)"
                       "\xc3\xa4 &amp; <b>bold</b> &lt;x&gt;<![CDATA[<raw>]]></notes>\n"
                       "  <?do it?>\n</kava>\n";

QByteArray without(const QByteArray &before, const QByteArray &after = {})
{
    QByteArray text = rig;
    if (!text.contains(before))
        qFatal("The template has no %s", before.constData());
    return text.replace(before, after);
}

/// The template with the elements `tag` under another name, which the program doesn't know.
QByteArray unknown(const QByteArray &tag)
{
    QByteArray text = rig;
    text.replace("<" + tag + ">", "<x" + tag + ">").replace("<" + tag + " ", "<x" + tag + " ");
    text.replace("<" + tag + "/", "<x" + tag + "/").replace("</" + tag + ">", "</x" + tag + ">");
    return text;
}

QVariantMap settings(const char *overwrite = "1", const char *radians = "0")
{
    QVariantMap map;
    for (int camera = 1; camera <= 3; ++camera) {
        for (const char *angle : {"Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"})
            map.insert(QStringLiteral("Camera%1%2").arg(camera).arg(QLatin1String(angle)),
                       QStringLiteral("%1.%2%3")
                           .arg(camera)
                           .arg(qstrlen(angle))
                           .arg(int(angle[qstrlen(angle) - 1])));
    }
    map.insert(QStringLiteral("OverwriteAngles"), QString::fromLatin1(overwrite));
    map.insert(QStringLiteral("RadiansAngles"), QString::fromLatin1(radians));
    return map;
}

void set(XmlNode *node, const char *attribute, const QString &value)
{
    if (node != nullptr)
        node->attributes.insert(QString::fromLatin1(attribute), value);
}

/// Applies the panorama's edits to a template read by the test itself.
void editPano(XmlNode *pano, const QStringList &pictures, const QVariantMap &map)
{
    XmlNode *images = pano->child(QStringLiteral("images"));
    for (int number = 1; images != nullptr && number <= 3; ++number) {
        XmlNode *image = images->child(QStringLiteral("image"), number);
        if (image == nullptr)
            break;
        set(image->child(QStringLiteral("def")), "filename", pictures.at(number - 1));
        if (map.value(QStringLiteral("OverwriteAngles")) != QVariant(QStringLiteral("1")))
            continue;
        XmlNode *camera = image->child(QStringLiteral("camera"));
        const QString prefix = QStringLiteral("Camera%1").arg(number);
        set(camera, "yaw", map.value(prefix + QStringLiteral("Yaw")).toString());
        set(camera, "pitch", map.value(prefix + QStringLiteral("Pitch")).toString());
        set(camera, "roll", map.value(prefix + QStringLiteral("Roll")).toString());
        set(camera, "offset_x", map.value(prefix + QStringLiteral("OffsetX")).toString());
        set(camera, "offset_y", map.value(prefix + QStringLiteral("OffsetY")).toString());
    }
    pano->removeDescendants(QStringLiteral("thumbnail"));
    pano->removeDescendants(QStringLiteral("match"));
}

/// What the video project must hold, from a template read by the test itself.
XmlNode expectedProject(const QByteArray &text, const QStringList &videos, const QString &rendered,
                        const QVariantMap &map)
{
    XmlNode document = readXml(text);
    XmlNode *kava = document.child(QStringLiteral("kava"));
    if (kava == nullptr)
        return document;
    for (const char *list : {"videos", "stabilization", "exposure"}) {
        XmlNode *parent = kava->child(QLatin1String(list));
        for (int number = 1; parent != nullptr && number <= 3; ++number) {
            XmlNode *video = parent->child(QStringLiteral("video"), number);
            set(video, "file", videos.at(number - 1));
            if (qstrcmp(list, "videos") == 0)
                set(video, "dt", QStringLiteral("0"));
        }
    }
    if (XmlNode *pano = kava->child(QStringLiteral("pano"))) {
        QStringList pictures = videos;
        for (QString &picture : pictures)
            picture += QStringLiteral(".jpg");
        editPano(pano, pictures, map);
    }
    set(kava->child(QStringLiteral("output")), "file", rendered);
    XmlNode *rules = kava->child(QStringLiteral("encodingrules"));
    set(rules, "presets", QStringLiteral("4;"));
    set(rules, "quality", QStringLiteral("1;"));
    set(rules, "profile", QStringLiteral("2;"));
    set(rules, "framerateMode", QStringLiteral("0;"));
    set(rules, "vbitrate", QStringLiteral("100000000"));
    set(rules, "abitrate", QStringLiteral("160000"));
    return document;
}

/// The panorama of `document` as a project of its own: the declaration and the element.
XmlNode panoOf(XmlNode document)
{
    XmlNode alone = readXml(declaration + "<pano/>");
    alone.children.pop_back();
    if (XmlNode *pano = document.descendant(QStringLiteral("kava/pano")))
        alone.children.push_back(*pano);
    return alone;
}

QStringList cameraNames(const QString &pattern)
{
    return {pattern.arg(1), pattern.arg(2), pattern.arg(3)};
}

QString wrote(const QString &path, int card = 1)
{
    return QStringLiteral("info: Card %1: wrote template file %2.").arg(card).arg(path);
}

QString copied(const QString &path, int card = 1)
{
    return QStringLiteral("info: Card %1: copied template file %2.").arg(card).arg(path);
}

QString cannotBeUsed(const QString &templatePath, const QString &problem)
{
    return QStringLiteral("warning: The template %1 can't be used, its projects stay empty: %2.")
        .arg(templatePath, problem);
}

/// What was logged but for the look-ups of the templates folder.
QStringList logged()
{
    return MessageLog::lines().filter(QRegularExpression(QStringLiteral("^(?!info: Template dir:)")));
}

/// A workspace with a template, the folder of the takes "A" and the log.
class Takes : public Workspace
{
    Q_DISABLE_COPY(Takes)

public:
    explicit Takes(const QByteArray &text = rig, const QString &file = folderTemplate)
        : templatePath(write(file, text))
    {
        makeFolder("day");
    }

    void writeVideo(const QVariantMap &map = settings(), const QString &name = {}, int card = 1) const
    {
        Autopano::createKava(card, templatePath, path("day/A.MOV"), name, map);
    }
    void writePhoto(const QVariantMap &map = settings(), const QString &name = {}, int card = 1) const
    {
        Autopano::createPano(card, templatePath, path("day/A.JPG"), name, map);
    }

    const QString templatePath;
    const QString videoProject = path("day/A_autopano.kava");
    const QString photoProject = path("day/A_giga.JPG.pano");
    const MessageLog log;
};

const QString templateElsewhere = QStringLiteral("elsewhere/Rig.kava");

/// One project written by a process of its own: --write kava|pano TEMPLATE TAKE [BYTES]. With BYTES it has
/// hardly more memory than it starts with.
int writeAsChild(const QStringList &arguments)
{
    if (arguments.size() > 5) {
        QFile pages(QStringLiteral("/proc/self/statm"));
        if (!pages.open(QIODevice::ReadOnly))
            return 1;
        const rlim_t used =
            pages.readAll().split(' ').first().toULong() * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
        const rlim_t most = used + arguments.at(5).toULong();
        const struct rlimit limit = {most, most};
        if (::setrlimit(RLIMIT_AS, &limit) != 0)
            return 1;
    }
    if (arguments.at(2) == QLatin1String("kava"))
        Autopano::createKava(1, arguments.at(3), arguments.at(4), QStringLiteral("reef"), settings());
    else
        Autopano::createPano(1, arguments.at(3), arguments.at(4), QStringLiteral("reef"), settings());
    return 0;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

} // namespace

class TestAutopano : public QObject
{
    Q_OBJECT

private slots:
    void videoNames_data();
    void videoNames();
    void photoNames_data();
    void photoNames();
    void projects_data();
    void projects();
    void anglesInRadians();
    void defaultsOfTheSettings();
    void secondCallDoesNothing_data();
    void secondCallDoesNothing();
    void existingTemplatesAreKept();
    void templateFromElsewhereIsCopied();
    void templateFromElsewhereWithAnotherExtension();
    void noTemplatesFolder();
    void noDestination();
    void fullDestination();
    void badTemplates_data();
    void badTemplates();
    void templatesOfLaxXml_data();
    void templatesOfLaxXml();
    void templateAboveTheLimits();
    void templateThatCannotBeWritten();
    void aTemplateThatChangesDuringTheImport();
    void settingsThatChangeDuringTheImport();
    void levelsOfAnException();
    void outOfMemory_data();
    void outOfMemory();
    void theSameBytesInEveryProcess_data();
    void theSameBytesInEveryProcess();
    void aPhotoProjectIsWrittenOnce();
    void aPhotoProjectThatIsNotWritten();
    void threeCardsAtOnce_data();
    void threeCardsAtOnce();
    void aLargeTemplate_data();
    void aLargeTemplate();
};

void TestAutopano::videoNames_data()
{
    QTest::addColumn<QString>("video");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QStringList>("cameras");
    QTest::addColumn<QString>("rendered");

    const auto row = [](const char *title, const char *video, const char *name, const char *project,
                        const QStringList &cameras, const char *rendered) {
        QTest::newRow(title) << QString::fromUtf8(video) << QString::fromUtf8(name)
                             << QString::fromUtf8(project) << cameras << QString::fromUtf8(rendered);
    };
    row("with a name", "day/CLIP0042.MOV", "reef", "day/CLIP0042_reef_autopano.kava",
        {"CLIP0042_reef_cam1.MOV", "CLIP0042_reef_cam2.MOV", "CLIP0042_reef_cam3.MOV"},
        "CLIP0042_rendered.kava");
    row("without a name", "day/CLIP0042.MOV", "", "day/CLIP0042_autopano.kava",
        {"CLIP0042_cam1.MOV", "CLIP0042_cam2.MOV", "CLIP0042_cam3.MOV"}, "CLIP0042_rendered.kava");
    row("every extension in the file name", "day/A.MOVB.MOV", "n", "day/A_n_autopano.kavaB_n_autopano.kava",
        {"A_n_cam1.MOVB_n_cam1.MOV", "A_n_cam2.MOVB_n_cam2.MOV", "A_n_cam3.MOVB_n_cam3.MOV"},
        "A_rendered.kavaB_rendered.kava");
    row("the extension in a folder's name", "day.MOV/A.MOV", "n", "day_n_autopano.kava/A_n_autopano.kava",
        {"A_n_cam1.MOV", "A_n_cam2.MOV", "A_n_cam3.MOV"}, "A_rendered.kava");
    row("the extension is case-sensitive", "day.mov/A.mov.MOV", "n", "day.mov/A.mov_n_autopano.kava",
        {"A.mov_n_cam1.MOV", "A.mov_n_cam2.MOV", "A.mov_n_cam3.MOV"}, "A.mov_rendered.kava");
    row("a name with blanks and letters beyond ASCII", "day/A.MOV", "Rif ä", "day/A_Rif ä_autopano.kava",
        {QString::fromUtf8("A_Rif ä_cam1.MOV"), QString::fromUtf8("A_Rif ä_cam2.MOV"),
         QString::fromUtf8("A_Rif ä_cam3.MOV")},
        "A_rendered.kava");
    row("a name with placeholders", "day/A.MOV", "%1%2", "day/A_%1%2_autopano.kava",
        {"A_%1%2_cam1.MOV", "A_%1%2_cam2.MOV", "A_%1%2_cam3.MOV"}, "A_rendered.kava");
    row("a take with placeholders", "day/%1%2.MOV", "n", "day/%1%2_n_autopano.kava",
        {"%1%2_n_cam1.MOV", "%1%2_n_cam2.MOV", "%1%2_n_cam3.MOV"}, "%1%2_rendered.kava");
    row("a name that XML escapes", "day/A.MOV", "<\"&'>", "day/A_<\"&'>_autopano.kava",
        {"A_<\"&'>_cam1.MOV", "A_<\"&'>_cam2.MOV", "A_<\"&'>_cam3.MOV"}, "A_rendered.kava");
    row("a name with slashes: the files lie beside the project", "day/A.MOV", "x/y/reef",
        "day/A_x/y/reef_autopano.kava", {"reef_cam1.MOV", "reef_cam2.MOV", "reef_cam3.MOV"},
        "A_rendered.kava");
    row("a name that ends in a slash", "day/A.MOV", "reef/", "day/A_reef/_autopano.kava",
        {"_cam1.MOV", "_cam2.MOV", "_cam3.MOV"}, "A_rendered.kava");
}

void TestAutopano::videoNames()
{
    QFETCH(QString, video);
    QFETCH(QString, name);
    QFETCH(QString, project);
    QFETCH(QStringList, cameras);
    QFETCH(QString, rendered);

    const Workspace workspace;
    const QString templatePath = workspace.write(folderTemplate, rig);
    workspace.makeFolder(QFileInfo(project).path());
    const MessageLog log;
    Autopano::createKava(2, templatePath, workspace.path(video), name, settings());

    QCOMPARE(workspace.tree(QFileInfo(project).path()).keys(), QStringList{QFileInfo(project).fileName()});
    QCOMPARE(listed(readXml(workspace.read(project))),
             listed(expectedProject(rig, cameras, rendered, settings())));
    QCOMPARE(logged(),
             (QStringList{wrote(workspace.path(project), 2), wrote(workspace.path(gigaTemplate), 2)}));
    QCOMPARE(workspace.tree(templatesFolder).keys(),
             (QStringList{QStringLiteral("Rig.kava"), QStringLiteral("Rig.pano")}));
    QCOMPARE(workspace.read(folderTemplate), rig);
    QVERIFY(workspace.read(gigaTemplate).startsWith(declaration + "<pano "));
    QCOMPARE(listed(readXml(workspace.read(gigaTemplate))),
             listed(panoOf(expectedProject(rig, cameras, rendered, settings()))));
}

void TestAutopano::photoNames_data()
{
    QTest::addColumn<QString>("photo");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QStringList>("cameras");

    const auto row = [](const char *title, const char *photo, const char *name, const char *project,
                        const QStringList &cameras) {
        QTest::newRow(title) << QString::fromUtf8(photo) << QString::fromUtf8(name)
                             << QString::fromUtf8(project) << cameras;
    };
    row("a raw photo without a name", "day/IMG.DNG", "", "day/IMG_giga.DNG.pano",
        {"IMG_cam1.DNG", "IMG_cam2.DNG", "IMG_cam3.DNG"});
    row("a raw photo with a name", "day/IMG.DNG", "reef", "day/IMG_reef_giga.DNG.pano",
        {"IMG_reef_cam1.DNG", "IMG_reef_cam2.DNG", "IMG_reef_cam3.DNG"});
    row("a JPEG photo with a name", "day/IMG.JPG", "reef", "day/IMG_reef_giga.JPG.pano",
        {"IMG_reef_cam1.JPG", "IMG_reef_cam2.JPG", "IMG_reef_cam3.JPG"});
    row("a JPEG photo without a name", "day/CLIP0042.JPG", "", "day/CLIP0042_giga.JPG.pano",
        {"CLIP0042_cam1.JPG", "CLIP0042_cam2.JPG", "CLIP0042_cam3.JPG"});
    row("the extension in a folder's name", "day.JPG/A.JPG", "", "day_giga.JPG.pano/A_giga.JPG.pano",
        {"A_cam1.JPG", "A_cam2.JPG", "A_cam3.JPG"});
    row("every extension in the file name", "day/A.DNGB.DNG", "n", "day/A_n_giga.DNG.panoB_n_giga.DNG.pano",
        {"A_n_cam1.DNGB_n_cam1.DNG", "A_n_cam2.DNGB_n_cam2.DNG", "A_n_cam3.DNGB_n_cam3.DNG"});
    row("the other extension is left alone", "day/A.JPG.DNG", "", "day/A.JPG_giga.DNG.pano",
        {"A.JPG_cam1.DNG", "A.JPG_cam2.DNG", "A.JPG_cam3.DNG"});
    row("an extension in lower case is not found", "day/img.dng", "reef", "day/img.dng",
        {"img.dng", "img.dng", "img.dng"});
    row("a placeholder in the name is filled too", "day/A.JPG", "a%2b", "day/A_a.JPGb_giga.JPG.pano",
        {"A_a.JPGb_cam1.JPG", "A_a.JPGb_cam2.JPG", "A_a.JPGb_cam3.JPG"});
    row("a name with slashes: the files lie beside the project", "day/A.DNG", "x/y/reef",
        "day/A_x/y/reef_giga.DNG.pano", {"reef_cam1.DNG", "reef_cam2.DNG", "reef_cam3.DNG"});
}

void TestAutopano::photoNames()
{
    QFETCH(QString, photo);
    QFETCH(QString, name);
    QFETCH(QString, project);
    QFETCH(QStringList, cameras);

    const Workspace workspace;
    const QString templatePath = workspace.write(QStringLiteral("elsewhere/Rig.kava"), rig);
    workspace.makeFolder(templatesFolder);
    workspace.makeFolder(QFileInfo(project).path());
    XmlNode expected = readXml(rig);
    editPano(expected.descendant(QStringLiteral("kava/pano")), cameras, settings());

    const MessageLog log;
    Autopano::createPano(3, templatePath, workspace.path(photo), name, settings());
    QCOMPARE(workspace.tree(QFileInfo(project).path()).keys(), QStringList{QFileInfo(project).fileName()});
    QVERIFY(workspace.read(project).startsWith(declaration + "<pano "));
    QCOMPARE(listed(readXml(workspace.read(project))), listed(panoOf(expected)));
    QCOMPARE(MessageLog::lines(), QStringList{wrote(workspace.path(project), 3)});
    QCOMPARE(workspace.tree(templatesFolder).size(), 0);
    QCOMPARE(workspace.tree(QStringLiteral("elsewhere")),
             (QMap<QString, QByteArray>{{QStringLiteral("Rig.kava"), rig}}));
}

void TestAutopano::projects_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QVariantMap>("map");

    const QVariantMap on = settings();
    const QVariantMap off = settings("0");
    QVariantMap unset = settings();
    unset.remove(QStringLiteral("OverwriteAngles"));
    QVariantMap sparse = settings();
    sparse.remove(QStringLiteral("Camera2Pitch"));
    sparse.remove(QStringLiteral("Camera3OffsetY"));

    const QByteArray fourthImage =
        "<image id=\"4\"><def filename=\"d.jpg\"/><camera yaw=\"44\"/><thumbnail/></image>";
    const QByteArray thirdImage = "<image id=\"3\"><camera roll=\"9\"/><def/></image>";
    QByteArray twoImages = without(fourthImage);
    twoImages.replace(thirdImage, "");
    QByteArray twoVideos = without("<video file=\"d.MOV\" dt=\"4\"/>");
    twoVideos.replace("<video dt=\"1\" x:note=\"&lt;&quot;&amp;\">text of a video</video>", "");

    QTest::newRow("the angles are the settings'") << rig << on;
    QTest::newRow("the angles stay the template's") << rig << off;
    QTest::newRow("no word about the angles: they stay") << rig << unset;
    QTest::newRow("a missing angle is written empty") << rig << sparse;
    QTest::newRow("two videos only") << twoVideos << on;
    QTest::newRow("two images only") << twoImages << on;
    QTest::newRow("no videos") << unknown("video") << on;
    QTest::newRow("no list of videos") << unknown("videos") << on;
    QTest::newRow("no stabilization") << unknown("stabilization") << on;
    QTest::newRow("no exposure") << unknown("exposure") << on;
    QTest::newRow("no panorama") << unknown("pano") << on;
    QTest::newRow("a panorama without images: removals alone") << unknown("images") << on;
    QTest::newRow("images without any image") << unknown("image") << on;
    QTest::newRow("images without def") << unknown("def") << on;
    QTest::newRow("images without camera") << unknown("camera") << on;
    QTest::newRow("no output") << unknown("output") << on;
    QTest::newRow("no encoding rules") << unknown("encodingrules") << on;
    QTest::newRow("a root of another name is left as it is") << unknown("kava") << on;
    QTest::newRow("no declaration: none is added")
        << without("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") << on;
    QTest::newRow("no document type: none is added") << without("<!DOCTYPE kava>\n") << on;
    QTest::newRow("an empty root") << QByteArray("<kava/>") << on;
    QTest::newRow("an empty panorama") << QByteArray("<kava><pano/></kava>") << on;
    QTest::newRow("text right beside the panorama")
        << QByteArray("<kava>text<pano a=\"1\"/>text</kava>") << on;
}

void TestAutopano::projects()
{
    QFETCH(QByteArray, text);
    QFETCH(QVariantMap, map);

    const QStringList videos = cameraNames("A_cam%1.MOV");
    const XmlNode video = expectedProject(text, videos, QStringLiteral("A_rendered.kava"), map);
    XmlNode photo = readXml(text);
    if (XmlNode *pano = photo.descendant("kava/pano"))
        editPano(pano, cameraNames("A_cam%1.JPG"), map);

    const Takes workspace(text);
    const QVariantMap before = map;
    workspace.writeVideo(map);
    workspace.writePhoto(map);
    QCOMPARE(map, before);
    QCOMPARE(workspace.read(folderTemplate), text);

    const QByteArray kavaText = workspace.read("day/A_autopano.kava");
    const QByteArray panoText = workspace.read("day/A_giga.JPG.pano");
    const QByteArray gigaText = workspace.read(gigaTemplate);
    QCOMPARE(listed(readXml(kavaText)), listed(video));
    QVERIFY(gigaText.startsWith(declaration));
    QVERIFY(panoText.startsWith(declaration));
    if (!text.contains("<pano") || text.contains("<xkava")) {
        QCOMPARE(gigaText, declaration);
        QCOMPARE(panoText, declaration);
    } else {
        QCOMPARE(listed(readXml(gigaText)), listed(panoOf(video)));
        QCOMPARE(listed(readXml(panoText)), listed(panoOf(photo)));
        QVERIFY(gigaText.endsWith(">\n"));
        QVERIFY(panoText.endsWith(">\n"));
    }
    QCOMPARE(logged(), (QStringList{wrote(workspace.videoProject), wrote(workspace.path(gigaTemplate)),
                                    wrote(workspace.path("day/A_giga.JPG.pano"))}));
}

void TestAutopano::anglesInRadians()
{
    const Takes workspace;
    QVariantMap map = settings("1", "1");
    map.insert("Camera2Roll", "90");
    map.insert("Camera2Yaw", "no number");
    map.insert("Camera2Pitch", "0.1");
    map.remove("Camera3Yaw");
    workspace.writeVideo(map);
    workspace.writePhoto(map);

    for (const char *project : {"day/A_autopano.kava", "day/A_giga.JPG.pano", "app/templates/Rig.pano"}) {
        XmlNode document = readXml(workspace.read(QString::fromLatin1(project)));
        const bool video = qstrcmp(project, "day/A_autopano.kava") == 0;
        XmlNode *images =
            document.descendant(video ? QStringLiteral("kava/pano/images") : QStringLiteral("pano/images"));
        if (images == nullptr)
            QFAIL(project);
        const auto camera = [&images = *images](int number) {
            XmlNode *image = images.child("image", number);
            XmlNode *found = image != nullptr ? image->child("camera") : nullptr;
            return found != nullptr ? found->attributes : decltype(found->attributes)();
        };
        const QString roll = camera(2).value("roll");
        const float rollValue = roll.toFloat();
        const float expected = 1.5707963705062866F;
        QVERIFY2(rollValue == expected, qPrintable(roll));
        const float pitchValue = camera(2).value("pitch").toFloat();
        const float expectedPitch = 0.1F * 0.017453292F;
        QVERIFY(pitchValue == expectedPitch);
        QCOMPARE(camera(2).value("yaw"), QString("0"));
        QCOMPARE(camera(3).value("yaw"), QString("0"));
        QCOMPARE(camera(2).value("offset_x"), map.value("Camera2OffsetX").toString());
        QCOMPARE(camera(2).value("offset_y"), map.value("Camera2OffsetY").toString());
        QCOMPARE(camera(4).value("yaw"), QString("44"));
    }
}

void TestAutopano::defaultsOfTheSettings()
{
    const Takes workspace;
    QVariantMap map = settings();
    map.insert("Camera1Yaw", "-0");
    map.insert("Camera1Roll", "-90.50");
    workspace.writeVideo(map);
    // Unconverted angles are the text that the file holds.
    const QByteArray text = workspace.read("day/A_autopano.kava");
    QVERIFY(text.contains("yaw=\"-0\""));
    QVERIFY(text.contains("roll=\"-90.50\""));
}

void TestAutopano::secondCallDoesNothing_data()
{
    QTest::addColumn<bool>("video");
    QTest::addColumn<QString>("project");

    QTest::newRow("for a video") << true << "day/A_n_autopano.kava";
    QTest::newRow("for a photo") << false << "day/A_n_giga.JPG.pano";
}

void TestAutopano::secondCallDoesNothing()
{
    QFETCH(bool, video);
    QFETCH(QString, project);

    const Takes workspace(rig, templateElsewhere);
    const auto writeProject = [&](int card) {
        if (video)
            workspace.writeVideo(settings(), "n", card);
        else
            workspace.writePhoto(settings(), "n", card);
    };
    workspace.makeFolder(templatesFolder);
    workspace.write(project, "mine");
    const QMap<QString, QByteArray> before = workspace.tree({});
    writeProject(1);
    QCOMPARE(MessageLog::lines(), QStringList());
    QCOMPARE(workspace.tree({}), before);

    // And after a project of its own.
    QVERIFY(QFile::remove(workspace.path(project)));
    for (int card = 1; card <= 3; ++card)
        writeProject(card);
    QStringList lines = {wrote(workspace.path(project))};
    if (video)
        lines << copied(workspace.path(folderTemplate)) << wrote(workspace.path(gigaTemplate));
    QCOMPARE(logged(), lines);
}

void TestAutopano::existingTemplatesAreKept()
{
    const Takes workspace(rig, templateElsewhere);
    workspace.write(folderTemplate, "another template of that name");
    workspace.write(gigaTemplate, "mine");
    workspace.writeVideo();
    QCOMPARE(logged(), QStringList{wrote(workspace.videoProject)});
    QCOMPARE(workspace.read(folderTemplate), QByteArray("another template of that name"));
    QCOMPARE(workspace.read(gigaTemplate), QByteArray("mine"));
}

void TestAutopano::templateFromElsewhereIsCopied()
{
    const Takes workspace(rig, templateElsewhere);
    workspace.makeFolder(templatesFolder);
    workspace.writeVideo(settings(), {}, 2);
    const QByteArray project = workspace.read("day/A_autopano.kava");
    QVERIFY(!project.isEmpty());
    QCOMPARE(workspace.read(folderTemplate), project);
    QCOMPARE(workspace.tree(templatesFolder).keys(),
             (QStringList{QStringLiteral("Rig.kava"), QStringLiteral("Rig.pano")}));
    QCOMPARE(workspace.read(templateElsewhere), rig);
    QCOMPARE(logged(),
             (QStringList{wrote(workspace.videoProject, 2), copied(workspace.path(folderTemplate), 2),
                          wrote(workspace.path(gigaTemplate), 2)}));
}

void TestAutopano::templateFromElsewhereWithAnotherExtension()
{
    const Takes workspace(rig, "elsewhere/Rig.xml");
    workspace.makeFolder(templatesFolder);
    workspace.writeVideo();
    // The panorama's template would have the same name as the copy, which is there by then.
    QCOMPARE(workspace.tree(templatesFolder).keys(), QStringList{QStringLiteral("Rig.xml")});
    QCOMPARE(workspace.read("app/templates/Rig.xml"), workspace.read("day/A_autopano.kava"));
}

void TestAutopano::noTemplatesFolder()
{
    const Takes workspace(rig, templateElsewhere);
    workspace.writeVideo();
    const QString copy = getApplicationSupportPath() + QStringLiteral("/templates/Rig.kava");
    QCOMPARE(logged(), (QStringList{wrote(workspace.videoProject), copied(copy)}));
    QCOMPARE(QFileInfo::exists(QFileInfo(copy).path()), false);
}

void TestAutopano::noDestination()
{
    const Workspace workspace;
    const QString templatePath = workspace.write(templateElsewhere, rig);
    workspace.makeFolder(templatesFolder);
    const MessageLog log;
    Autopano::createKava(1, templatePath, workspace.path("day/A.MOV"), {}, settings());
    Autopano::createPano(1, templatePath, workspace.path("day/A.JPG"), {}, settings());
    QCOMPARE(logged(),
             (QStringList{copied(workspace.path(folderTemplate)), wrote(workspace.path(gigaTemplate))}));
    QCOMPARE(workspace.tree(templatesFolder).keys(), QStringList{QStringLiteral("Rig.pano")});
    QCOMPARE(QFileInfo::exists(workspace.path("day")), false);
}

void TestAutopano::fullDestination()
{
    const Workspace workspace;
    const QString templatePath = workspace.write(folderTemplate, rig);
    workspace.write(gigaTemplate, "mine");
    const TestVolume volume(workspace.path("day"), 64);
    SKIP_UNLESS_MOUNTED(volume);
    QFile filler(workspace.path("day/filler"));
    QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (filler.write(QByteArray(4096, 'x')) > 0) {
    }
    const MessageLog log;
    Autopano::createKava(1, templatePath, workspace.path("day/A.MOV"), {}, settings());
    Autopano::createPano(1, templatePath, workspace.path("day/A.JPG"), {}, settings());
    QCOMPARE(logged(), QStringList());
    QCOMPARE(workspace.tree("day").keys(), QStringList{QStringLiteral("filler")});
}

void TestAutopano::badTemplates_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("problem");

    QTest::newRow("malformed at its end")
        << "file" << without("</kava>\n") << "line 45, column 1: unexpected end of file";
    QTest::newRow("empty") << "file" << QByteArray() << "line 1, column 1: unexpected end of file";
    QTest::newRow("missing") << "missing" << QByteArray() << "there is no such file";
    QTest::newRow("a folder") << "folder" << QByteArray() << "it is not a file";
    QTest::newRow("a pipe that nobody writes to") << "pipe" << QByteArray() << "it is not a file";
    QTest::newRow("unreadable") << "unreadable" << rig << "Permission denied";
}

void TestAutopano::badTemplates()
{
    QFETCH(QString, kind);
    QFETCH(QByteArray, text);
    QFETCH(QString, problem);

    const Workspace workspace;
    workspace.makeFolder(templatesFolder);
    workspace.makeFolder("day");
    const QString relative = templateElsewhere;
    const QString templatePath = workspace.path(relative);
    workspace.makeFolder("elsewhere");
    if (kind == QLatin1String("folder"))
        workspace.makeFolder(relative);
    else if (kind == QLatin1String("pipe"))
        QCOMPARE(::mkfifo(QFile::encodeName(templatePath).constData(), 0600), 0);
    else if (kind != QLatin1String("missing"))
        workspace.write(relative, text);
    const PlainUser user;
    if (kind == QLatin1String("unreadable")) {
        QVERIFY(QFile::setPermissions(templatePath, QFileDevice::Permissions()));
        QVERIFY(!QFile(templatePath).open(QIODevice::ReadOnly));
    }

    const MessageLog log;
    Autopano writer;
    for (const char *take : {"day/A", "day/B"}) {
        const QString path = workspace.path(QString::fromLatin1(take));
        writer.writeKava(1, templatePath, path + ".MOV", {}, [] { return settings(); });
        writer.writePano(1, templatePath, path + ".DNG", {}, [] { return settings(); });
    }
    QVERIFY(writer.finish());
    QCOMPARE(workspace.tree("day"),
             (QMap<QString, QByteArray>{{QStringLiteral("A_autopano.kava"), QByteArray()},
                                        {QStringLiteral("A_giga.DNG.pano"), declaration},
                                        {QStringLiteral("B_autopano.kava"), QByteArray()},
                                        {QStringLiteral("B_giga.DNG.pano"), declaration}}));
    QCOMPARE(workspace.tree(templatesFolder),
             (QMap<QString, QByteArray>{{QStringLiteral("Rig.kava"), QByteArray()},
                                        {QStringLiteral("Rig.pano"), declaration}}));
    // The warning comes once in an import.
    QCOMPARE(logged(),
             (QStringList{cannotBeUsed(templatePath, problem), wrote(workspace.path("day/A_autopano.kava")),
                          copied(workspace.path(folderTemplate)), wrote(workspace.path(gigaTemplate)),
                          wrote(workspace.path("day/B_autopano.kava")),
                          wrote(workspace.path("day/A_giga.DNG.pano")),
                          wrote(workspace.path("day/B_giga.DNG.pano"))}));
}

void TestAutopano::templatesOfLaxXml_data()
{
    QTest::addColumn<QByteArray>("prolog");
    QTest::addColumn<QByteArray>("element");

    const QByteArray doctype = "<!DOCTYPE kava>";
    QTest::newRow("a declared entity")
        << QByteArray("<!DOCTYPE kava [<!ENTITY e 'x'>]>") << QByteArray("<a>&e;</a>");
    QTest::newRow("version 1.1") << "<?xml version='1.1'?>" + doctype << QByteArray("<a/>");
    QTest::newRow("an unknown encoding")
        << "<?xml version='1.0' encoding='ansi'?>" + doctype << QByteArray("<a/>");
    QTest::newRow("a doubled attribute") << doctype << QByteArray("<a b='1' b='2'/>");
    QTest::newRow("a control character") << doctype << QByteArray("<a b='&#1;'>&#2;</a>");
}

void TestAutopano::templatesOfLaxXml()
{
    QFETCH(QByteArray, prolog);
    QFETCH(QByteArray, element);

    const Takes workspace(prolog + "<kava>" + element + "<pano/><output/></kava>");
    workspace.writeVideo();
    const QByteArray project = workspace.read("day/A_autopano.kava");
    QVERIFY2(project.contains("<output file=\"A_rendered.kava\"/>"), project.constData());
    QCOMPARE(workspace.read(gigaTemplate), declaration + "<pano/>\n");
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")), QStringList());
}

void TestAutopano::templateAboveTheLimits()
{
    const Takes workspace("<kava>" + QByteArray("<a>").repeated(1001) + QByteArray("</a>").repeated(1001) +
                              "<pano/></kava>",
                          templateElsewhere);
    workspace.makeFolder(templatesFolder);
    workspace.writeVideo();
    workspace.writePhoto();
    QCOMPARE(workspace.tree("day"), (QMap<QString, QByteArray>{{"A_autopano.kava", QByteArray()},
                                                               {"A_giga.JPG.pano", declaration}}));
    // Nothing that later imports would use for a template.
    QCOMPARE(workspace.tree(templatesFolder).size(), 0);
    const QString warning = cannotBeUsed(workspace.templatePath, "elements nested deeper than 1000");
    QCOMPARE(logged(), (QStringList{warning, warning}));
}

void TestAutopano::templateThatCannotBeWritten()
{
    const Takes workspace("<kava><pano a='&#xfffe;'/></kava>");
    workspace.writeVideo();
    workspace.writePhoto();
    QCOMPARE(workspace.tree("day").size(), 0);
    const QString reason = QStringLiteral("The template holds a character that can't be written.");
    QCOMPARE(logged(), (QStringList{QStringLiteral("warning: Error creating kava template: ") + reason,
                                    QStringLiteral("info: ") + reason}));
}

void TestAutopano::levelsOfAnException()
{
    const Takes workspace(rig, templateElsewhere);
    const Autopano::SettingsSource broken = []() -> QMap<QString, QVariant> {
        throw std::runtime_error("no settings");
    };
    Autopano writer;
    writer.writeKava(1, workspace.templatePath, workspace.path("day/A.MOV"), {}, broken);
    writer.writePano(1, workspace.templatePath, workspace.path("day/A.JPG"), {}, broken);
    QCOMPARE(MessageLog::lines().filter("no settings"),
             (QStringList{"warning: Error creating kava template: no settings", "info: no settings"}));
}

void TestAutopano::outOfMemory_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("take");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("a video project warns")
        << "kava"
        << "day/A.MOV" << QByteArray("Error creating kava template: std::bad_alloc");
    QTest::newRow("a photo project tells the reason alone") << "pano"
                                                            << "day/A.JPG" << QByteArray("std::bad_alloc");
}

void TestAutopano::outOfMemory()
{
    QFETCH(QString, kind);
    QFETCH(QString, take);
    QFETCH(QByteArray, line);

    if (sanitized)
        QSKIP("A sanitizer needs the memory itself.");
    const Workspace workspace;
    const QString templatePath =
        workspace.write(templateElsewhere, "<kava>" + QByteArray(4000000, 'x') + "</kava>");
    workspace.makeFolder("day");
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--write"), kind, templatePath,
                                                            workspace.path(take), QStringLiteral("3000000")});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardError().trimmed(), line);
    QCOMPARE(workspace.tree("day").size(), 0);
}

void TestAutopano::theSameBytesInEveryProcess_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("take");
    QTest::addColumn<QString>("project");

    QTest::newRow("a video project") << "kava"
                                     << "day/A.MOV"
                                     << "day/A_reef_autopano.kava";
    QTest::newRow("a photo project") << "pano"
                                     << "day/A.JPG"
                                     << "day/A_reef_giga.JPG.pano";
}

void TestAutopano::theSameBytesInEveryProcess()
{
    QFETCH(QString, kind);
    QFETCH(QString, take);
    QFETCH(QString, project);

    const Workspace workspace;
    const QString templatePath = workspace.write(templateElsewhere, rig);
    workspace.makeFolder("day");
    QByteArray first;
    for (const char *seed : {"0", "1", "2", "12345", "2147483647", ""}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("QT_HASH_SEED");
        if (*seed != '\0')
            environment.insert("QT_HASH_SEED", QString::fromLatin1(seed));
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("--write"), kind, templatePath, workspace.path(take)});
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 0);
        const QByteArray text = workspace.read(project);
        QVERIFY(!text.isEmpty());
        if (first.isEmpty())
            first = text;
        QCOMPARE(text, first);
        QVERIFY(QFile::remove(workspace.path(project)));
    }
}

/// The cards reach a take at the same moment, and an import may end before its projects have their names.
void TestAutopano::aPhotoProjectIsWrittenOnce()
{
    const Takes workspace;
    const QString photo = workspace.path(QStringLiteral("day/A.JPG"));
    const auto write = [&](Autopano *writer, int card) {
        return writer->writePano(card, workspace.templatePath, photo, {}, [] { return settings(); });
    };
    const auto unfinished = [&] {
        return workspace.tree("day").keys().filter(QStringLiteral(".part")).size();
    };
    {
        Autopano stopped;
        QVERIFY(write(&stopped, 1));
        QCOMPARE(unfinished(), 1);
    }
    QCOMPARE(workspace.tree("day").size(), 0);

    Autopano first;
    Autopano second;
    QVERIFY(write(&first, 1));
    QVERIFY(write(&second, 2));
    QCOMPARE(unfinished(), 1);
    QVERIFY(second.finish());
    QCOMPARE(unfinished(), 1);
    QVERIFY(first.finish());
    QCOMPARE(workspace.tree("day").keys(), QStringList{QStringLiteral("A_giga.JPG.pano")});
    QVERIFY(write(&second, 2));
    QCOMPARE(unfinished(), 0);
}

/// It keeps no other card from writing it, and a stopped import waits for nothing.
void TestAutopano::aPhotoProjectThatIsNotWritten()
{
    const Takes workspace;
    const auto write = [&](Autopano *writer) {
        return writer->writePano(1, workspace.templatePath, workspace.path(QStringLiteral("later/A.JPG")), {},
                                 [] { return settings(); });
    };
    Autopano early;
    Autopano late;
    QVERIFY(write(&early));
    workspace.makeFolder(QStringLiteral("later"));
    QVERIFY(write(&late));
    StopFlag stop;
    stop.raise();
    QVERIFY(late.finish(stop));
    QCOMPARE(workspace.tree("later").size(), 0);
    QVERIFY(write(&late));
    QVERIFY(late.finish());
    QCOMPARE(workspace.tree("later").keys(), QStringList{QStringLiteral("A_giga.JPG.pano")});
}

void TestAutopano::threeCardsAtOnce_data()
{
    QTest::addColumn<bool>("fromElsewhere");

    QTest::newRow("with a template of the folder") << false;
    QTest::newRow("with a template from elsewhere") << true;
}

void TestAutopano::threeCardsAtOnce()
{
    QFETCH(bool, fromElsewhere);

    const QStringList videos = cameraNames("A_cam%1.MOV");
    const QStringList expectedVideo =
        listed(expectedProject(rig, videos, QStringLiteral("A_rendered.kava"), settings()));
    for (int round = 0; round < 20; ++round) {
        const Workspace workspace;
        const QString templatePath = workspace.write(fromElsewhere ? templateElsewhere : folderTemplate, rig);
        workspace.makeFolder(templatesFolder);
        workspace.makeFolder("day");
        const MessageLog log;
        std::vector<std::thread> cards;
        for (int card = 1; card <= 3; ++card) {
            cards.emplace_back([&workspace, templatePath, card] {
                Autopano::createKava(card, templatePath, workspace.path("day/A.MOV"), {}, settings());
                Autopano::createPano(card, templatePath, workspace.path("day/A.JPG"), {}, settings());
            });
        }
        for (std::thread &card : cards)
            card.join();

        const QByteArray project = workspace.read("day/A_autopano.kava");
        QCOMPARE(listed(readXml(project)), expectedVideo);
        QVERIFY(workspace.read("day/A_giga.JPG.pano").endsWith("</pano>\n"));
        QVERIFY(workspace.read(gigaTemplate).endsWith("</pano>\n"));
        QCOMPARE(workspace.read(folderTemplate), fromElsewhere ? project : rig);
        QCOMPARE(workspace.tree("day").size(), 2);
        QCOMPARE(workspace.tree(templatesFolder).size(), 2);
        const QStringList lines = logged();
        for (const char *file : {"day/A_autopano.kava", "day/A_giga.JPG.pano", "app/templates/Rig.pano"}) {
            const QString end =
                QStringLiteral(": wrote template file %1.").arg(workspace.path(QString::fromLatin1(file)));
            QCOMPARE(lines.filter(end).size(), 1);
        }
    }
}

void TestAutopano::aTemplateThatChangesDuringTheImport()
{
    const Takes workspace;
    Autopano writer;
    const QList<QByteArray> texts = {"<kava><pano a=\"1\"/></kava>", "<kava>",
                                     "<kava><pano a=\"2\"/></kava>"};
    for (int i = 0; i < texts.size(); ++i) {
        workspace.write(folderTemplate, texts.at(i));
        writer.writePano(1, workspace.templatePath, workspace.path(QStringLiteral("day/%1.JPG").arg(i)), {},
                         [] { return settings(); });
    }
    QVERIFY(writer.finish());
    QCOMPARE(workspace.tree("day").values(),
             (QList<QByteArray>{declaration + "<pano a=\"1\"/>\n", declaration,
                                declaration + "<pano a=\"2\"/>\n"}));
}

void TestAutopano::settingsThatChangeDuringTheImport()
{
    const Takes workspace("<kava><pano><images><image><camera yaw=\"7\"/></image></images></pano></kava>");
    Autopano writer;
    for (const char *overwrite : {"1", "0"})
        writer.writePano(1, workspace.templatePath,
                         workspace.path(QStringLiteral("day/%1.JPG").arg(overwrite)), {},
                         [overwrite] { return settings(overwrite); });
    QVERIFY(writer.finish());
    QVERIFY(!workspace.read("day/1_giga.JPG.pano").contains("yaw=\"7\""));
    QVERIFY(workspace.read("day/0_giga.JPG.pano").contains("<camera yaw=\"7\"/>"));
}

void TestAutopano::aLargeTemplate_data()
{
    QTest::addColumn<QByteArray>("element");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("left");

    QTest::newRow("thumbnails and matches")
        << QByteArray("<image><thumbnail>A</thumbnail><match/></image>") << 49000 << QByteArray("<image/>");
    const QByteArray note = "<note>" + QByteArray(490, 'x') + "</note>";
    QTest::newRow("4 MB of notes") << note << 8200 << note;
}

void TestAutopano::aLargeTemplate()
{
    QFETCH(QByteArray, element);
    QFETCH(int, count);
    QFETCH(QByteArray, left);

    const Takes workspace("<kava><pano><images/>" + element.repeated(count) + "</pano><output/></kava>");
    QElapsedTimer clock;
    clock.start();
    workspace.writeVideo();
    QVERIFY2(clock.elapsed() < 60000, qPrintable(QString::number(clock.elapsed())));
    const QByteArray project = workspace.read("day/A_autopano.kava");
    QCOMPARE(project.count(left), count);
    QVERIFY(!project.contains("<thumbnail"));
    QVERIFY(!project.contains("<match"));
    QVERIFY(project.endsWith("<output file=\"A_rendered.kava\"/>\n</kava>\n"));
}

int main(int argc, char *argv[])
{
    enterMountNamespace();
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QLatin1String("--write"))
        return writeAsChild(arguments);
    TestAutopano test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_autopano.moc"
