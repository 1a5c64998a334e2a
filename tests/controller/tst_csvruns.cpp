#include "controller/datadownload.h"
#include "controller/nmea0183.h"
#include "controller/record.h"
#include "tests/support/loopvolume.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <thread>

namespace {

DumpLines dumped(const QStringList &lines)
{
    DumpLines result;
    for (const QString &line : lines)
        result.append(line);
    return result;
}

RunFiles write(const QStringList &lines, const QString &folder, DumpState dump = DumpState::Complete)
{
    return writeRuns(runsOf(dumped(lines), folder, {}).runs, dump);
}

/// How many files a complete dump makes.
int filesOf(const QStringList &lines, const QString &folder, const QString &project = {})
{
    return writeRuns(runsOf(dumped(lines), folder, project).runs, DumpState::Complete).written;
}

constexpr int start_flag = 1;
constexpr int video = 2 + 8;
constexpr int photo = 2 + 16;
/// 2019-02-21 20:46:44 universal time.
constexpr int evening = 1550782004;
const QString evening_name = QStringLiteral("20190221-204600");

/// A line as the controller sends it.
QString dataset(int number, int flags, int time, const QByteArray &tail = "1.5,20,270,-3,4,0")
{
    Nmea sentence("$PSEADATA");
    sentence.AddLong(number);
    sentence.AddLong(flags);
    sentence.AddLong(time);
    sentence.AddString(tail.toStdString());
    sentence.AddChecksum();
    return QString::fromStdString(sentence.GetSentence()) + QStringLiteral("\r\n");
}

/// An entry `seconds` after the run's start at `start`, with only the low half of its time.
QString entry(int number, int start, int seconds, int flags = video)
{
    return dataset(number, flags, (start + seconds) & 0xffff);
}

QByteArray heading()
{
    return Record::headingCSV().toUtf8();
}

/// Takes all the room that the file's volume has.
void fill(const QString &path)
{
    QFile filler(path);
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return;
    while (filler.write(QByteArray(4096, 'f')) > 0) {
    }
}

/// A run's lines: its start and `entries` entries.
QStringList run(int start, int entries)
{
    QStringList lines{dataset(1, start_flag, start)};
    for (int i = 1; i <= entries; ++i)
        lines.append(entry(1 + i, start, i));
    return lines;
}

} // namespace

Q_DECLARE_METATYPE(DumpState)

class TestCsvRuns : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void oneFileForEachRun();
    void names_data();
    void names();
    void namesInTheUsersZone();
    void theSameInEveryLocale();
    void whatADumpReplaces_data();
    void whatADumpReplaces();
    void eachIncompleteDumpHasItsPlace();
    void whatIsNoWholeDataSet_data();
    void whatIsNoWholeDataSet();
    void entriesBeforeTheFirstStartAreLost();
    void otherLinesOfADump();
    void noStartWritesNoFile_data();
    void noStartWritesNoFile();
    void numbersThatJump_data();
    void numbersThatJump();
    void twoRunsInAMinuteLeaveTheSecond();
    void anExistingFileIsReplaced();
    void aFileThatCannotBeBegun_data();
    void aFileThatCannotBeBegun();
    void oneRunThatCannotBeWrittenLosesNoOther();
    void aReadOnlyVolume();
    void aFullVolumeLeavesNoHalfFile();
    void aFullVolumeKeepsTheFileOfThatName_data();
    void aFullVolumeKeepsTheFileOfThatName();
    void aDiskThatFailsLateKeepsTheFileOfThatName();
    void twoRunsInAMinuteOfACutDump();
    void aReaderNeverMeetsAHalfFile();
};

void TestCsvRuns::init()
{
    qputenv("TZ", "UTC0");
    ::tzset();
}

