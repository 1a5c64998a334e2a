#include "tests/cards/importrun.h"
#include "tests/cards/recordings.h"
#include "tests/support/messagelog.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDirIterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// A file that every user may open and none can read: every read ends with an I/O error.
bool makeUnreadable(const QString &path)
{
    return QFile::link(QStringLiteral("/proc/self/mem"), path);
}

/// The files of a card in the order of its file system.
QStringList inCardOrder(const QString &card)
{
    QStringList files;
    QDirIterator iterator(card, QDir::Files, QDirIterator::Subdirectories);
    while (iterator.hasNext())
        files.append(iterator.next());
    return files;
}

} // namespace

class TestMediaImport : public QObject
{
    Q_OBJECT

private slots:
    void names_data();
    void names();
    void aWayUpInTheProjectsNameLeadsNowhere();
    void aSecondAndAThirdImportAreNumbered();
    void aDanglingLinkCountsAsATakenName();
    void aFolderNamedLikeTheCopyCountsAsATakenName();
    void contentPermissionsAndTimeAreKept();
    void onlyRecordingsAreImported_data();
    void onlyRecordingsAreImported();
    void hiddenFilesAndFoldersAreNotListed();
    void aNameThatBeginsWithAByteOrderMark();
    void aNameThatIsNoTextIsTold();
    void aFolderThatCannotBeListedIsTold();
    void linksThatLeadNowhere_data();
    void linksThatLeadNowhere();
    void linksToFoldersAreNotFollowed();
    void whatIsNoFileIsNotListed();
    void aLinkToWhatIsNoFileIsNotCopied();
    void reportsOfOneVideo();
    void reportsOfEveryKindOfFile();
    void logOfOneCard();
    void aRefusedRequest_data();
    void aRefusedRequest();
    void anEmptyCard();
    void aDestinationFolderIsCreated();
    void relativeFoldersAreUnderstood();
    void aCopyOfAnotherSizeIsReportedAndStays();
    void previews_data();
    void previews();
    void anExistingPreviewIsNotOverwritten();
    void withoutATemplateNoProjectIsWritten();
    void projectsAreWrittenForFilesThatCouldNotBeCopied();
    void projectsOfATakeUnderANumber();
    void theImportStopsBetweenFiles();
};

