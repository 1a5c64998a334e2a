#include "cards/mediaimport.h"
#include "checks/takes.h"
#include "platform/stopflag.h"
#include "tests/checks/recordingfiles.h"
#include "tests/support/workspace.h"

#include <QMap>
#include <QtTest>

#include <functional>

namespace {

using Cameras = std::array<QString, cameraCount>;

const QDateTime dive(QDate(2026, 5, 1), QTime(10, 30), Qt::UTC);

/// A press of the trigger.
struct Trigger
{
    qint64 second; ///< of the dive
    qint64 length; ///< in seconds; a photo has none
};

/// What one camera makes of the triggers; numbered from 0.
struct Camera
{
    qint64 clock = 0;             ///< seconds ahead
    QVector<int> missed = {};     ///< triggers
    QMap<int, int> stopped = {};  ///< seconds before the others, by trigger
    QVector<int> deleted = {};    ///< recordings
    QVector<int> unreadable = {}; ///< recordings
    QVector<int> lengthless = {}; ///< recordings
    QVector<int> late = {};       ///< triggers that the camera followed a second late
};

using Rig = std::array<Camera, cameraCount>;

const QVector<Trigger> videos = {{0, 40},    {95, 63},   {240, 130}, {500, 25},
                                 {610, 200}, {900, 300}, {1300, 45}, {1400, 90}};
const QVector<Trigger> photos = {{1600, -1}, {1610, -1}, {1630, -1}, {1700, -1}};
const QVector<Trigger> timeLapse = {{0, -1},  {10, -1}, {20, -1}, {30, -1},
                                    {40, -1}, {50, -1}, {60, -1}, {70, -1}};

/// The recordings of a rig, as they stand on the cards.
QVector<Recording> record(const Rig &rig, const QVector<Trigger> &triggers)
{
    QVector<Recording> recordings;
    for (int number = 1; number <= cameraCount; ++number) {
        const Camera &camera = rig.at(static_cast<std::size_t>(number - 1));
        int count = 0;
        for (int i = 0; i < triggers.size(); ++i) {
            if (camera.missed.contains(i))
                continue;
            const int recording = count++;
            if (camera.deleted.contains(recording))
                continue;
            const Trigger &trigger = triggers.at(i);
            const QString name = QStringLiteral("%1.").arg(recording) +
                                 (trigger.length < 0 ? QStringLiteral("JPG") : QStringLiteral("MOV"));
            RecordingTime time;
            time.start =
                dive.addSecs(trigger.second + camera.clock + camera.late.contains(i)).toMSecsSinceEpoch();
            time.length = trigger.length < 0 ? -1 : (trigger.length - camera.stopped.value(i)) * 1000;
            if (camera.lengthless.contains(recording))
                time.length = -1;
            if (camera.unreadable.contains(recording))
                time.problem = QStringLiteral("damaged");
            recordings.append({number, name, name, time});
        }
    }
    return recordings;
}

/// A finding in few words: kind, camera, files of the three cameras.
QString brief(const TakeFinding &finding)
{
    static const QMap<TakeFinding::Kind, QString> kinds = {
        {TakeFinding::Kind::Missing, "missing"},    {TakeFinding::Kind::Unpaired, "unpaired"},
        {TakeFinding::Kind::Shifted, "shifted"},    {TakeFinding::Kind::Short, "short"},
        {TakeFinding::Kind::Untimed, "untimed"},    {TakeFinding::Kind::Unmeasured, "unmeasured"},
        {TakeFinding::Kind::Uncertain, "uncertain"}};
    QStringList words = {kinds.value(finding.kind)};
    if (finding.camera != 0)
        words.append(QString::number(finding.camera));
    for (const QString &file : finding.files)
        words.append(file.isEmpty() ? QStringLiteral("-") : file);
    return words.join(QLatin1Char(' '));
}

QStringList findingsIn(const TakesReport &report)
{
    QStringList findings;
    for (const TakeFinding &finding : report.findings)
        findings.append(brief(finding));
    return findings + clockLines(report);
}

} // namespace

Q_DECLARE_METATYPE(Rig)
Q_DECLARE_METATYPE(QVector<Trigger>)

