#include "app/paths.h"
#include "app/screen.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <array>

class TestScreen : public QObject
{
    Q_OBJECT

private slots:
    void fieldsAfterConstruction_data();
    void fieldsAfterConstruction();
    void startUp_data();
    void startUp();
};

void TestScreen::fieldsAfterConstruction_data()
{
    QTest::addColumn<bool>("factorGiven");
    QTest::addColumn<double>("settingsFactor");

    QTest::newRow("without a factor the settings' factor is 0") << false << 0.0;
    QTest::newRow("the settings' factor is kept") << true << 2.5;
    QTest::newRow("a factor of 1 is kept") << true << 1.0;
    QTest::newRow("a negative factor is kept") << true << -3.0;
}

void TestScreen::fieldsAfterConstruction()
{
    QFETCH(bool, factorGiven);
    QFETCH(double, settingsFactor);

    const AppScreen screen = factorGiven ? AppScreen(settingsFactor) : AppScreen();
    QCOMPARE(screen.scaleFactor, 1.0);
    QCOMPARE(screen.settingsScaleFactor, settingsFactor);
    QCOMPARE(screen.calculatedScaleFactor, 0.0);
    QCOMPARE(screen.physicalSizeHeight, 0.0);
    QCOMPARE(screen.physicalDpi, 0.0);
    QCOMPARE(screen.logicalDpi, 0.0);
    QCOMPARE(screen.sizeHeight, 0);
    QCOMPARE(screen.geometryHeight, 0);
    QCOMPARE(screen.availableSizeHeight, 0);
    QCOMPARE(screen.availableGeometryHeight, 0);
    QCOMPARE(screen.availableVirtualGeometryHeight, 0);
    QCOMPARE(screen.availableVirtualSizeHeight, 0);
    QCOMPARE(screen.virtualGeometryHeight, 0);
    QCOMPARE(screen.virtualSizeHeight, 0);
    QVERIFY(screen.applicationDirectory.isEmpty());
    QVERIFY(screen.executablePath.isEmpty());
}

void TestScreen::startUp_data()
{
    QTest::addColumn<int>("argc");
    QTest::addColumn<QByteArray>("executable");
    QTest::addColumn<QString>("executablePath");

    const QString path = QString::fromUtf8("/Ä pps/Kelpora 360");
    QTest::newRow("the executable's path is UTF-8") << 1 << path.toUtf8() << path;
    QTest::newRow("further arguments change nothing")
        << 3 << QByteArray("kelpora360") << QStringLiteral("kelpora360");
    QTest::newRow("no arguments leave the path empty") << 0 << QByteArray("kelpora360") << QString();
    QTest::newRow("a null argument leaves the path empty") << 1 << QByteArray() << QString();
}

void TestScreen::startUp()
{
    QFETCH(int, argc);
    QFETCH(QByteArray, executable);
    QFETCH(QString, executablePath);

    const Workspace workspace;
    std::array<char *, 2> argv = {executable.isNull() ? nullptr : executable.data(), nullptr};
    AppScreen screen(2.5);
    screen.scaleFactor = 7.0;
    QCOMPARE(screen.init(argc, argv.data()), 1.0);
    QCOMPARE(screen.scaleFactor, 1.0);
    QCOMPARE(screen.settingsScaleFactor, 2.5);
    QCOMPARE(screen.calculatedScaleFactor, 0.0);
    QCOMPARE(screen.executablePath, executablePath);
    QCOMPARE(screen.applicationDirectory, workspace.path(QStringLiteral("app")));
}

KELPORA_TEST_MAIN(TestScreen)
#include "tst_screen.moc"