void TestMediaImport::names_data()
{
    QTest::addColumn<QString>("cardFile");
    QTest::addColumn<int>("card");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QStringList>("taken");
    QTest::addColumn<QString>("copy");
    QTest::addColumn<QString>("take");

    const QString clip = QStringLiteral("DCIM/100MEDIA/CLIP0007.MOV");
    const QString raw = QStringLiteral("DCIM/100MEDIA/IMG0003.DNG");
    const QString photo = QStringLiteral("DCIM/100MEDIA/IMG0003.JPG");
    const auto row = [](const char *name, const QString &file, int card, const char *project,
                        const QStringList &taken, const char *copy, const char *take) {
        QTest::newRow(name) << file << card << text(project) << taken << text(copy) << text(take);
    };
    const auto in = [](const QStringList &names) {
        QStringList paths;
        for (const QString &name : names)
            paths.append(QStringLiteral("DCIM/100MEDIA/") + name);
        return paths;
    };

    row("a video without a project name", clip, 2, "", {}, "DCIM/100MEDIA/CLIP0007_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("a video with a project name", clip, 2, "reef", {}, "DCIM/100MEDIA/CLIP0007_reef_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("that name taken", clip, 2, "reef", in({"CLIP0007_reef_cam2.MOV"}),
        "DCIM/100MEDIA/CLIP0007-1_cam2.MOV", "DCIM/100MEDIA/CLIP0007-1.MOV");
    row("the -1 name taken as well", clip, 2, "reef", in({"CLIP0007_reef_cam2.MOV", "CLIP0007-1_cam2.MOV"}),
        "DCIM/100MEDIA/CLIP0007-2_cam2.MOV", "DCIM/100MEDIA/CLIP0007-2.MOV");
    row("taken without a project name", clip, 2, "", in({"CLIP0007_cam2.MOV"}),
        "DCIM/100MEDIA/CLIP0007-1_cam2.MOV", "DCIM/100MEDIA/CLIP0007-1.MOV");
    row("a raw photo with a project name", raw, 2, "reef", {}, "DCIM/100MEDIA/IMG0003_reef_cam2.DNG",
        "DCIM/100MEDIA/IMG0003.DNG");

    row("card 1", clip, 1, "", {}, "DCIM/100MEDIA/CLIP0007_cam1.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    row("card 3", clip, 3, "reef", {}, "DCIM/100MEDIA/CLIP0007_reef_cam3.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    row("another camera's copy takes no name", clip, 2, "", in({"CLIP0007_cam1.MOV"}),
        "DCIM/100MEDIA/CLIP0007_cam2.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    row("a gap in the numbers is used", clip, 2, "", in({"CLIP0007_cam2.MOV", "CLIP0007-2_cam2.MOV"}),
        "DCIM/100MEDIA/CLIP0007-1_cam2.MOV", "DCIM/100MEDIA/CLIP0007-1.MOV");
    row("numbers alone don't count as taken", clip, 2, "", in({"CLIP0007-1_cam2.MOV"}),
        "DCIM/100MEDIA/CLIP0007_cam2.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    QStringList ten{QStringLiteral("CLIP0007_cam2.MOV")};
    for (int n = 1; n < 10; ++n)
        ten.append(QStringLiteral("CLIP0007-%1_cam2.MOV").arg(n));
    row("the tenth number", clip, 2, "", in(ten), "DCIM/100MEDIA/CLIP0007-10_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007-10.MOV");

    row("a photo without a project name", photo, 2, "", {}, "DCIM/100MEDIA/IMG0003_cam2.JPG",
        "DCIM/100MEDIA/IMG0003.JPG");
    row("a raw photo without a project name", raw, 3, "", {}, "DCIM/100MEDIA/IMG0003_cam3.DNG",
        "DCIM/100MEDIA/IMG0003.DNG");
    row("a photo with a project name", photo, 1, "reef", {}, "DCIM/100MEDIA/IMG0003_reef_cam1.JPG",
        "DCIM/100MEDIA/IMG0003.JPG");
    row("a taken photo", photo, 2, "reef", in({"IMG0003_reef_cam2.JPG"}), "DCIM/100MEDIA/IMG0003-1_cam2.JPG",
        "DCIM/100MEDIA/IMG0003-1.JPG");
    row("a twice taken raw photo", raw, 2, "", in({"IMG0003_cam2.DNG", "IMG0003-1_cam2.DNG"}),
        "DCIM/100MEDIA/IMG0003-2_cam2.DNG", "DCIM/100MEDIA/IMG0003-2.DNG");
    row("a photo beside its raw photo", photo, 2, "", in({"IMG0003_cam2.DNG"}),
        "DCIM/100MEDIA/IMG0003_cam2.JPG", "DCIM/100MEDIA/IMG0003.JPG");
    row("a file at the top of the card", QStringLiteral("A.MOV"), 1, "", {}, "A_cam1.MOV", "A.MOV");

    row("%1 in the name of a video's project", clip, 2, "a%1b", {}, "DCIM/100MEDIA/CLIP0007_a2b_cam%2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("%2 in the name of a video's project", clip, 2, "50%2", {}, "DCIM/100MEDIA/CLIP0007_502_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("%3 in the name of a video's project", clip, 2, "50%3", {}, "DCIM/100MEDIA/CLIP0007_50%3_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("%0 in the name of a video's project", clip, 2, "%0x", {}, "DCIM/100MEDIA/CLIP0007_2x_cam%2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("%9 and %12 in the name of a video's project", clip, 1, "%9%12", {},
        "DCIM/100MEDIA/CLIP0007_%9%12_cam1.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    row("%1 in the name of a photo's project", photo, 2, "a%1b", {}, "DCIM/100MEDIA/IMG0003_a2b_cam.JPG%3",
        "DCIM/100MEDIA/IMG0003.JPG");
    row("%2 in the name of a photo's project", raw, 2, "50%2", {}, "DCIM/100MEDIA/IMG0003_502_cam2.DNG",
        "DCIM/100MEDIA/IMG0003.DNG");
    row("%3 in the name of a photo's project", photo, 2, "x%3", {}, "DCIM/100MEDIA/IMG0003_x.JPG_cam2.JPG",
        "DCIM/100MEDIA/IMG0003.JPG");
    row("a percent sign alone in the project's name", clip, 2, "100%", {},
        "DCIM/100MEDIA/CLIP0007_100%_cam2.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    row("digits in the project's name", clip, 2, "2026 11", {}, "DCIM/100MEDIA/CLIP0007_2026 11_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("blanks around the project's name", clip, 2, " reef ", {}, "DCIM/100MEDIA/CLIP0007_ reef _cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row("a project name in UTF-8", clip, 2, "Große Höhle 海", {},
        "DCIM/100MEDIA/CLIP0007_Große Höhle 海_cam2.MOV", "DCIM/100MEDIA/CLIP0007.MOV");
    row("a slash in the project's name", clip, 2, "red/sea", {}, "DCIM/100MEDIA/CLIP0007_red/sea_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row(".MOV in the project's name", clip, 2, "a.MOV", {}, "DCIM/100MEDIA/CLIP0007_a.MOV_cam2.MOV",
        "DCIM/100MEDIA/CLIP0007.MOV");
    row(".JPG in the name of a photo's project", photo, 2, "a.JPG", {},
        "DCIM/100MEDIA/IMG0003_a.JPG_cam2.JPG", "DCIM/100MEDIA/IMG0003.JPG");
    row("a taken name with a percent sign and a digit", clip, 2, "50%2", in({"CLIP0007_502_cam2.MOV"}),
        "DCIM/100MEDIA/CLIP0007-1_cam2.MOV", "DCIM/100MEDIA/CLIP0007-1.MOV");

    row("blanks and percent signs on the card", text("D C%1M/10 %2/CLIP %1.MOV"), 2, "reef", {},
        "D C%1M/10 %2/CLIP %1_reef_cam2.MOV", "D C%1M/10 %2/CLIP %1.MOV");
    row("UTF-8 on the card", text("DCIM/Tauchgänge/Riff 海.MOV"), 2, "", {},
        "DCIM/Tauchgänge/Riff 海_cam2.MOV", "DCIM/Tauchgänge/Riff 海.MOV");
    row("a folder with .MOV in its name", text("DAY.MOV/A.MOV"), 2, "", {}, "DAY_cam2.MOV/A_cam2.MOV",
        "DAY.MOV/A.MOV");
    row("a folder with .MOV in its name and a project", text("DAY.MOV.old/A.MOV"), 2, "reef", {},
        "DAY_reef_cam2.MOV.old/A_reef_cam2.MOV", "DAY.MOV.old/A.MOV");
    row("a taken name in a folder with .MOV in its name", text("DAY.MOV/A.MOV"), 2, "",
        {QStringLiteral("DAY_cam2.MOV/A_cam2.MOV")}, "DAY-1_cam2.MOV/A-1_cam2.MOV", "DAY-1.MOV/A-1.MOV");
    row("a folder with .JPG in its name", text("DAY.JPG/A.JPG"), 1, "", {}, "DAY_cam1.JPG/A_cam1.JPG",
        "DAY.JPG/A.JPG");
    row("a folder with .DNG in its name", text("DAY.DNG/A.DNG"), 1, "", {}, "DAY_cam1.DNG/A_cam1.DNG",
        "DAY.DNG/A.DNG");
    row("a folder with .JPG in its name and a raw photo", text("DAY.JPG/A.DNG"), 1, "", {},
        "DAY.JPG/A_cam1.DNG", "DAY.JPG/A.DNG");
    row("a folder with .MOV in its name and a photo", text("DAY.MOV/A.JPG"), 1, "", {}, "DAY.MOV/A_cam1.JPG",
        "DAY.MOV/A.JPG");
    row("a folder with .mov in its name", text("day.mov/A.MOV"), 1, "", {}, "day_cam1.MOV/A_cam1.MOV",
        "day.MOV/A.MOV");
    row("a folder with .mov in its name and a photo", text("day.mov/A.JPG"), 1, "", {}, "day.mov/A_cam1.JPG",
        "day.mov/A.JPG");
    row(".MOV twice in a file's name", text("A.MOV.MOV"), 1, "", {}, "A_cam1.MOV_cam1.MOV", "A.MOV.MOV");
    row("nothing before the extension in a folder", text("X/B.mov.MOV"), 1, "", {}, "X/B_cam1.MOV_cam1.MOV",
        "X/B.MOV.MOV");
}

void TestMediaImport::names()
{
    QFETCH(QString, cardFile);
    QFETCH(int, card);
    QFETCH(QString, project);
    QFETCH(QStringList, taken);
    QFETCH(QString, copy);
    QFETCH(QString, take);
    const Workspace workspace;
    const QByteArray content = recording(1000, 7);
    workspace.write(QStringLiteral("card/") + cardFile, content);
    for (const QString &name : qAsConst(taken))
        workspace.write(QStringLiteral("dst/") + name, "taken " + name.toUtf8());
    workspace.makeFolder(QStringLiteral("dst"));

    const QString templatePath = workspace.path(QStringLiteral("none.kava"));
    ImportRun import(workspace, card, templatePath, project);
    QVERIFY(import.run());

    QMap<QString, QByteArray> expected;
    for (const QString &name : qAsConst(taken))
        expected.insert(name, "taken " + name.toUtf8());
    expected.insert(QDir::cleanPath(copy), content);
    QCOMPARE(workspace.tree(QStringLiteral("dst")).keys(), expected.keys());
    QCOMPARE(workspace.tree(QStringLiteral("dst")), expected);
    QCOMPARE(workspace.read(QStringLiteral("card/") + cardFile), content);
    QCOMPARE(import.projectCalls(),
             QStringList{QStringLiteral("%1 %2 [%3] [%4] [")
                             .arg(cardFile.endsWith(QStringLiteral(".MOV")) ? QStringLiteral("video")
                                                                            : QStringLiteral("photo"))
                             .arg(card)
                             .arg(templatePath, workspace.path(QStringLiteral("dst/") + take)) +
                         project + QLatin1Char(']')});
}

void TestMediaImport::aWayUpInTheProjectsNameLeadsNowhere()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    workspace.makeFolder(QStringLiteral("dst"));
    ImportRun import(workspace, 1, {}, QStringLiteral("../../up"));
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 0/1 videos and 0/0 photos.")});
    QCOMPARE(filesBelow(workspace.path()), QStringList{QStringLiteral("card/A.MOV")});
}

void TestMediaImport::aSecondAndAThirdImportAreNumbered()
{
    const Workspace workspace;
    const QByteArray video = recording(3000, 1);
    const QByteArray photo = recording(2000, 2);
    workspace.write(QStringLiteral("card/DCIM/A.MOV"), video);
    workspace.write(QStringLiteral("card/DCIM/B.JPG"), photo);
    QMap<QString, QByteArray> expected;
    for (const char *number : {"_reef_cam1", "-1_cam1", "-2_cam1"}) {
        ImportRun import(workspace, 1, {}, QStringLiteral("reef"));
        QVERIFY(import.run());
        QCOMPARE(import.finalReports(),
                 QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 1/1 photos.")});
        expected.insert(QStringLiteral("DCIM/A") + QLatin1String(number) + QStringLiteral(".MOV"), video);
        expected.insert(QStringLiteral("DCIM/B") + QLatin1String(number) + QStringLiteral(".JPG"), photo);
        QCOMPARE(workspace.tree(QStringLiteral("dst")), expected);
    }
}

void TestMediaImport::aDanglingLinkCountsAsATakenName()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    const QString dst = workspace.makeFolder(QStringLiteral("dst"));
    QVERIFY(QFile::link(workspace.path(QStringLiteral("elsewhere")), dst + QStringLiteral("/A_cam1.MOV")));

    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(workspace.read(QStringLiteral("dst/A-1_cam1.MOV")), QByteArray("video"));
    QVERIFY(QFileInfo(dst + QStringLiteral("/A_cam1.MOV")).isSymLink());
    QVERIFY(!QFileInfo::exists(workspace.path(QStringLiteral("elsewhere"))));
}

void TestMediaImport::aFolderNamedLikeTheCopyCountsAsATakenName()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    workspace.makeFolder(QStringLiteral("dst/A_cam1.MOV"));

    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(workspace.tree(QStringLiteral("dst")),
             (QMap<QString, QByteArray>{{QStringLiteral("A-1_cam1.MOV"), QByteArray("video")}}));
}

void TestMediaImport::contentPermissionsAndTimeAreKept()
{
    const Workspace workspace;
    const QByteArray content = recording(9 << 20, 3);
    const QString source = workspace.write(QStringLiteral("card/A.MOV"), content);
    const QDateTime time(QDate(2019, 7, 1), QTime(12, 30, 5, 250));
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(time, QFileDevice::FileModificationTime));
    }
    QVERIFY(::chmod(QFile::encodeName(source).constData(), 0640) == 0);

    ImportRun import(workspace);
    QVERIFY(import.run());
    const QString copy = workspace.path(QStringLiteral("dst/A_cam1.MOV"));
    QCOMPARE(workspace.read(QStringLiteral("dst/A_cam1.MOV")), content);
    QCOMPARE(QFileInfo(copy).lastModified(), time);
    QCOMPARE(QFileInfo(copy).permissions(), QFileInfo(source).permissions());
    QCOMPARE(QFileInfo(source).lastModified(), time);
}

void TestMediaImport::onlyRecordingsAreImported_data()
{
    QTest::addColumn<QString>("file");
    for (const char *name :
         {"clip.mov", "CLIP.Mov", "img.jpg", "img.dng", "IMG.JPEG", "IMG.PNG", "CLIP.MOV.bak", "CLIP.MOV ",
          "MOV", "README", "CLIPMOV", "MISC.THM", "IMG.JPG.tmp", "cfg"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void TestMediaImport::onlyRecordingsAreImported()
{
    QFETCH(QString, file);
    const Workspace workspace;
    const QString path = workspace.write(QStringLiteral("card/") + file, "content");
    workspace.makeFolder(QStringLiteral("dst"));

    ImportRun import(workspace, 1, workspace.path(QStringLiteral("none.kava")));
    QVERIFY(import.run());
    QCOMPARE(import.reports(),
             (QStringList{reportLine(0, 2, 1, QStringLiteral("Copying ") + path),
                          reportLine(0, 1, 1, QStringLiteral("Copied 0/0 videos and 0/0 photos."))}));
    QCOMPARE(import.projectCalls(), QStringList());
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))), QStringList());
}