class TestTakes : public QObject
{
    Q_OBJECT

private slots:
    void rigs_data();
    void rigs();
    void twoDivesInOneFolder();
    void cardsAndTheirImport();
    void namesOfAnImport_data();
    void namesOfAnImport();
    void whatAnImportPassesOver();
    void everyFaultOfADive();
    void texts_data();
    void texts();
    void manyPhotos();
    void stop();
};

void TestTakes::rigs_data()
{
    QTest::addColumn<Rig>("rig");
    QTest::addColumn<QVector<Trigger>>("triggers");
    QTest::addColumn<QStringList>("findings");

    const auto row = [](const char *title, const Rig &rig, const QStringList &findings,
                        const QVector<Trigger> &triggers = videos) {
        QTest::newRow(title) << rig << triggers << findings;
    };
    Rig rig;
    const auto fresh = [&rig]() -> Rig & { return rig = {}; };

    row("all is well", fresh(), {});
    row("photos alone", fresh(), {}, photos);
    row("no recordings", fresh(), {}, {});
    row("one take", fresh(), {}, {{0, 40}});

    fresh()[1].missed = {2};
    row("a missed trigger shifts the later names", rig,
        {"missing 2 2.MOV - 2.MOV", "shifted 3.MOV 2.MOV 3.MOV", "shifted 4.MOV 3.MOV 4.MOV",
         "shifted 5.MOV 4.MOV 5.MOV", "shifted 6.MOV 5.MOV 6.MOV", "shifted 7.MOV 6.MOV 7.MOV"});
    fresh()[0].missed = {6};
    rig[0].clock = 137;
    row("a trigger that the first camera missed, its clock ahead", rig,
        {"missing 1 - 6.MOV 6.MOV", "shifted 6.MOV 7.MOV 7.MOV",
         "Clock: camera 1 is 137 s ahead of camera 2."});
    fresh()[2].missed = {7};
    row("the last trigger missed", rig, {"missing 3 7.MOV 7.MOV -"});
    fresh()[2].missed = {0};
    row("the first trigger missed", rig,
        {"missing 3 0.MOV 0.MOV -", "shifted 1.MOV 1.MOV 0.MOV", "shifted 2.MOV 2.MOV 1.MOV",
         "shifted 3.MOV 3.MOV 2.MOV", "shifted 4.MOV 4.MOV 3.MOV", "shifted 5.MOV 5.MOV 4.MOV",
         "shifted 6.MOV 6.MOV 5.MOV", "shifted 7.MOV 7.MOV 6.MOV"});
    fresh()[0].missed = {5};
    rig[1].missed = {6};
    row("two cameras that missed one trigger each", rig,
        {"missing 1 - 5.MOV 5.MOV", "missing 2 5.MOV - 6.MOV", "shifted 5.MOV - 6.MOV",
         "shifted 6.MOV 6.MOV 7.MOV"});
    fresh()[0].missed = {7};
    rig[1].missed = {7};
    row("a take of one camera alone", rig, {"unpaired 3 - - 7.MOV"});

    fresh()[1].deleted = {2};
    row("a deleted video", rig, {"missing 2 2.MOV - 2.MOV"});
    fresh()[2].deleted = {1};
    row("a missing photo", rig, {"missing 3 1.JPG 1.JPG -"}, photos);
    fresh()[1].deleted = {0, 1, 2, 3};
    row("a camera without recordings", rig, {"missing 2 - - -"}, photos);
    fresh()[1].deleted = {0, 1, 2};
    row("a camera with one recording", rig,
        {"missing 2 0.JPG - 0.JPG", "missing 2 1.JPG - 1.JPG", "missing 2 2.JPG - 2.JPG"}, photos);

    fresh()[2].stopped[4] = 150;
    row("a camera that stopped early", rig, {"short 3 4.MOV 4.MOV 4.MOV"});
    fresh()[2].stopped[4] = 2;
    row("two seconds are nothing", rig, {});
    fresh()[0].stopped[0] = 20;
    rig[0].clock = 137;
    row("one take, the clock ahead, and stopped early", rig,
        {"uncertain 1 - - -", "short 1 0.MOV 0.MOV 0.MOV", "Clock: camera 1 is 137 s ahead of camera 2."},
        {{0, 40}});

    fresh()[1].clock = 137;
    rig[2].clock = -12;
    row("clocks ahead and behind", rig,
        {"Clock: camera 2 is 137 s ahead of camera 1.", "Clock: camera 3 is 12 s behind camera 1."});
    fresh()[0].clock = -400000000;
    row("a clock that was never set", rig, {"Clock: camera 1 is 400000000 s behind camera 2."});
    fresh()[1].clock = 2;
    row("clocks nearly alike", rig, {});
    fresh()[0].late = {0, 3, 6};
    rig[1].late = {1, 2, 3};
    row("starts a second apart", rig, {});

    fresh()[1].missed = {3};
    row("regular photos, one missed", rig,
        {"missing 2 3.JPG - 3.JPG", "shifted 4.JPG 3.JPG 4.JPG", "shifted 5.JPG 4.JPG 5.JPG",
         "shifted 6.JPG 5.JPG 6.JPG", "shifted 7.JPG 6.JPG 7.JPG"},
        timeLapse);
    fresh()[1].missed = {7};
    row("regular photos, the last missed", rig, {"missing 2 7.JPG - 7.JPG"}, timeLapse);
    fresh()[1].missed = {0};
    row("regular photos and clocks that agree, the first missed", rig,
        {"missing 2 0.JPG - 0.JPG", "shifted 1.JPG 0.JPG 1.JPG", "shifted 2.JPG 1.JPG 2.JPG",
         "shifted 3.JPG 2.JPG 3.JPG", "shifted 4.JPG 3.JPG 4.JPG", "shifted 5.JPG 4.JPG 5.JPG",
         "shifted 6.JPG 5.JPG 6.JPG", "shifted 7.JPG 6.JPG 7.JPG"},
        timeLapse);
    fresh()[1].missed = {7};
    rig[1].clock = 137;
    row("regular photos and a clock ahead, the first missed or the last", rig,
        {"uncertain 2 - - -", "missing 2 7.JPG - 7.JPG", "Clock: camera 2 is 137 s ahead of camera 1."},
        timeLapse);
    fresh()[1].missed = {0};
    rig[1].clock = 137;
    row("regular videos and a clock ahead, the first missed", rig,
        {"missing 2 0.MOV - 0.MOV", "shifted 1.MOV 0.MOV 1.MOV", "shifted 2.MOV 1.MOV 2.MOV",
         "Clock: camera 2 is 137 s ahead of camera 1."},
        {{0, 40}, {100, 63}, {200, 50}});
    QVector<Trigger> regular;
    for (int i = 0; i < 8; ++i)
        regular.append({600 * i, 120});
    fresh()[1].missed = {0};
    rig[0].missed = rig[2].missed = {7};
    row("regular videos, one camera missed the first, the others the last", rig,
        {"uncertain 2 - - -", "missing 2 0.MOV - 0.MOV", "shifted 1.MOV 0.MOV 1.MOV",
         "shifted 2.MOV 1.MOV 2.MOV", "shifted 3.MOV 2.MOV 3.MOV", "shifted 4.MOV 3.MOV 4.MOV",
         "shifted 5.MOV 4.MOV 5.MOV", "shifted 6.MOV 5.MOV 6.MOV", "unpaired 2 - 6.MOV -"},
        regular);
    rig[1].clock = 137;
    row("the same with a clock ahead", rig,
        {"uncertain 2 - - -", "Clock: camera 2 is 737 s ahead of camera 1."}, regular);
    row("regular videos, and all is well", fresh(), {}, regular);
    fresh()[1].missed = {0, 1};
    rig[0].missed = rig[2].missed = {6, 7};
    row("regular videos and clocks that agree, but two more matches elsewhere", rig,
        {"uncertain 2 - - -", "Clock: camera 2 is 1200 s ahead of camera 1."}, regular);
    fresh()[1].clock = -86400;
    row("one take, a card of the day before", rig,
        {"uncertain 2 - - -", "Clock: camera 2 is 86400 s behind camera 1."}, {{0, 40}});
    fresh()[0].clock = -86400;
    row("one take, the first card of the day before", rig,
        {"uncertain 1 - - -", "Clock: camera 1 is 86400 s behind camera 2."}, {{0, 40}});
    fresh()[1].clock = 5;
    row("one take, clocks that nearly agree", rig, {"Clock: camera 2 is 5 s ahead of camera 1."}, {{0, 40}});
    QVector<Trigger> burst;
    for (int i = 0; i < 20; ++i)
        burst.append({i, -1});
    fresh()[1].late = {2, 3, 7, 11, 12, 13};
    rig[2].late = {0, 5, 7, 8, 19};
    row("a photo every second, some late", rig, {}, burst);

    fresh()[0].unreadable = {3};
    row("a damaged video is paired by its name", rig, {"untimed 1 3.MOV 3.MOV 3.MOV"});
    fresh()[1].lengthless = {3};
    row("a video of unknown length", rig, {"unmeasured 2 3.MOV 3.MOV 3.MOV"});
    fresh()[0].unreadable = {3};
    rig[1].deleted = {3};
    row("a damaged video, and one that is missing", rig,
        {"missing 2 3.MOV - 3.MOV", "untimed 1 3.MOV - 3.MOV"});
    for (Camera &camera : fresh())
        camera.unreadable = {0, 1};
    rig[2].deleted = {1};
    row("no times at all", rig,
        {"untimed 1 0.JPG 0.JPG 0.JPG", "untimed 2 0.JPG 0.JPG 0.JPG", "untimed 3 0.JPG 0.JPG 0.JPG",
         "missing 3 1.JPG 1.JPG -", "untimed 1 1.JPG 1.JPG -", "untimed 2 1.JPG 1.JPG -"},
        {{0, -1}, {10, -1}});
}

