#include "checks/filename.h"
#include "checks/verification.h"
#include "tests/support/medium.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using Files = QMap<QString, QByteArray>;
using State = CardVerdict::State;
Q_DECLARE_METATYPE(CardVerdict::State)

namespace {

const QString clip = QStringLiteral("DCIM/100MEDIA/CLIP0001.MOV");

QByteArray content(char seed, int size = 70000)
{
    QByteArray bytes(size, seed);
    for (int i = 0; i < size; i += 7)
        bytes[i] = static_cast<char>(i / 7 * seed);
    return bytes;
}

QStringList linesOf(const std::vector<TreeProblem> &problems)
{
    QStringList lines;
    for (const TreeProblem &problem : problems)
        lines.append(shown(std::filesystem::u8path(problem.path)) + QStringLiteral(": ") + problem.reason);
    lines.sort();
    return lines;
}

} // namespace

/// Card 2 and the destination lie on one volume with a disk.
class VerificationTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void verdict_data();
    void verdict();
    void text_data();
    void text();
    void whatIsNoFileNeedsNoCopy();
    void anotherNameOfTheSameFileIsNoCopy();
    void cardMountedBelowTheDestinationIsNoCopy_data();
    void cardMountedBelowTheDestinationIsNoCopy();
    void namesThatAreNotUtf8();
    void unreadable_data();
    void unreadable();
    void manyFiles();
    void threeCards();
    void volumeWithoutADiskProvesNothing_data();
    void volumeWithoutADiskProvesNothing();
    void refusal_data();
    void refusal();
    void stop();

private:
    void fill(const QString &folder, const Files &files) const;
    [[nodiscard]] VerifyRequest request() const;
    [[nodiscard]] CardVerdict verify() const;

    std::unique_ptr<Workspace> workspace_;
    std::unique_ptr<Medium> medium_;
};

void VerificationTest::init()
{
    workspace_ = std::make_unique<Workspace>();
    medium_ = std::make_unique<Medium>(*workspace_, QStringLiteral("ext4"), QStringLiteral("disk"));
    SKIP_UNLESS_MOUNTED(*medium_);
    workspace_->makeFolder(QStringLiteral("disk/card"));
    workspace_->makeFolder(QStringLiteral("disk/dive"));
}

void VerificationTest::cleanup()
{
    medium_.reset();
    workspace_.reset();
}

void VerificationTest::fill(const QString &folder, const Files &files) const
{
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        workspace_->write(QStringLiteral("disk/%1/%2").arg(folder, file.key()), file.value());
}

VerifyRequest VerificationTest::request() const
{
    return {{{}, pathOf(workspace_->path(QStringLiteral("disk/card")))},
            pathOf(workspace_->path(QStringLiteral("disk/dive"))),
            {{QStringLiteral("AutoRun.inf"), {"label 1", "label 2"}}, {QStringLiteral("MISC/cfg"), {"cfg"}}}};
}

CardVerdict VerificationTest::verify() const
{
    const StopFlag stop;
    Verification verification(request(), stop);
    const std::vector<CardVerdict> verdicts = verification.run();
    if (verdicts.size() != 1)
        qFatal("There is one card");
    return verdicts.front();
}