void TestMediaImport::hiddenFilesAndFoldersAreNotListed()
{
    const Workspace workspace;
    for (const char *hidden : {"._A.MOV", ".A.JPG", ".Trashes/B.MOV", ".Spotlight-V100/x/B.DNG",
                               "DCIM/.hidden/B.JPG", "DCIM/._A.MOV", ".MOV"})
        workspace.write(QStringLiteral("card/") + QLatin1String(hidden), "hidden");
    const QString shown = workspace.write(QStringLiteral("card/DCIM/A.MOV"), "video");

    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(
        import.reports(),
        (QStringList{reportLine(0, 2, 1, QStringLiteral("Copying ") + shown),
                     reportLine(0, 1, 2, QStringLiteral("Copied ") + shown + QStringLiteral(" correctly.")),
                     reportLine(0, 1, 1, QStringLiteral("Copied 1/1 videos and 0/0 photos."))}));
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))),
             QStringList{QStringLiteral("DCIM/A_cam1.MOV")});
}

void TestMediaImport::aNameThatBeginsWithAByteOrderMark()
{
    const Workspace workspace;
    const QString mark(QChar::ByteOrderMark);
    workspace.write(QStringLiteral("card/") + mark + QStringLiteral("DCIM/") + mark + QStringLiteral("A.MOV"),
                    "video");
    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(),
             QStringList{reportLine(0, 1, 1, QStringLiteral("Copied 1/1 videos and 0/0 photos."))});
    QCOMPARE(workspace.tree(QStringLiteral("dst")),
             (QMap<QString, QByteArray>{
                 {mark + QStringLiteral("DCIM/") + mark + QStringLiteral("A_cam1.MOV"), "video"}}));
}