void TestCsvRuns::oneFileForEachRun()
{
    const Workspace place;
    constexpr int morning = evening + 12 * 3600;
    const QStringList lines{dataset(10, start_flag, evening), entry(11, evening, 1),
                            entry(12, evening, 2, photo),     dataset(13, start_flag, morning),
                            entry(14, morning, 60),           dataset(15, start_flag, morning + 3600)};
    QCOMPARE(filesOf(lines, place.makeFolder(QStringLiteral("out")), QString()), 3);

    const QMap<QString, QByteArray> expected{
        {QStringLiteral("kelpora360_20190221-204600.csv"),
         heading() + "1,11,2019-02-21 20:46:45,1550782005,1,v,1.5,20,270,-3,4\r\n"
                     "2,12,2019-02-21 20:46:46,1550782006,2,p,1.5,20,270,-3,4\r\n"},
        {QStringLiteral("kelpora360_20190222-084600.csv"),
         heading() + "1,14,2019-02-22 08:47:44,1550825264,60,v,1.5,20,270,-3,4\r\n"},
        {QStringLiteral("kelpora360_20190222-094600.csv"), heading()},
    };
    QCOMPARE(place.tree(QStringLiteral("out")), expected);
}

void TestCsvRuns::names_data()
{
    QTest::addColumn<QString>("project");
    QTest::addColumn<QString>("file");

    const auto row = [](const char *name, const QString &project, const QString &file) {
        QTest::newRow(name) << project << file;
    };
    row("no project", QString(), QStringLiteral("kelpora360_20190221-204600.csv"));
    row("a project", QStringLiteral("Reef"), QStringLiteral("kelpora360_Reef_20190221-204600.csv"));
    row("blanks", QStringLiteral(" Blue Hole "),
        QStringLiteral("kelpora360_ Blue Hole _20190221-204600.csv"));
    row("letters of other scripts", QStringLiteral("Höhle 洞"),
        QStringLiteral("kelpora360_Höhle 洞_20190221-204600.csv"));
    row("a percent sign", QStringLiteral("50%"), QStringLiteral("kelpora360_50%_20190221-204600.csv"));
    row("what isn't a placeholder", QStringLiteral("%s%n"),
        QStringLiteral("kelpora360_%s%n_20190221-204600.csv"));
    row("a later placeholder", QStringLiteral("%7"), QStringLiteral("kelpora360_%7_20190221-204600.csv"));
    row("the date's own placeholder is filled twice", QStringLiteral("%2"),
        QStringLiteral("kelpora360_20190221-204600_20190221-204600.csv"));
    row("dots", QStringLiteral("a..b"), QStringLiteral("kelpora360_a..b_20190221-204600.csv"));
    row("a slash below a folder that is there", QStringLiteral("a/b"),
        QStringLiteral("kelpora360_a/b_20190221-204600.csv"));
}

void TestCsvRuns::names()
{
    QFETCH(QString, project);
    QFETCH(QString, file);

    const Workspace place;
    place.makeFolder(QStringLiteral("out/kelpora360_a"));
    QCOMPARE(filesOf(run(evening, 1), place.path(QStringLiteral("out")), project), 1);
    QCOMPARE(place.tree(QStringLiteral("out")).keys(), QStringList(file));
    // A folder given with a slash at its end is the same folder.
    QCOMPARE(filesOf(run(evening, 0), place.path(QStringLiteral("out/")), project), 1);
    QCOMPARE(place.tree(QStringLiteral("out")).keys(), QStringList(file));
}

void TestCsvRuns::namesInTheUsersZone()
{
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    ::tzset();
    const Workspace place;
    QCOMPARE(
        filesOf(run(evening, 0) + run(1561975200, 0), place.makeFolder(QStringLiteral("out")), QString()), 2);
    QCOMPARE(place.tree(QStringLiteral("out")).keys(),
             QStringList({QStringLiteral("kelpora360_20190221-214600.csv"),
                          QStringLiteral("kelpora360_20190701-120000.csv")}));
}