void TestTakes::rigs()
{
    QFETCH(Rig, rig);
    QFETCH(QVector<Trigger>, triggers);
    QFETCH(QStringList, findings);

    QCOMPARE(findingsIn(matchTakes(record(rig, triggers))), findings);
}

void TestTakes::twoDivesInOneFolder()
{
    // On the first day camera 3 failed. On the second it takes the names that are still free.
    QVector<Recording> recordings = record({}, {{0, 40}, {100, 50}});
    for (Recording &file : recordings) {
        const bool free = file.camera == 3;
        if (!free)
            file.path = file.take = QStringLiteral("1-") + file.take;
        file.time.start += 86400 * 1000;
    }
    for (const Recording &file : record({}, {{0, 75}, {200, 80}})) {
        if (file.camera != 3)
            recordings.append(file);
    }
    const QStringList expected = {"missing 3 0.MOV 0.MOV -", "missing 3 1.MOV 1.MOV -",
                                  "shifted 1-0.MOV 1-0.MOV 0.MOV", "shifted 1-1.MOV 1-1.MOV 1.MOV"};
    QCOMPARE(findingsIn(matchTakes(recordings)), expected);
}

void TestTakes::cardsAndTheirImport()
{
    // The second camera missed a trigger.
    const Workspace workspace;
    Cameras cards;
    Rig rig;
    rig[1].missed = {1};
    for (int camera = 1; camera <= cameraCount; ++camera)
        cards.at(static_cast<std::size_t>(camera - 1)) =
            workspace.makeFolder(QStringLiteral("card%1").arg(camera));
    const QVector<Recording> recorded = record(rig, videos.mid(0, 4) + photos);
    for (const Recording &file : recorded) {
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(file.time.start, Qt::UTC);
        workspace.write(QStringLiteral("card%1/DCIM/100MEDIA/C%2").arg(file.camera).arg(file.path),
                        file.time.length < 0 ? photo(start) : movie(start, file.time.length));
    }
    const StopFlag stop;
    const TakesReport onCards = matchTakes(recordingsOnCards(cards, stop).recordings);
    QCOMPARE(onCards.takes, 8);
    QCOMPARE(onCards.findings.size(), 7);
    const QString folder = QStringLiteral("DCIM/100MEDIA/");
    QCOMPARE(brief(onCards.findings.at(0)), "missing 2 " + folder + "C1.MOV - " + folder + "C1.MOV");
    QCOMPARE(brief(onCards.findings.at(6)),
             "shifted " + folder + "C7.JPG " + folder + "C6.JPG " + folder + "C7.JPG");

    for (const QString &project : {QString(), QStringLiteral("reef"), QStringLiteral("reef")}) {
        for (int camera = 1; camera <= cameraCount; ++camera) {
            const ImportRequest request = {camera,
                                           cards.at(static_cast<std::size_t>(camera - 1)),
                                           workspace.path("copies"),
                                           {},
                                           project};
            QVERIFY(MediaImport(
                        request, {}, [](const Progress &) {}, stop)
                        .run());
        }
    }
    // Each of the three imports has the same faults.
    const TakesReport imported = matchTakes(recordingsIn(workspace.path("copies"), stop).recordings);
    QCOMPARE(imported.takes, 24);
    QCOMPARE(imported.findings.size(), 21);
    const QStringList findings = findingsIn(imported);
    for (const QString &name : {QString(), QStringLiteral("_reef"), QStringLiteral("-1")}) {
        const QString finding = folder + "C1" + name + "_cam1.MOV - " + folder + "C1" + name + "_cam3.MOV";
        QVERIFY2(findings.contains("missing 2 " + finding), qPrintable(findings.join('\n')));
    }
}