void TestMediaImport::aNameThatIsNoTextIsTold()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    const QByteArray strange = QFile::encodeName(workspace.path(QStringLiteral("card/B"))) + "\xff.MOV";
    const int file = ::open(strange.constData(), O_CREAT | O_WRONLY, 0600);
    if (file < 0)
        QSKIP("This file system takes no names that are no text");
    ::close(file);

    const MessageLog log;
    ImportRun import(workspace, 2);
    const bool ran = import.run();
    // The framework could not remove it with the workspace.
    ::unlink(strange.constData());
    QVERIFY(ran);
    QCOMPARE(import.finalReports(),
             QStringList{QStringLiteral("0 1 1 Error: Part of the card could not be read. "
                                        "Copied 1/1 videos and 0/0 photos.")});
    const QStringList warnings = MessageLog::lines(QStringLiteral("warning"));
    QCOMPARE(warnings.size(), 1);
    QVERIFY2(warnings.first().startsWith(QStringLiteral("Card 2: can't read ") + workspace.path() +
                                         QStringLiteral("/card/B")),
             qPrintable(warnings.first()));
}

void TestMediaImport::aFolderThatCannotBeListedIsTold()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    workspace.write(QStringLiteral("card/shut/B.MOV"), "video");
    const QByteArray shut = QFile::encodeName(workspace.path(QStringLiteral("card/shut")));
    QVERIFY(::chmod(shut.constData(), 0) == 0);

    const MessageLog log;
    ImportRun import(workspace, 3);
    {
        const PlainUser user;
        QVERIFY(import.run());
    }
    ::chmod(shut.constData(), 0700);
    QCOMPARE(import.finalReports(),
             QStringList{QStringLiteral("0 1 1 Error: Part of the card could not be read. "
                                        "Copied 1/1 videos and 0/0 photos.")});
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")),
             QStringList{QStringLiteral("Card 3: can't read %1.").arg(QFile::decodeName(shut))});
}