void TestCsvRuns::whatADumpReplaces_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<DumpState>("state");
    QTest::addColumn<QStringList>("dump");
    QTest::addColumn<int>("written");
    QTest::addColumn<int>("keptOlder");
    QTest::addColumn<QStringList>("beside"); // as a whole dump would write them, under other names
    QTest::addColumn<QStringList>("after");  // likewise, under their own
    const QStringList nothing;
    const QStringList first = run(evening, 20);
    const QStringList second = run(evening + 3600, 20);
    const auto begin = [&first](int lines) { return QStringList(first.mid(0, lines)); };
    const auto without = [](QStringList lines, int index) {
        lines.removeAt(index);
        return lines;
    };
    const DumpState gaps = DumpState::Incomplete;
    const DumpState cut = DumpState::CutOff;

    QTest::newRow("where nothing stands, what had arrived is kept")
        << nothing << gaps << begin(6) << 1 << 0 << nothing << begin(6);
    QTest::newRow("a run cut short replaces no longer one")
        << first << gaps << begin(6) << 1 << 1 << begin(6) << first;
    QTest::newRow("a run cut short replaces a shorter one")
        << begin(4) << gaps << begin(18) << 1 << 0 << nothing << begin(18);
    QTest::newRow("the same again") << first << gaps << first << 1 << 0 << nothing << first;
    QTest::newRow("the same again, with a gap")
        << without(first, 10) << gaps << without(first, 10) << 1 << 0 << nothing << without(first, 10);
    QTest::newRow("an entry is missing in the first of two runs")
        << first + second << gaps << without(first, 10) + second << 2 << 1 << without(first, 10)
        << first + second;
    QTest::newRow("an entry is missing and others have come")
        << begin(15) << gaps << without(first, 10) << 1 << 1 << without(first, 10) << begin(15);
    QTest::newRow("a start is missing, which puts two runs into one")
        << first + second << gaps << without(first + second, 21) << 1 << 1 << without(first + second, 21)
        << first + second;
    Nmea unnumbered("$PSEADATA,,10,3638,1,20,0,0,0,0");
    unnumbered.AddChecksum();
    const QString without_number = QString::fromStdString(unnumbered.GetSentence()) + QStringLiteral("\r\n");
    const QStringList gap = QStringList(begin(4) + QStringList{without_number} + QStringList(first.mid(4)));
    QTest::newRow("an entry without a number") << first << gaps << gap << 1 << 1 << gap << first;
    QTest::newRow("two runs of one name, the second replaces the first")
        << nothing << gaps << run(evening, 3) + run(evening + 1, 2) << 2 << 0 << nothing
        << run(evening + 1, 2);
    QTest::newRow("two runs of one name beside an older one, the second replaces the first")
        << first << gaps << run(evening, 3) + run(evening + 1, 2) << 2 << 2 << run(evening + 1, 2) << first;
    QTest::newRow("the last run of a dump that was cut off gets no name of a whole one")
        << nothing << cut << first + second << 2 << 0 << second << first;
    QTest::newRow("nor when it goes on from a shorter one")
        << begin(4) << cut << begin(18) << 1 << 1 << begin(18) << begin(4);
    QTest::newRow("nor when it has the name of the run before it")
        << nothing << cut << run(evening, 3) + run(evening + 1, 2) << 2 << 0 << run(evening + 1, 2)
        << run(evening, 3);
    QTest::newRow("a dump that was cut off before its first start")
        << first << cut << QStringList(first.mid(1, 3)) << 0 << 0 << nothing << first;
}

void TestCsvRuns::whatADumpReplaces()
{
    QFETCH(QStringList, before);
    QFETCH(DumpState, state);
    QFETCH(QStringList, dump);
    QFETCH(int, written);
    QFETCH(int, keptOlder);
    QFETCH(QStringList, beside);
    QFETCH(QStringList, after);
    const Workspace place;
    const QString expected = place.makeFolder(QStringLiteral("expected"));
    write(beside, expected);
    for (const QString &name : place.tree(QStringLiteral("expected")).keys()) {
        QString other = name;
        other.insert(name.lastIndexOf(QLatin1Char('.')), QLatin1String("_incomplete"));
        QVERIFY(QFile::rename(expected + QLatin1Char('/') + name, expected + QLatin1Char('/') + other));
    }
    write(after, expected);
    const QString folder = place.makeFolder(QStringLiteral("out"));
    write(before, folder);

    const MessageLog log;
    const RunFiles files = write(dump, folder, state);
    QCOMPARE(place.tree(QStringLiteral("out")), place.tree(QStringLiteral("expected")));
    QCOMPARE(files.written, written);
    QCOMPARE(files.beside, keptOlder);
    QCOMPARE(files.failed, 0);
    QCOMPARE(MessageLog::lines().filter(QStringLiteral("warning: Data: Kept the older")).size(), keptOlder);
    // A retry that brings nothing new makes no second file of the same content.
    for (int retry = 0; retry < 3; ++retry)
        QCOMPARE(write(dump, folder, state).failed, 0);
    const QList<QByteArray> contents = place.tree(QStringLiteral("out")).values();
    QCOMPARE(QSet<QByteArray>(contents.begin(), contents.end()).size(), contents.size());
}