void VerificationTest::verdict_data()
{
    QTest::addColumn<Files>("card");
    QTest::addColumn<Files>("destination");
    QTest::addColumn<State>("state");
    QTest::addColumn<QStringList>("findings");

    const QByteArray a = content(3);
    const QByteArray b = content(5);
    const auto none = [](const QString &path) {
        return QStringList(path + QStringLiteral(": no copy of it is there"));
    };
    const auto row = [](const char *name) -> QTestData & { return QTest::newRow(name); };

    // Copies that are found.
    row("as imported") << Files{{clip, a}} << Files{{"DCIM/100MEDIA/CLIP0001_cam2.MOV", a}} << State::Safe
                       << QStringList();
    row("with a project name") << Files{{clip, a}} << Files{{"DCIM/100MEDIA/CLIP0001_reef_cam2.MOV", a}}
                               << State::Safe << QStringList();
    row("with a clash number") << Files{{clip, a}}
                               << Files{{"DCIM/100MEDIA/CLIP0001_cam2.MOV", b},
                                        {"DCIM/100MEDIA/CLIP0001-1_cam2.MOV", a}}
                               << State::Safe << QStringList();
    row("copied as it is") << Files{{clip, a}} << Files{{clip, a}} << State::Safe << QStringList();
    row("renamed, and moved") << Files{{clip, a}} << Files{{"best of", a}, {"best", b}} << State::Safe
                              << QStringList();
    row("hidden, and copied") << Files{{".hidden", a}} << Files{{".hidden", a}} << State::Safe
                              << QStringList();
    row("one copy for two equal files")
        << Files{{clip, a}, {"B.MOV", a}} << Files{{"x", a}} << State::Safe << QStringList();
    row("empty, and copied") << Files{{clip, ""}} << Files{{"DCIM/100MEDIA/CLIP0001_cam2.MOV", ""}}
                             << State::Safe << QStringList();
    row("names swapped") << Files{{"A.JPG", a}, {"B.JPG", b}} << Files{{"A_cam2.JPG", b}, {"B_cam2.JPG", a}}
                         << State::Safe << QStringList();
    row("names with characters of all kinds")
        << Files{{"A%1 \u00e4*.MOV", a}} << Files{{"A%1 \u00e4*_cam2.MOV", a}} << State::Safe
        << QStringList();

    // Files that would be lost.
    row("missing") << Files{{clip, a}} << Files{} << State::Finding << none(clip);
    row("one of two missing") << Files{{clip, a}, {"B.MOV", b}} << Files{{"x", a}} << State::Finding
                              << none("B.MOV");
    row("lower case") << Files{{"clip.mov", a}} << Files{} << State::Finding << none("clip.mov");
    row("hidden") << Files{{".hidden/.x", a}} << Files{} << State::Finding << none(".hidden/.x");
    row("empty") << Files{{clip, ""}} << Files{{"x", a}} << State::Finding << none(clip);
    row("of the same size only") << Files{{clip, a}} << Files{{"x", b}, {"y", b}} << State::Finding
                                 << none(clip);
    row("different") << Files{{clip, a}} << Files{{"DCIM/100MEDIA/CLIP0001_cam2.MOV", b}} << State::Finding
                     << QStringList(clip + ": its copy DCIM/100MEDIA/CLIP0001_cam2.MOV differs from it");
    row("short") << Files{{clip, a}} << Files{{"DCIM/100MEDIA/CLIP0001_cam2.MOV", a.left(60000)}}
                 << State::Finding
                 << QStringList(
                        clip + ": its copy DCIM/100MEDIA/CLIP0001_cam2.MOV has 60000 bytes instead of 70000");
    row("under a temporary name") << Files{{clip, a}} << Files{{".kelpora360-0123456789abcdef.part", a}}
                                  << State::Finding << none(clip);
    row("in the trash") << Files{{clip, a}}
                        << Files{{".Trash-1000/files/x", a},
                                 {".Trashes/x", a},
                                 {".local/share/Trash/files/x", a},
                                 {"$Recycle.Bin/x", a},

                                 {"$RECYCLE.BIN/x", a}}
                        << State::Finding << none(clip);

    // What the preparation writes.
    row("files of the preparation") << Files{{clip, a}, {"MISC/cfg", "cfg"}, {"AutoRun.inf", "label 2"}}
                                    << Files{{"x", a}} << State::Safe << QStringList();
    row("a file of the preparation with a tail") << Files{{clip, a}, {"AutoRun.inf", "label 2 and more"}}
                                                 << Files{{"x", a}} << State::Finding << none("AutoRun.inf");
    row("a file of the preparation with other content")
        << Files{{"MISC/cfg", "CFG"}} << Files{} << State::Finding << none("MISC/cfg");
    row("a name of the preparation elsewhere")
        << Files{{"DCIM/AutoRun.inf", "label 2"}} << Files{} << State::Finding << none("DCIM/AutoRun.inf");

    row("nothing") << Files{} << Files{{"x", a}} << State::Empty << QStringList();
    row("prepared, nothing recorded")
        << Files{{"AutoRun.inf", "label 1"}} << Files{} << State::Empty << QStringList();
}