void TestMediaImport::linksThatLeadNowhere_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("told");
    QTest::newRow("its end is missing") << "missing.MOV" << false;
    QTest::newRow("in a circle") << "LINK.MOV" << false;
    QTest::newRow("into a folder that is shut") << "../shut/B.MOV" << true;
}

void TestMediaImport::linksThatLeadNowhere()
{
    QFETCH(QString, target);
    QFETCH(bool, told);
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    workspace.write(QStringLiteral("shut/B.MOV"), "video");
    const QByteArray shut = QFile::encodeName(workspace.path(QStringLiteral("shut")));
    QVERIFY(::chmod(shut.constData(), 0) == 0);
    QVERIFY(QFile::link(target, workspace.path(QStringLiteral("card/LINK.MOV"))));
    const MessageLog log;
    ImportRun import(workspace);
    {
        const PlainUser user;
        QVERIFY(import.run());
    }
    ::chmod(shut.constData(), 0700);
    const QString start =
        told ? QStringLiteral("0 1 1 Error: Part of the card could not be read. ") : QStringLiteral("0 1 1 ");
    QCOMPARE(import.finalReports(), QStringList{start + "Copied 1/1 videos and 0/0 photos."});
}

void TestMediaImport::linksToFoldersAreNotFollowed()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("outside/B.MOV"), "outside");
    workspace.write(QStringLiteral("card/DCIM/A.MOV"), "video");
    QVERIFY(
        QFile::link(workspace.path(QStringLiteral("outside")), workspace.path(QStringLiteral("card/LINK"))));
    QVERIFY(QFile::link(QStringLiteral(".."), workspace.path(QStringLiteral("card/DCIM/LOOP"))));

    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))),
             QStringList{QStringLiteral("DCIM/A_cam1.MOV")});
}

void TestMediaImport::whatIsNoFileIsNotListed()
{
    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    const QString pipe = card + QStringLiteral("/PIPE.MOV");
    QVERIFY(::mkfifo(QFile::encodeName(pipe).constData(), 0600) == 0);
    QVERIFY(QFile::link(card + QStringLiteral("/nothing"), card + QStringLiteral("/DANGLING.MOV")));
    QVERIFY(QFile::link(card + QStringLiteral("/SELF.MOV"), card + QStringLiteral("/SELF.MOV")));
    workspace.makeFolder(QStringLiteral("card/FOLDER.MOV"));

    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(import.reports(),
             QStringList{reportLine(0, 1, 1, QStringLiteral("Copied 0/0 videos and 0/0 photos."))});
}

void TestMediaImport::aLinkToWhatIsNoFileIsNotCopied()
{
    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    const QString pipe = workspace.path(QStringLiteral("pipe"));
    QVERIFY(::mkfifo(QFile::encodeName(pipe).constData(), 0600) == 0);
    QVERIFY(QFile::link(pipe, card + QStringLiteral("/PIPE.MOV")));
    QVERIFY(QFile::link(QStringLiteral("/dev/zero"), card + QStringLiteral("/ZERO.JPG")));

    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 0/0 videos and 0/0 photos.")});
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))), QStringList());
}