void TestCsvRuns::eachIncompleteDumpHasItsPlace()
{
    const Workspace place;
    const QString folder = place.makeFolder(QStringLiteral("out"));
    const QStringList whole = run(evening, 20);
    const auto cut = [&whole](int lines) { return QStringList(whole.mid(0, lines)); };
    const auto rows = [&place](const char *end) {
        return place.read(QStringLiteral("out/kelpora360_%1%2.csv").arg(evening_name, QLatin1String(end)))
                   .count('\n') -
               1;
    };
    const MessageLog log;
    write(whole, folder);
    for (const int lines : {8, 8, 6, 12, 7})
        QCOMPARE(write(cut(lines), folder, DumpState::Incomplete).written, 1);
    // One that goes on from an earlier one takes its place, a shorter one doesn't.
    QCOMPARE(rows(""), 20);
    QCOMPARE(rows("_incomplete"), 11);
    QCOMPARE(rows("_incomplete_2"), 6);
    QCOMPARE(place.tree(QStringLiteral("out")).size(), 3);
    write(whole, folder);
    QCOMPARE(rows(""), 20);
    QCOMPARE(rows("_incomplete"), 11);
}

void TestCsvRuns::whatIsNoWholeDataSet_data()
{
    QTest::addColumn<QString>("body");
    QTest::newRow("too few fields") << QStringLiteral("PSEADATA,3,10,3638");
    QTest::newRow("another sentence") << QStringLiteral("PSEADATAX,3,10,3638,1,20,0,0,0,0");
}

void TestCsvRuns::whatIsNoWholeDataSet()
{
    QFETCH(QString, body);
    const Workspace place;
    const MessageLog log;
    Nmea sentence('$' + body.toStdString());
    sentence.AddChecksum();
    QStringList dump = run(evening, 3);
    dump.insert(2, QString::fromStdString(sentence.GetSentence()) + QStringLiteral("\r\n"));
    filesOf(run(evening, 3), place.makeFolder(QStringLiteral("expected")), {});
    QCOMPARE(write(dump, place.makeFolder(QStringLiteral("out"))).written, 1);
    QCOMPARE(place.tree(QStringLiteral("out")), place.tree(QStringLiteral("expected")));
    QCOMPARE(MessageLog::lines(QStringLiteral("warning"))
                 .filter(QStringLiteral("Data: Not a whole dataset: $PSEADATA"))
                 .size(),
             1);
}

void TestCsvRuns::theSameInEveryLocale()
{
    // The framework takes the user's locale once, at the start; these have digits of their own.
    for (const char *locale : {"fa_IR.UTF-8", "ar_EG.UTF-8", "de_DE.UTF-8"}) {
        QProcess there;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LC_ALL"), QString::fromLatin1(locale));
        there.setProcessEnvironment(environment);
        there.start(QCoreApplication::applicationFilePath(), {QStringLiteral("oneFileForEachRun")});
        QVERIFY(there.waitForFinished());
        QVERIFY2(there.exitStatus() == QProcess::NormalExit && there.exitCode() == 0,
                 there.readAllStandardOutput().constData());
    }
}

void TestCsvRuns::entriesBeforeTheFirstStartAreLost()
{
    const Workspace place;
    const QStringList early{entry(1, evening, 1), entry(2, evening, 2, photo)};
    QCOMPARE(filesOf(early + run(evening, 1), place.makeFolder(QStringLiteral("out")), QString()), 1);
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-204600.csv")),
             heading() + "1,2,2019-02-21 20:46:45,1550782005,1,v,1.5,20,270,-3,4\r\n");
}

void TestCsvRuns::otherLinesOfADump()
{
    const Workspace place;
    QStringList lines{dataset(5, start_flag, evening)};
    // Neither video nor photo, and a wrapped time that lies before the start.
    lines.append(dataset(6, 0, 16));
    // Its number may lie below the start's after a wrap of the log.
    lines.append(entry(2, evening, 3));
    QCOMPARE(filesOf(lines, place.makeFolder(QStringLiteral("out")), QString()), 1);
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-204600.csv")),
             heading() + "1,6,2019-02-21 19:46:24,1550778384,-3620, ,1.5,20,270,-3,4\r\n"
                         "-3,2,2019-02-21 20:46:47,1550782007,3,v,1.5,20,270,-3,4\r\n");
}