void TestTakes::namesOfAnImport_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("camera");
    QTest::addColumn<QString>("take");

    const auto row = [](const char *title, const char *name, int camera, const char *take) {
        QTest::newRow(title) << QString::fromLatin1(name) << camera << QString::fromLatin1(take);
    };
    row("a video", "DCIM/C1_cam2.MOV", 2, "DCIM/C1.MOV");
    row("a photo", "C1_cam3.JPG", 3, "C1.JPG");
    row("a raw photo", "C1_cam1.DNG", 1, "C1.DNG");
    row("a project", "C1_reef_cam1.MOV", 1, "C1_reef.MOV");
    row("a number", "C1-2_cam1.MOV", 1, "C1-2.MOV");
    row("a project named like a camera", "C1_cam1_cam2.MOV", 2, "C1_cam1.MOV");
    row("a folder named like a video", "A_cam2.MOV/C1_cam2.MOV", 2, "A.MOV/C1.MOV");
}

void TestTakes::namesOfAnImport()
{
    QFETCH(QString, name);
    QFETCH(int, camera);
    QFETCH(QString, take);

    const Workspace workspace;
    workspace.write(QStringLiteral("copies/") + name, "x");
    const RecordingList list = recordingsIn(workspace.path("copies"), StopFlag());
    QCOMPARE(list.recordings.size(), 1);
    QCOMPARE(list.recordings.first().camera, camera);
    QCOMPARE(list.recordings.first().take, take);
    QCOMPARE(list.recordings.first().path, name);
}