void TestMediaImport::reportsOfOneVideo()
{
    const Workspace workspace;
    const QString video = workspace.write(QStringLiteral("card/100%1 %2/A.MOV"), "video");
    ImportRun import(workspace, 3);
    QVERIFY(import.run());
    QCOMPARE(import.reports(),
             (QStringList{QStringLiteral("0 2 1 Copying ") + video,
                          QStringLiteral("0 1 2 Copied ") + video + QStringLiteral(" correctly."),
                          QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")}));
}

void TestMediaImport::reportsOfEveryKindOfFile()
{
    const Workspace workspace;
    const QString card = workspace.path(QStringLiteral("card"));
    for (const char *name :
         {"DCIM/A.MOV", "DCIM/B.JPG", "DCIM/B.DNG", "DCIM/note.txt", "DCIM/D.MOV", "E.JPG"})
        workspace.write(QStringLiteral("card/") + QLatin1String(name), QByteArray(name) + " content");
    QVERIFY(makeUnreadable(card + QStringLiteral("/DCIM/BAD.MOV")));
    QVERIFY(makeUnreadable(card + QStringLiteral("/DCIM/BAD.JPG")));

    ImportRun import(workspace);
    QVERIFY(import.run());

    const QStringList files = inCardOrder(card);
    QCOMPARE(files.size(), 8);
    QStringList expected;
    for (int i = 1; i <= files.size(); ++i) {
        const QString &file = files.at(i - 1);
        expected.append(QStringLiteral("0 9 %1 Copying ").arg(i) + file);
        if (!file.contains(QStringLiteral("BAD")) && !file.endsWith(QStringLiteral(".txt")))
            expected.append(QStringLiteral("0 8 %1 Copied ").arg(i + 1) + file +
                            QStringLiteral(" correctly."));
    }
    expected.append(QStringLiteral("0 1 1 Copied 2/3 videos and 3/4 photos."));
    QCOMPARE(import.reports(), expected);
}

void TestMediaImport::logOfOneCard()
{
    const Workspace workspace;
    const QString card = workspace.path(QStringLiteral("card"));
    workspace.write(QStringLiteral("card/DCIM/A %1.MOV"), "video");
    workspace.write(QStringLiteral("card/DCIM/B.JPG"), "photo");
    workspace.write(QStringLiteral("card/DCIM/note.txt"), "text");
    QVERIFY(makeUnreadable(card + QStringLiteral("/DCIM/BAD.MOV")));

    const MessageLog log;
    ImportRun import(workspace, 2);
    QVERIFY(import.run());

    QStringList expected;
    for (const QString &file : inCardOrder(card)) {
        if (file.endsWith(QStringLiteral("A %1.MOV")) || file.endsWith(QStringLiteral("B.JPG")))
            expected.append(QStringLiteral("info: Card 2: copied file ") + file + QLatin1Char('.'));
        else if (file.endsWith(QStringLiteral("BAD.MOV")))
            expected.append(QStringLiteral("warning: Card 2: could not copy %1 to %2: can't read the source: "
                                           "Input/output error")
                                .arg(file, workspace.path(QStringLiteral("dst/DCIM/BAD_cam2.MOV"))));
    }
    expected.append(QStringLiteral("info: Card 2: copied 1/2 videos and 1/1 photos."));
    QCOMPARE(MessageLog::lines(), expected);
}

void TestMediaImport::aRefusedRequest_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("reason");

    const QString choose = QStringLiteral("Please choose source");
    QTest::newRow("an empty slot") << QString() << QStringLiteral("dst") << choose;
    QTest::newRow("a card that isn't there") << QStringLiteral("nowhere") << QStringLiteral("dst") << choose;
    QTest::newRow("a file for a card") << QStringLiteral("card/A.MOV") << QStringLiteral("dst") << choose;
    QTest::newRow("the system's root")
        << QStringLiteral("/") << QStringLiteral("dst") << QStringLiteral("Invalid source");
    QTest::newRow("no destination") << QStringLiteral("card") << QString()
                                    << QStringLiteral("Please choose destination");
    QTest::newRow("the source is looked at first") << QString() << QString() << choose;
    QTest::newRow("the root is looked at before the destination")
        << QStringLiteral("/") << QString() << QStringLiteral("Invalid source");
}

void TestMediaImport::aRefusedRequest()
{
    QFETCH(QString, source);
    QFETCH(QString, target);
    QFETCH(QString, reason);
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    const QStringList before = filesBelow(workspace.path());
    const auto absolute = [&](const QString &path) {
        return path.isEmpty() || path.startsWith(QLatin1Char('/')) ? path : workspace.path(path);
    };

    const MessageLog log;
    ImportRun import({2, absolute(source), absolute(target), workspace.path(QStringLiteral("t.kava")), {}});
    QVERIFY(!import.run());
    QCOMPARE(import.reports(), QStringList{QStringLiteral("0 0 0 Error: ") + reason});
    QCOMPARE(MessageLog::lines(), QStringList{QStringLiteral("warning: Card 2: ") + reason});
    QCOMPARE(import.projectCalls(), QStringList());
    QCOMPARE(filesBelow(workspace.path()), before);
}

void TestMediaImport::anEmptyCard()
{
    const Workspace workspace;
    const MessageLog log;
    ImportRun import({1,
                      workspace.makeFolder(QStringLiteral("card")),
                      workspace.path(QStringLiteral("dst")),
                      workspace.path(QStringLiteral("none.kava")),
                      {}});
    QVERIFY(import.run());
    QCOMPARE(import.reports(), QStringList{QStringLiteral("0 1 1 Copied 0/0 videos and 0/0 photos.")});
    QCOMPARE(MessageLog::lines(),
             QStringList{QStringLiteral("info: Card 1: copied 0/0 videos and 0/0 photos.")});
}

void TestMediaImport::aDestinationFolderIsCreated()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    ImportRun import(
        {1, workspace.path(QStringLiteral("card")), workspace.path(QStringLiteral("new/deep/dst")), {}, {}});
    QVERIFY(import.run());
    QCOMPARE(workspace.read(QStringLiteral("new/deep/dst/A_cam1.MOV")), QByteArray("video"));
}

void TestMediaImport::relativeFoldersAreUnderstood()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/DCIM/A.MOV"), "video");
    QVERIFY(QDir::setCurrent(workspace.path()));
    ImportRun import({1, QStringLiteral("card/"), QStringLiteral("dst"), {}, {}});
    QVERIFY(import.run());
    QCOMPARE(workspace.read(QStringLiteral("dst/DCIM/A_cam1.MOV")), QByteArray("video"));
}