void TestCsvRuns::noStartWritesNoFile_data()
{
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("no lines") << QStringList();
    QTest::newRow("only entries") << QStringList({entry(1, evening, 1), entry(2, evening, 2)});
    QTest::newRow("a damaged start") << QStringList(
        {dataset(1, start_flag, evening).replace(QStringLiteral("1550782"), QStringLiteral("1550783"))});
}

void TestCsvRuns::noStartWritesNoFile()
{
    QFETCH(QStringList, lines);

    const Workspace place;
    QCOMPARE(filesOf(lines, place.makeFolder(QStringLiteral("out")), QString()), 0);
    QCOMPARE(place.tree(QStringLiteral("out")).size(), 0);
}

void TestCsvRuns::numbersThatJump_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("gaps");

    const QString start = dataset(1, start_flag, evening);
    QTest::newRow("none") << run(evening, 4) << false;
    QTest::newRow("amid a run") << QStringList{start, entry(2, evening, 1), entry(4, evening, 3)} << true;
    QTest::newRow("after the start") << QStringList{start, entry(3, evening, 2)} << true;
    QTest::newRow("backwards") << QStringList{start, entry(2, evening, 1), entry(1, evening, 2)} << true;
    QTest::newRow("at a start") << QStringList{start, entry(2, evening, 1),
                                               dataset(9, start_flag, evening + 60)}
                                << false;
    QTest::newRow("a line that is sent again")
        << QStringList{start, entry(2, evening, 1), entry(2, evening, 1), entry(3, evening, 2)} << false;
    QTest::newRow("a log that begins amid a run")
        << QStringList{entry(17, evening, 1), entry(18, evening, 2), dataset(19, start_flag, evening + 60)}
        << false;
}

void TestCsvRuns::numbersThatJump()
{
    QFETCH(QStringList, lines);
    QTEST(runsOf(dumped(lines), QStringLiteral("folder"), {}).gaps, "gaps");
}

void TestCsvRuns::twoRunsInAMinuteLeaveTheSecond()
{
    const Workspace place;
    const QStringList lines = run(evening, 3) + run(evening + 10, 1);
    QCOMPARE(filesOf(lines, place.makeFolder(QStringLiteral("out")), QString()), 2);
    const QMap<QString, QByteArray> second{
        {QStringLiteral("kelpora360_20190221-204600.csv"),
         heading() + "1,2,2019-02-21 20:46:55,1550782015,1,v,1.5,20,270,-3,4\r\n"}};
    QCOMPARE(place.tree(QStringLiteral("out")), second);
}

void TestCsvRuns::anExistingFileIsReplaced()
{
    const Workspace place;
    place.write(QStringLiteral("out/kelpora360_20190221-204600.csv"), QByteArray(100000, 'x'));
    place.write(QStringLiteral("out/kelpora360_20190221-204700.csv"), "another");
    QCOMPARE(filesOf(run(evening, 0), place.path(QStringLiteral("out")), QString()), 1);
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-204600.csv")), heading());
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-204700.csv")), QByteArray("another"));
    QCOMPARE(place.tree(QStringLiteral("out")).size(), 2);
}

void TestCsvRuns::aFileThatCannotBeBegun_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("project");

    const QString out = QStringLiteral("out");
    QTest::newRow("no such folder") << QStringLiteral("missing") << QString();
    QTest::newRow("a file for a folder") << QStringLiteral("out/file") << QString();
    QTest::newRow("a folder of the file's name") << QStringLiteral("taken") << QString();
    QTest::newRow("a slash in the project") << out << QStringLiteral("a/b");
    QTest::newRow("a way out in the project") << out << QStringLiteral("../../x");
    QTest::newRow("a name longer than a file's may be") << out << QString(300, QLatin1Char('x'));
}