void VerificationTest::verdict()
{
    QFETCH(Files, card);
    QFETCH(Files, destination);
    fill(QStringLiteral("card"), card);
    fill(QStringLiteral("dive"), destination);
    const CardVerdict found = verify();
    QTEST(linesOf(found.findings), "findings");
    QTEST(found.state, "state");
    QCOMPARE(linesOf(found.notChecked), QStringList());
    QCOMPARE(found.card, 2);
    QCOMPARE(found.files + static_cast<int>(found.preparation.size()), card.size());
    QCOMPARE(static_cast<int>(found.verified.size() + found.findings.size()), found.files);
    for (const VerifiedFile &file : found.verified)
        QCOMPARE(destination.value(QString::fromStdString(file.copy)),
                 card.value(QString::fromStdString(file.path)));
}

void VerificationTest::text_data()
{
    QTest::addColumn<State>("state");
    QTest::addColumn<QString>("text");

    QTest::newRow("safe") << State::Safe
                          << "Card 2: 1 of 2 files are in /dive, both read from disk. Safe to erase.";
    QTest::newRow("finding") << State::Finding
                             << "Card 2: do NOT erase: 1 of 2 files are in /dive, both read from disk.";
    QTest::newRow("not checked")
        << State::NotChecked
        << "Card 2: not checked, do NOT erase: 1 of 2 files are in /dive, both read from disk.";
    QTest::newRow("empty") << State::Empty << "Card 2: there is nothing on it.";
}

void VerificationTest::text()
{
    CardVerdict verdict;
    verdict.card = 2;
    verdict.files = 2;
    verdict.verified.resize(1);
    QFETCH(State, state);
    verdict.state = state;
    QTEST(verdict.text(QStringLiteral("/dive")), "text");
}

void VerificationTest::whatIsNoFileNeedsNoCopy()
{
    fill(QStringLiteral("card"), {{clip, content(3)}});
    fill(QStringLiteral("dive"), {{QStringLiteral("x"), content(3)}});
    const QString card = workspace_->path(QStringLiteral("disk/card/"));
    QVERIFY(QFile::link(workspace_->write(QStringLiteral("outside"), "x"), card + QStringLiteral("link")));
    QVERIFY(QFile::link(QStringLiteral("/"), card + QStringLiteral("root")));
    QVERIFY(QFile::link(QStringLiteral("nowhere"), card + QStringLiteral("dangling")));
    QVERIFY(::mkfifo(QFile::encodeName(card + QStringLiteral("pipe")).constData(), 0600) == 0);
    const CardVerdict found = verify();
    QCOMPARE(found.state, State::Safe);
    QCOMPARE(found.others.size(), std::size_t{4});
}

void VerificationTest::anotherNameOfTheSameFileIsNoCopy()
{
    fill(QStringLiteral("card"), {{QStringLiteral("CLIP0001.MOV"), content(3)}});
    QVERIFY(
        ::link(QFile::encodeName(workspace_->path(QStringLiteral("disk/card/CLIP0001.MOV"))).constData(),
               QFile::encodeName(workspace_->path(QStringLiteral("disk/dive/CLIP0001.MOV"))).constData()) ==
        0);
    const CardVerdict found = verify();
    QCOMPARE(found.state, State::Finding);
    QCOMPARE(linesOf(found.findings),
             QStringList("CLIP0001.MOV: its copy CLIP0001.MOV is a file of a card by another name"));
    // Nor is a link to it.
    QVERIFY(QFile::remove(workspace_->path(QStringLiteral("disk/dive/CLIP0001.MOV"))));
    QVERIFY(QFile::link(workspace_->path(QStringLiteral("disk/card/CLIP0001.MOV")),
                        workspace_->path(QStringLiteral("disk/dive/CLIP0001.MOV"))));
    QCOMPARE(verify().state, State::Finding);
}

