#include "check/checkcontroller.h"
#include "tests/support/medium.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QSignalSpy>
#include <QThread>

#include <memory>

namespace {

constexpr int timeoutMs = 60000;
const QString noCard;

} // namespace

/// Cards and destination lie on one volume with a disk.
class CheckControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void noCardComesFirst();
    void safe();
    void oneReportForEachCheck();
    void progressEndsAtAll();
    void aFullPathIsNeeded();
    void stoppedAtOnce();
    void stoppedWhileItReads();
    void closingStops();
    void reportIsSaved();
    void noRecordingIsReplacedByAReport();
    void reportThatCanNotBeSaved();

private:
    void begin(bool seal = false);
    [[nodiscard]] QString headline(int place) const;
    [[nodiscard]] QString path(const QString &name) const
    {
        return workspace_->path(QStringLiteral("disk/") + name);
    }

    std::unique_ptr<Workspace> workspace_;
    std::unique_ptr<Medium> medium_;
    std::unique_ptr<CheckController> controller_;
    std::unique_ptr<QSignalSpy> ended_;
};

void CheckControllerTest::init()
{
    workspace_ = std::make_unique<Workspace>();
    medium_ = std::make_unique<Medium>(*workspace_, QStringLiteral("ext4"), QStringLiteral("disk"));
    SKIP_UNLESS_MOUNTED(*medium_);
    for (const char *name : {"card/A.MOV", "dive/A.MOV"})
        workspace_->write(QStringLiteral("disk/") + QLatin1String(name), QByteArray(100000, 'a'));
    controller_ = std::make_unique<CheckController>();
    ended_ = std::make_unique<QSignalSpy>(controller_.get(), &CheckController::ended);
}

void CheckControllerTest::cleanup()
{
    ended_.reset();
    controller_.reset();
    medium_.reset();
    workspace_.reset();
}

void CheckControllerTest::begin(bool seal)
{
    controller_->check({path(QStringLiteral("card")), noCard, noCard},
                       {QStringLiteral("360_01"), noCard, noCard}, path(QStringLiteral("dive")), seal);
}

QString CheckControllerTest::headline(int place) const
{
    return ended_->at(place).first().toMap().value(QStringLiteral("headline")).toString();
}

void CheckControllerTest::noCardComesFirst()
{
    const QVariantList drives = controller_->getDrives();
    QCOMPARE(drives.first().toJsonObject(),
             (QJsonObject{{QStringLiteral("key"), QString()},
                          {QStringLiteral("value"), QStringLiteral("No card")}}));
    QVERIFY(drives.contains(
        QJsonObject{{QStringLiteral("key"), medium_->root()}, {QStringLiteral("value"), medium_->root()}}));
}

void CheckControllerTest::safe()
{
    begin(true);
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    QCOMPARE(headline(0), QString("Safe to erase: card 1"));
    QVERIFY(QFileInfo::exists(path(QStringLiteral("dive/ascmhl"))));
}

void CheckControllerTest::oneReportForEachCheck()
{
    const QSignalSpy begun(controller_.get(), &CheckController::begun);
    begin();
    begin();
    QCOMPARE(begun.size(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    QVERIFY(controller_->end(timeoutMs));
    QCoreApplication::processEvents();
    QCOMPARE(ended_->size(), 1);
    QFile::remove(path(QStringLiteral("dive/A.MOV")));
    begin();
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 2, timeoutMs);
    QCOMPARE(headline(1), QString("Do NOT erase card 1"));
}

void CheckControllerTest::progressEndsAtAll()
{
    const QSignalSpy progressed(controller_.get(), &CheckController::progressed);
    begin();
    QCOMPARE(progressed.size(), 1);
    QCOMPARE(progressed.first(), (QVariantList{1, 0.0, QStringLiteral("Looking for files ...")}));
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    const int count = progressed.size();
    QTest::qWait(300);
    QCOMPARE(progressed.size(), count);
}

void CheckControllerTest::aFullPathIsNeeded()
{
    // Where the program is would count.
    QVERIFY(QDir::setCurrent(medium_->root()));
    controller_->check({path(QStringLiteral("card")), noCard, noCard},
                       {QStringLiteral("360_01"), noCard, noCard}, QStringLiteral("dive"), false);
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    QCOMPARE(headline(0), QString("Nothing was checked"));
}

void CheckControllerTest::stoppedAtOnce()
{
    begin();
    controller_->stop();
    QCOMPARE(ended_->size(), 1);
    QCOMPARE(headline(0), QString("Stopped. Nothing is proven."));
    // What its thread finds is not told.
    QVERIFY(controller_->end(timeoutMs));
    QCoreApplication::processEvents();
    QCOMPARE(ended_->size(), 1);
    begin();
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 2, timeoutMs);
    QCOMPARE(headline(1), QString("Safe to erase: card 1"));
}

void CheckControllerTest::stoppedWhileItReads()
{
    const QSignalSpy progressed(controller_.get(), &CheckController::progressed);
    // Holes, which are read as zeros.
    for (const char *name : {"card/B.MOV", "dive/B.MOV"}) {
        QFile file(path(QString::fromLatin1(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(qint64{100} << 30));
    }
    begin();
    const auto isReading = [&] {
        return progressed.last().at(2).toString().endsWith(QStringLiteral(" left"));
    };
    QTRY_VERIFY_WITH_TIMEOUT(isReading(), timeoutMs);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(controller_->end(timeoutMs));
    QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(headline(0), QString("Stopped. Nothing is proven."));
}

void CheckControllerTest::closingStops()
{
    begin();
    controller_.reset();
    QCOMPARE(ended_->size(), 1);
    QCOMPARE(headline(0), QString("Stopped. Nothing is proven."));
}

void CheckControllerTest::reportIsSaved()
{
    begin();
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    const QString report = workspace_->path(QStringLiteral("report.txt"));
    QCOMPARE(controller_->saveReport(report), QStringLiteral("Saved as %1.").arg(report));
    QVERIFY(workspace_->read(QStringLiteral("report.txt")).startsWith("Safe to erase: card 1\nCopies in "));
}

void CheckControllerTest::noRecordingIsReplacedByAReport()
{
    begin();
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    const QString recording = path(QStringLiteral("dive/A.MOV"));
    const QString report = recording + QStringLiteral(".txt");
    QCOMPARE(controller_->saveReport(recording), QStringLiteral("Saved as %1.").arg(report));
    QCOMPARE(controller_->saveReport(recording),
             QStringLiteral("Not saved: %1 is there already.").arg(report));
    QCOMPARE(QFileInfo(recording).size(), 100000);
}

void CheckControllerTest::reportThatCanNotBeSaved()
{
    begin();
    QTRY_COMPARE_WITH_TIMEOUT(ended_->size(), 1, timeoutMs);
    const QString said = controller_->saveReport(path(QStringLiteral("no such folder/report.txt")));
    QVERIFY2(said.startsWith(QStringLiteral("Not saved: ")), qPrintable(said));
}

KELPORA_TEST_MAIN(CheckControllerTest)
#include "tst_checkcontroller.moc"