void TestMediaImport::aCopyOfAnotherSizeIsReportedAndStays()
{
    // The kernel gives such a file a size of a page, whatever it holds.
    const QString odd = QStringLiteral("/sys/kernel/uevent_seqnum");
    QFile kernelFile(odd);
    if (!kernelFile.open(QIODevice::ReadOnly) || kernelFile.size() <= kernelFile.readAll().size())
        QSKIP("The kernel offers no file here whose size differs from its content");

    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    for (const char *name : {"X.MOV", "Y.JPG"}) {
        const QString file = card + QLatin1Char('/') + QLatin1String(name);
        QVERIFY(QFile::link(odd, file));
        const MessageLog log;
        ImportRun import(workspace, 3, workspace.path(QStringLiteral("t.kava")));
        QVERIFY(import.run());

        const bool video = file.endsWith(QStringLiteral(".MOV"));
        const QString summary = video ? QStringLiteral("0/1 videos and 0/0 photos.")
                                      : QStringLiteral("0/0 videos and 0/1 photos.");
        QCOMPARE(import.reports(), (QStringList{QStringLiteral("0 2 1 Copying ") + file,
                                                QStringLiteral("0 1 2 Warning: File size for ") + file +
                                                    QStringLiteral(" doesn't match after copy."),
                                                QStringLiteral("0 1 1 Copied ") + summary}));
        QCOMPARE(
            MessageLog::lines(),
            (QStringList{QStringLiteral("warning: Card 3: File size for 3 doesn't match after copy."),
                         QStringLiteral("warning: Card 3: could not copy %1 to %2: the copy has another size")
                             .arg(file, workspace.path(video ? QStringLiteral("dst/X_cam3.MOV")
                                                             : QStringLiteral("dst/Y_cam3.JPG"))),
                         QStringLiteral("info: Card 3: copied ") + summary}));
        const QByteArray copy =
            workspace.read(video ? QStringLiteral("dst/X_cam3.MOV") : QStringLiteral("dst/Y_cam3.JPG"));
        QVERIFY(copy.trimmed().toULongLong() > 0);
        QCOMPARE(import.projectCalls().size(), 1);
        QVERIFY(QFile::remove(file));
    }
}

void TestMediaImport::previews_data()
{
    QTest::addColumn<QString>("cardFile");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QString>("preview");
    QTest::addColumn<QByteArray>("content");

    const QString clip = QStringLiteral("DCIM/A.MOV");
    const QString own = QStringLiteral("templates/rig.jpg");
    const QString folder = QStringLiteral("templates/any.jpg");
    QTest::newRow("the template's own picture") << clip << QString() << QStringList{own, folder}
                                                << QStringLiteral("DCIM/A_cam2.MOV.jpg") << own.toUtf8();
    QTest::newRow("the folder's picture otherwise")
        << clip << QString() << QStringList{folder} << QStringLiteral("DCIM/A_cam2.MOV.jpg")
        << folder.toUtf8();
    QTest::newRow("no picture at all") << clip << QString() << QStringList() << QString() << QByteArray();
    QTest::newRow("a project name") << clip << QStringLiteral("reef") << QStringList{own}
                                    << QStringLiteral("DCIM/A_reef_cam2.MOV.jpg") << own.toUtf8();
    QTest::newRow("a numbered copy") << clip << QStringLiteral("reef")
                                     << QStringList{own, QStringLiteral("dst/DCIM/A_reef_cam2.MOV")}
                                     << QStringLiteral("DCIM/A-1_cam2.MOV.jpg") << own.toUtf8();
    QTest::newRow("a photo has none")
        << QStringLiteral("DCIM/A.JPG") << QString() << QStringList{own, folder} << QString() << QByteArray();
    QTest::newRow("a raw photo has none")
        << QStringLiteral("DCIM/A.DNG") << QString() << QStringList{own, folder} << QString() << QByteArray();
    QTest::newRow(".MOV in the project's name")
        << clip << QStringLiteral("x.MOV") << QStringList{own}
        << QStringLiteral("DCIM/A_x.MOV.jpg_cam2.MOV.jpg") << own.toUtf8();
}