void VerificationTest::cardMountedBelowTheDestinationIsNoCopy_data()
{
    QTest::addColumn<QString>("mounted");

    QTest::newRow("card") << QStringLiteral("disk/card");
    QTest::newRow("folder of the card") << QStringLiteral("disk/card/DCIM");
}

void VerificationTest::cardMountedBelowTheDestinationIsNoCopy()
{
    // The second file would be the copy of the first.
    fill(QStringLiteral("card"), {{clip, content(3)}, {QStringLiteral("DCIM/B.MOV"), content(3)}});
    const QByteArray place = QFile::encodeName(workspace_->makeFolder(QStringLiteral("disk/dive/bound")));
    QFETCH(QString, mounted);
    QVERIFY(::mount(QFile::encodeName(workspace_->path(mounted)).constData(), place.constData(), nullptr,
                    MS_BIND, nullptr) == 0);
    const CardVerdict found = verify();
    ::umount(place.constData());
    QCOMPARE(found.state, State::Finding);
    QCOMPARE(found.findings.size(), std::size_t{2});
}

void VerificationTest::namesThatAreNotUtf8()
{
    const std::filesystem::path card = pathOf(workspace_->path(QStringLiteral("disk/card")));
    const std::filesystem::path dive = pathOf(workspace_->path(QStringLiteral("disk/dive")));
    std::filesystem::create_directory(card / "T\xfcr");
    std::ofstream(card / "T\xfcr" / "A\xfc.MOV") << "recording";
    CardVerdict found = verify();
    QCOMPARE(found.state, State::Finding);
    QCOMPARE(linesOf(found.findings), QStringList("T\\xfcr/A\\xfc.MOV: no copy of it is there"));
    std::ofstream(dive / "A\xfc.MOV") << "recording";
    QCOMPARE(verify().state, State::Safe);
}

void VerificationTest::unreadable_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("finding");

    QTest::newRow("file of the card") << "card/" + clip << clip + ": can't be read: Permission denied";
    QTest::newRow("folder of the card") << "card/DCIM/100MEDIA"
                                        << "DCIM/100MEDIA/: can't be listed: Permission denied";
    QTest::newRow("copy")
        << "dive/DCIM/100MEDIA/CLIP0001_cam2.MOV"
        << clip + ": its copy DCIM/100MEDIA/CLIP0001_cam2.MOV can't be read: Permission denied";
    QTest::newRow("folder of the copy") << "dive/DCIM" << clip + ": no copy of it is there";
}

void VerificationTest::unreadable()
{
    QFETCH(QString, path);
    fill(QStringLiteral("card"), {{clip, content(3)}});
    fill(QStringLiteral("dive"), {{QStringLiteral("DCIM/100MEDIA/CLIP0001_cam2.MOV"), content(3)}});
    QCOMPARE(verify().state, State::Safe);
    QVERIFY(QFile::setPermissions(workspace_->path(QStringLiteral("disk/") + path), {}));
    // Its threads are as plain as the one that starts them.
    const PlainUser user;
    const CardVerdict found = verify();
    QCOMPARE(found.state, State::Finding);
    QTEST(linesOf(found.findings).join(QLatin1Char('\n')), "finding");
}