void TestCsvRuns::aFileThatCannotBeBegun()
{
    QFETCH(QString, folder);
    QFETCH(QString, project);

    const Workspace place;
    place.write(QStringLiteral("out/file"), "content");
    place.makeFolder(QStringLiteral("taken/kelpora360_%1.csv").arg(evening_name));
    const QMap<QString, QByteArray> before = place.tree(QString());
    const MessageLog log;
    QCOMPARE(filesOf(run(evening, 2), place.path(folder), project), 0);
    QCOMPARE(place.tree(QString()), before);
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")).size(), 1);
    QVERIFY(MessageLog::lines(QStringLiteral("warning"))
                .first()
                .startsWith(QStringLiteral("Data: Could not write ") + place.path(folder)));
}

void TestCsvRuns::oneRunThatCannotBeWrittenLosesNoOther()
{
    const Workspace place;
    place.makeFolder(QStringLiteral("out/kelpora360_%1.csv").arg(evening_name));
    const QStringList lines = run(evening - 3600, 1) + run(evening, 5) + run(evening + 3600, 1);
    const MessageLog log;
    QCOMPARE(filesOf(lines, place.path(QStringLiteral("out")), QString()), 2);
    QCOMPARE(place.tree(QStringLiteral("out")).keys(),
             QStringList({QStringLiteral("kelpora360_20190221-194600.csv"),
                          QStringLiteral("kelpora360_20190221-214600.csv")}));
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-194600.csv")).count('\n'), 2);
}

void TestCsvRuns::aReadOnlyVolume()
{
    const Workspace place;
    TestVolume volume(place.path(QStringLiteral("out")), 256);
    SKIP_UNLESS_MOUNTED(volume);
    place.write(QStringLiteral("out/kelpora360_20190221-204600.csv"), "before");
    QVERIFY(volume.makeReadOnly());
    const MessageLog log;
    QCOMPARE(filesOf(run(evening, 1), place.path(QStringLiteral("out")), QString()), 0);
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")).size(), 1);
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-204600.csv")), QByteArray("before"));
}

void TestCsvRuns::aFullVolumeLeavesNoHalfFile()
{
    const Workspace place;
    const TestVolume volume(place.path(QStringLiteral("out")), 64);
    SKIP_UNLESS_MOUNTED(volume);
    // The second run doesn't fit; the third does again, once what there was of the second is gone.
    const QStringList lines = run(evening - 3600, 10) + run(evening, 5000) + run(evening + 3600, 10);
    const MessageLog log;
    QCOMPARE(filesOf(lines, place.path(QStringLiteral("out")), QString()), 2);
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")).size(), 1);
    QVERIFY(MessageLog::lines(QStringLiteral("warning")).first().contains(evening_name));
    const QMap<QString, QByteArray> files = place.tree(QStringLiteral("out"));
    QCOMPARE(files.keys(), QStringList({QStringLiteral("kelpora360_20190221-194600.csv"),
                                        QStringLiteral("kelpora360_20190221-214600.csv")}));
    for (const QByteArray &content : files)
        QCOMPARE(content.count('\n'), 11);
}

void TestCsvRuns::aFullVolumeKeepsTheFileOfThatName_data()
{
    QTest::addColumn<int>("entries");
    // Up to 16 KiB the toolkit keeps in memory until the file is closed.
    for (const int entries : {0, 1, 100, 200, 300, 5000})
        QTest::newRow(QByteArray::number(entries).constData()) << entries;
}

void TestCsvRuns::aFullVolumeKeepsTheFileOfThatName()
{
    QFETCH(int, entries);
    const Workspace place;
    const TestVolume volume(place.path(QStringLiteral("out")), 64);
    SKIP_UNLESS_MOUNTED(volume);
    const QByteArray before = "an earlier download\r\n";
    place.write(QStringLiteral("out/kelpora360_20190221-204600.csv"), before);
    fill(place.path(QStringLiteral("out/filler")));
    const MessageLog log;
    const RunFiles files = write(run(evening, entries), place.path(QStringLiteral("out")));
    QCOMPARE(files.written, 0);
    QCOMPARE(files.failed, 1);
    QMap<QString, QByteArray> left = place.tree(QStringLiteral("out"));
    left.remove(QStringLiteral("filler"));
    QCOMPARE(left, (QMap<QString, QByteArray>{{QStringLiteral("kelpora360_20190221-204600.csv"), before}}));
    const QStringList warnings = MessageLog::lines(QStringLiteral("warning"));
    QCOMPARE(warnings.size(), 1);
    QVERIFY2(warnings.constFirst().endsWith(QStringLiteral(": ") + qt_error_string(ENOSPC)),
             qPrintable(warnings.constFirst()));
}