void TestMediaImport::previews()
{
    QFETCH(QString, cardFile);
    QFETCH(QString, project);
    QFETCH(QStringList, present);
    QFETCH(QString, preview);
    QFETCH(QByteArray, content);
    const Workspace workspace;
    workspace.write(QStringLiteral("card/") + cardFile, "recording");
    for (const QString &path : qAsConst(present))
        workspace.write(path, path.toUtf8());

    ImportRun import(workspace, 2, workspace.path(QStringLiteral("templates/rig.kava")), project);
    const QString folderPicture = workspace.path(QStringLiteral("templates/any.jpg"));
    import.fallbackPicture = QFileInfo::exists(folderPicture) ? folderPicture : QString();
    QVERIFY(import.run());

    const QStringList pictures =
        filesBelow(workspace.path(QStringLiteral("dst"))).filter(QStringLiteral(".jpg"));
    QCOMPARE(pictures, preview.isEmpty() ? QStringList() : QStringList{preview});
    QCOMPARE(unfinishedBelow(workspace.path(QStringLiteral("dst"))), QStringList());
    if (!preview.isEmpty())
        QCOMPARE(workspace.read(QStringLiteral("dst/") + preview), content);
    QCOMPARE(import.projectCalls().size(), 1);
    // What a preview comes to is no part of the summary.
    QVERIFY(import.finalReports().constFirst().startsWith(QStringLiteral("0 1 1 Copied ")));
}

void TestMediaImport::anExistingPreviewIsNotOverwritten()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    workspace.write(QStringLiteral("templates/rig.jpg"), "new");
    workspace.write(QStringLiteral("dst/A_cam2.MOV.jpg"), "old");
    ImportRun import(workspace, 2, workspace.path(QStringLiteral("templates/rig.kava")));
    QVERIFY(import.run());
    QCOMPARE(workspace.tree(QStringLiteral("dst")),
             (QMap<QString, QByteArray>{{QStringLiteral("A_cam2.MOV"), QByteArray("video")},
                                        {QStringLiteral("A_cam2.MOV.jpg"), QByteArray("old")}}));
}

void TestMediaImport::withoutATemplateNoProjectIsWritten()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    workspace.write(QStringLiteral("card/A.JPG"), "photo");
    ImportRun import(workspace, 2, {}, QStringLiteral("reef"));
    import.fallbackPicture = workspace.write(QStringLiteral("templates/any.jpg"), "picture");
    QVERIFY(import.run());
    QCOMPARE(import.projectCalls(), QStringList());
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))),
             (QStringList{QStringLiteral("A_reef_cam2.JPG"), QStringLiteral("A_reef_cam2.MOV")}));
}

void TestMediaImport::projectsAreWrittenForFilesThatCouldNotBeCopied()
{
    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    const QString templatePath = workspace.write(QStringLiteral("templates/rig.kava"), "<kava/>");
    workspace.write(QStringLiteral("templates/rig.jpg"), "picture");
    for (const char *name : {"A.MOV", "B.JPG", "C.DNG"})
        QVERIFY(makeUnreadable(card + QLatin1Char('/') + QLatin1String(name)));

    ImportRun import(workspace, 1, templatePath, QStringLiteral("reef"));
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 0/1 videos and 0/2 photos.")});
    QStringList calls = import.projectCalls();
    calls.sort();
    const QString take = QStringLiteral(" 1 [") + templatePath + QStringLiteral("] [") +
                         workspace.path(QStringLiteral("dst/"));
    QCOMPARE(calls, (QStringList{QStringLiteral("photo") + take + QStringLiteral("B.JPG] [reef]"),
                                 QStringLiteral("photo") + take + QStringLiteral("C.DNG] [reef]"),
                                 QStringLiteral("video") + take + QStringLiteral("A.MOV] [reef]")}));
    QCOMPARE(workspace.tree(QStringLiteral("dst")),
             (QMap<QString, QByteArray>{{QStringLiteral("A_reef_cam1.MOV.jpg"), QByteArray("picture")}}));
}

void TestMediaImport::projectsOfATakeUnderANumber()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), "video");
    QStringList calls;
    for (int i = 0; i < 3; ++i) {
        ImportRun import(workspace, 1, QStringLiteral("t.kava"));
        QVERIFY(import.run());
        calls.append(import.projectCalls());
    }
    const QString call = QStringLiteral("video 1 [t.kava] [") + workspace.path(QStringLiteral("dst/A"));
    QCOMPARE(calls, (QStringList{call + QStringLiteral(".MOV] []"), call + QStringLiteral("-1.MOV] []"),
                                 call + QStringLiteral("-2.MOV] []")}));
}

void TestMediaImport::theImportStopsBetweenFiles()
{
    const Workspace workspace;
    for (int i = 0; i < 5; ++i)
        workspace.write(QStringLiteral("card/%1.MOV").arg(i), "video");
    const MessageLog log;
    ImportRun run(workspace, 1, QStringLiteral("t.kava"));
    run.onReport = [&](const Progress &progress) {
        if (progress.text.startsWith(QStringLiteral("Copied")) && progress.value == 3)
            run.stop.raise();
    };
    QVERIFY(!run.run());
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))).size(), 2);
    QCOMPARE(run.finalReports(),
             QStringList{QStringLiteral("0 1 1 Error: Stopped after 2/2 videos and 0/0 photos.")});
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")),
             QStringList{QStringLiteral("Card 1: Stopped after 2/2 videos and 0/0 photos.")});
}

KELPORA_TEST_MAIN(TestMediaImport)
#include "tst_mediaimport.moc"