void TestTakes::whatAnImportPassesOver()
{
    const Workspace workspace;
    for (const char *name :
         {"copies/C1_cam2.MOV.jpg", "copies/C1.MOV", "copies/C1_cam4.MOV", "copies/C1_cam1.mov",
          "copies/C1.kava", "copies/.C1_cam1.MOV", "copies/.trash/C1_cam1.MOV", "copies/Kelpora360.log"})
        workspace.write(QString::fromLatin1(name), "x");
    QCOMPARE(recordingsIn(workspace.path("copies"), StopFlag()).recordings.size(), 0);
    // On a card, two of them are recordings.
    QCOMPARE(recordingsOnCards({workspace.path("copies"), {}, {}}, StopFlag()).recordings.size(), 2);
}

void TestTakes::everyFaultOfADive()
{
    Rig rig;
    rig[0].missed = {2};
    rig[1].clock = 137;
    rig[1].stopped[4] = 100;
    rig[2].clock = -12;
    rig[2].deleted = {9};
    const QStringList expected = {"missing 1 - 2.MOV 2.MOV",
                                  "shifted 2.MOV 3.MOV 3.MOV",
                                  "shifted 3.MOV 4.MOV 4.MOV",
                                  "short 2 3.MOV 4.MOV 4.MOV",
                                  "shifted 4.MOV 5.MOV 5.MOV",
                                  "shifted 5.MOV 6.MOV 6.MOV",
                                  "shifted 6.MOV 7.MOV 7.MOV",
                                  "shifted 7.JPG 8.JPG 8.JPG",
                                  "missing 3 8.JPG 9.JPG -",
                                  "shifted 8.JPG 9.JPG -",
                                  "shifted 9.JPG 10.JPG 10.JPG",
                                  "shifted 10.JPG 11.JPG 11.JPG",
                                  "Clock: camera 2 is 137 s ahead of camera 1.",
                                  "Clock: camera 3 is 12 s behind camera 1."};
    QCOMPARE(findingsIn(matchTakes(record(rig, videos + photos))), expected);
}