/// The volume says yes to every write; the disk below it is full when they get there.
void TestCsvRuns::aDiskThatFailsLateKeepsTheFileOfThatName()
{
    const Workspace place;
    const TestVolume below(place.path(QStringLiteral("below")), 40 * 1024);
    SKIP_UNLESS_MOUNTED(below);
    const LoopVolume volume(LoopVolume::Kind::Ext4, place.path(QStringLiteral("below/image")), 64,
                            place.path(QStringLiteral("out")));
    SKIP_UNLESS_MOUNTED(volume);
    const QStringList lines = run(evening, 2000);
    QCOMPARE(filesOf(lines, place.path(QStringLiteral("out")), QString()), 1);
    const QByteArray before = place.read(QStringLiteral("out/kelpora360_20190221-204600.csv"));
    QCOMPARE(before.count('\n'), 2001);
    fill(place.path(QStringLiteral("below/filler")));
    const MessageLog log;
    const RunFiles files = write(lines, place.path(QStringLiteral("out")));
    QCOMPARE(files.written, 0);
    QCOMPARE(files.failed, 1);
    QCOMPARE(place.read(QStringLiteral("out/kelpora360_20190221-204600.csv")), before);
}

void TestCsvRuns::twoRunsInAMinuteOfACutDump()
{
    // The first goes on from what an older dump left of it, so the second may not take its place.
    const Workspace place;
    const QString folder = place.makeFolder(QStringLiteral("out"));
    write(run(evening, 2), folder, DumpState::Incomplete);
    const MessageLog log;
    const RunFiles files = write(run(evening, 3) + run(evening + 10, 1), folder, DumpState::Incomplete);
    QCOMPARE(files.written, 2);
    QCOMPARE(files.beside, 1);
    const QMap<QString, QByteArray> tree = place.tree(QStringLiteral("out"));
    QCOMPARE(tree.size(), 2);
    QCOMPARE(tree.value(QStringLiteral("kelpora360_20190221-204600.csv")).count('\n'), 4);
    QCOMPARE(tree.value(QStringLiteral("kelpora360_20190221-204600_incomplete.csv")).count('\n'), 2);
}

void TestCsvRuns::aReaderNeverMeetsAHalfFile()
{
    const Workspace place;
    const QString folder = place.makeFolder(QStringLiteral("out"));
    constexpr int entries = 3000;
    const QStringList lines = run(evening, entries);
    // Both whole contents that the name may stand for.
    QCOMPARE(filesOf(lines, folder, QString()), 1);
    const QString name = QStringLiteral("out/kelpora360_20190221-204600.csv");
    const QByteArray whole = place.read(name);
    QCOMPARE(whole.count('\n'), 1 + entries);
    const QByteArray earlier = "an earlier download\r\n";

    std::atomic<bool> written{false};
    std::atomic<bool> reading{false};
    std::atomic<int> looks{0};
    QStringList met;
    QVERIFY(QFile::remove(place.path(name)));
    std::thread reader([&] {
        while (!written) {
            const QStringList files = QDir(folder).entryList({QStringLiteral("*.csv")}, QDir::Files);
            for (const QString &file : files) {
                QFile open(folder + QLatin1Char('/') + file);
                if (!open.open(QIODevice::ReadOnly))
                    continue;
                const QByteArray content = open.readAll();
                if (content != whole && content != earlier)
                    met.append(file + QStringLiteral(": %1 bytes").arg(content.size()));
            }
            ++looks;
            reading = true;
        }
    });
    while (!reading)
        std::this_thread::yield();
    int files = 0;
    int writes = 0;
    for (; writes < 10 || (looks <= 10 && writes < 10000); ++writes) {
        files += filesOf(lines, folder);
        if (writes % 2 == 0)
            QFile::remove(place.path(name));
    }
    written = true;
    reader.join();
    QCOMPARE(files, writes);
    QVERIFY2(looks > 10, qPrintable(QString::number(looks)));
    QCOMPARE(met, QStringList());
}

KELPORA_TEST_MAIN(TestCsvRuns)
#include "tst_csvruns.moc"