void VerificationTest::manyFiles()
{
    constexpr int count = 3000;
    Files card;
    Files dive;
    for (int i = 0; i < count; ++i) {
        // All of one size.
        const QByteArray photo = QByteArray::number(i).rightJustified(2000, '.');
        card.insert(QStringLiteral("DCIM/IMG%1.JPG").arg(i), photo);
        dive.insert(QStringLiteral("%1/renamed %2").arg(i % 10).arg(i * 7),
                    i == count / 2 ? QByteArray(2000, 'x') : photo);
    }
    fill(QStringLiteral("card"), card);
    fill(QStringLiteral("dive"), dive);
    const CardVerdict found = verify();
    QCOMPARE(linesOf(found.findings), QStringList("DCIM/IMG1500.JPG: no copy of it is there"));
    QCOMPARE(static_cast<int>(found.verified.size()), count - 1);
}

void VerificationTest::threeCards()
{
    VerifyRequest three = request();
    three.cards.clear();
    for (int card = 1; card <= 3; ++card) {
        const QString folder = QStringLiteral("card %1").arg(card);
        fill(folder, {{clip, content(static_cast<char>(card))}});
        // That of card 2 is another one.
        fill(QStringLiteral("dive"), {{QStringLiteral("DCIM/100MEDIA/CLIP0001_cam%1.MOV").arg(card),
                                       content(static_cast<char>(card == 2 ? 9 : card))}});
        three.cards.push_back(pathOf(workspace_->path(QStringLiteral("disk/") + folder)));
    }
    const StopFlag stop;
    Verification verification(three, stop);
    QCOMPARE(verification.refusal(), QString());
    const std::vector<CardVerdict> found = verification.run();
    QCOMPARE(found.size(), std::size_t{3});
    QCOMPARE(found.at(0).state, State::Safe);
    QCOMPARE(found.at(1).state, State::Finding);
    QCOMPARE(found.at(2).state, State::Safe);
    QCOMPARE(verification.bytesRead(), verification.bytesTotal());
    QCOMPARE(verification.bytesRead(), qint64{6 * 70000});
    for (int card = 1; card <= 3; ++card) {
        QCOMPARE(verification.bytesTotal(card), qint64{2 * 70000});
        QCOMPARE(verification.bytesRead(card), qint64{2 * 70000});
    }
}

void VerificationTest::volumeWithoutADiskProvesNothing_data()
{
    QTest::addColumn<QString>("inMemory");

    QTest::newRow("card") << QStringLiteral("disk/card");
    QTest::newRow("destination") << QStringLiteral("disk/dive");
}

void VerificationTest::volumeWithoutADiskProvesNothing()
{
    QFETCH(QString, inMemory);
    const TestVolume memory(workspace_->path(inMemory), 1024);
    SKIP_UNLESS_MOUNTED(memory);
    fill(QStringLiteral("card"), {{clip, content(3)}});
    fill(QStringLiteral("dive"), {{QStringLiteral("x"), content(3)}});
    CardVerdict found = verify();
    QCOMPARE(found.state, State::NotChecked);
    QCOMPARE(found.notChecked.size(), std::size_t{1});
    QCOMPARE(linesOf(found.findings), QStringList());
    // What differs is a finding wherever it was read from.
    fill(QStringLiteral("dive"), {{QStringLiteral("x"), content(5)}});
    found = verify();
    QCOMPARE(found.state, State::Finding);
}