void TestTakes::texts_data()
{
    QTest::addColumn<Rig>("rig");
    QTest::addColumn<QString>("text");

    Rig rig;
    const auto row = [&rig](const char *title, const char *text) {
        QTest::newRow(title) << rig << QString::fromLatin1(text);
        rig = {};
    };
    rig[1].deleted = {0};
    row("missing", "Missing: camera 2 has no recording of the take of 2026-05-01 10:30:00 (camera 1: 0.MOV, "
                   "camera 3: 0.MOV).");
    rig[1].deleted = {0, 1};
    row("no recordings", "Missing: camera 2 has no recordings.");
    rig[0].deleted = {0};
    rig[2].deleted = {0};
    row("unpaired", "Unpaired: only camera 2 recorded the take of 2026-05-01 10:30:00 (0.MOV).");
    rig[1].missed = {0};
    row("missing, and then shifted", "Missing: camera 2 has no recording of the take of 2026-05-01 10:30:00 "
                                     "(camera 1: 0.MOV, camera 3: 0.MOV).\n"
                                     "Shifted: the take of 2026-05-01 10:31:35 has different names (camera "
                                     "1: 1.MOV, camera 2: 0.MOV, camera 3: 1.MOV).");
    rig[0].stopped[1] = 10;
    rig[2].clock = 5; // of another camera
    row("short", "Short: camera 1 stopped 10.0 s early in the take of 2026-05-01 10:31:35 (1.MOV).");
    rig[0].clock = 60;
    rig[1].clock = 60;
    rig[0].stopped[1] = 10;
    row("the time by the middle clock",
        "Short: camera 1 stopped 10.0 s early in the take of 2026-05-01 10:32:35 (1.MOV).");
    rig[0].unreadable = {1};
    row("no time", "Not checked: when camera 1 recorded 1.MOV is unknown (damaged).");
    rig[1].lengthless = {0};
    row("no length",
        "Not checked: how long camera 2 recorded 0.MOV is unknown (its movie header has no length).");
    rig[2].clock = 100;
    rig[2].missed = {0};
    row("two pairings",
        "Not checked: which takes camera 3 recorded is uncertain (its times fit two "
        "pairings).\nMissing: camera 3 has no recording of the take of 2026-05-01 "
        "10:30:00 (camera 1: 0.MOV, camera 2: 0.MOV).\nShifted: the take of 2026-05-01 10:31:35 "
        "has different names (camera 1: 1.MOV, camera 2: 1.MOV, camera 3: 0.MOV).");
}

void TestTakes::texts()
{
    QFETCH(Rig, rig);
    QFETCH(QString, text);

    QStringList lines;
    for (const TakeFinding &finding : matchTakes(record(rig, videos.mid(0, 2))).findings)
        lines.append(toText(finding));
    QCOMPARE(lines.join('\n'), text);
}

void TestTakes::manyPhotos()
{
    QVector<Trigger> triggers;
    for (int i = 0; i < 6000; ++i)
        triggers.append({i * 5, -1});
    Rig rig;
    rig[1].clock = 137;
    rig[2].deleted = {4000};
    const TakesReport report = matchTakes(record(rig, triggers));
    QCOMPARE(report.takes, 6000);
    QCOMPARE(findingsIn(report),
             QStringList({"missing 3 4000.JPG 4000.JPG -", "Clock: camera 2 is 137 s ahead of camera 1."}));
}

void TestTakes::stop()
{
    const Workspace workspace;
    workspace.write("copies/C1_cam2.MOV", "x");
    StopFlag raised;
    raised.raise();
    QCOMPARE(recordingsIn(workspace.path("copies"), raised).recordings.size(), 0);
    QCOMPARE(recordingsOnCards({workspace.path("copies"), {}, {}}, raised).recordings.size(), 0);
}

QTEST_GUILESS_MAIN(TestTakes)

#include "tst_takes.moc"