void VerificationTest::refusal_data()
{
    QTest::addColumn<QStringList>("cards");
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QString>("refusal");

    const auto same = [](const char *a, const char *b) {
        return QStringLiteral("%1/") + QLatin1String(a) + QStringLiteral(" and %1/") + QLatin1String(b) +
               QStringLiteral(" are the same folder, or one lies in the other.");
    };
    QTest::newRow("fine") << QStringList{"card", "", "dive"} << "other" << QString();
    QTest::newRow("no card") << QStringList{"", ""} << "dive"
                             << "no card is named.";
    QTest::newRow("card is missing") << QStringList{"nothing"} << "dive"
                                     << "%1/nothing is no folder.";
    QTest::newRow("card is a file") << QStringList{"file"} << "dive"
                                    << "%1/file is no folder.";
    QTest::newRow("destination is missing") << QStringList{"card"} << "nothing"
                                            << "%1/nothing is no folder.";
    QTest::newRow("destination is a file") << QStringList{"card"} << "file"
                                           << "%1/file is no folder.";
    QTest::newRow("card twice") << QStringList{"card", "", "card"} << "dive" << same("card", "card");
    QTest::newRow("card by a link") << QStringList{"card", "link"} << "dive" << same("link", "card");
    QTest::newRow("card mounted elsewhere too")
        << QStringList{"card", "bound"} << "dive" << same("bound", "card");
    QTest::newRow("the same") << QStringList{"card"} << "card" << same("card", "card");
    QTest::newRow("destination in the card")
        << QStringList{"card"} << "card/dive" << same("card", "card/dive");
    QTest::newRow("destination in the card, by a link")
        << QStringList{"card"} << "link/dive" << same("card", "link/dive");
    QTest::newRow("destination in the card, by a link into it")
        << QStringList{"card"} << "inner" << same("card", "inner");
    QTest::newRow("card in the destination")
        << QStringList{"card/dive"} << "card" << same("card/dive", "card");
    QTest::newRow("folder of a card, destination beside it")
        << QStringList{"card/DCIM/100MEDIA"} << "card/dive"
        << "%1/card/dive lies on the card that "
           "%1/card/DCIM/100MEDIA belongs to.";
    QTest::newRow("folder of a card") << QStringList{"card/DCIM/100MEDIA"} << "dive"
                                      << "%1/card/DCIM/100MEDIA is only a part of the card %1/card, "
                                         "which erasing empties: name that.";
    QTest::newRow("recordings of a card") << QStringList{"card/DCIM"} << "dive"
                                          << "%1/card/DCIM is only a part of the card %1/card, "
                                             "which erasing empties: name that.";
    QTest::newRow("destination in the trash") << QStringList{"card"} << ".Trash-1000/files"
                                              << "%1/.Trash-1000/files lies in the trash.";
    QTest::newRow("card in a card") << QStringList{"card", "card/dive"} << "other"
                                    << same("card/dive", "card");
}

void VerificationTest::refusal()
{
    QFETCH(QStringList, cards);
    QFETCH(QString, destination);
    QFETCH(QString, refusal);
    for (const char *folder :
         {"card/dive", "card/DCIM/100MEDIA", "other", "dive", "bound", ".Trash-1000/files"})
        workspace_->makeFolder(QStringLiteral("disk/") + QLatin1String(folder));
    workspace_->write(QStringLiteral("disk/file"), "x");
    const QString disk = workspace_->path(QStringLiteral("disk"));
    QVERIFY(QFile::link(disk + QStringLiteral("/card"), disk + QStringLiteral("/link")));
    QVERIFY(QFile::link(disk + QStringLiteral("/card/dive"), disk + QStringLiteral("/inner")));
    QVERIFY(::mount(QFile::encodeName(disk + QStringLiteral("/card")).constData(),
                    QFile::encodeName(disk + QStringLiteral("/bound")).constData(), nullptr, MS_BIND,
                    nullptr) == 0);
    VerifyRequest asked;
    for (const QString &card : cards)
        asked.cards.push_back(card.isEmpty() ? std::filesystem::path()
                                             : pathOf(disk + QLatin1Char('/') + card));
    asked.destination = pathOf(disk + QLatin1Char('/') + destination);
    const StopFlag stop;
    const QString found = Verification(asked, stop).refusal();
    ::umount(QFile::encodeName(disk + QStringLiteral("/bound")).constData());
    QCOMPARE(found, refusal.replace(QStringLiteral("%1"), disk));
}

void VerificationTest::stop()
{
    fill(QStringLiteral("card"), {{clip, content(3)}});
    StopFlag stop;
    stop.raise();
    QVERIFY(Verification(request(), stop).run().empty());
}

KELPORA_TEST_MAIN(VerificationTest)
#include "tst_verification.moc"
