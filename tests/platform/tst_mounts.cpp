#include "platform/mountpoints.h"
#include "platform/volumewatch.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QStorageInfo>

#include <functional>

using Event = std::function<bool(const Workspace &)>;
Q_DECLARE_METATYPE(Event)

class TestMounts : public QObject
{
    Q_OBJECT

private slots:
    void theSameVolumesInTheSameOrder();
    void namesWithBlanks();
    void anotherVolume_data();
    void anotherVolume();
};

void TestMounts::theSameVolumesInTheSameOrder()
{
    // The toolkit also leaves out what has no size.
    QStringList expected;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes())
        expected.append(volume.rootPath());
    QStringList found;
    for (const MountPoint &mount : mountPoints()) {
        if (QStorageInfo(mount.path).bytesTotal() > 0)
            found.append(mount.path);
    }
    QCOMPARE(found, expected);
    if (found.isEmpty())
        QSKIP("No volume is mounted here, as in a chroot");
}

void TestMounts::namesWithBlanks()
{
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("a card\\ of\tmine\n\\040"));
    const TestVolume first(path, 64);
    const TestVolume second(path, 64);
    SKIP_UNLESS_MOUNTED(first);
    SKIP_UNLESS_MOUNTED(second);
    QStringList ids;
    for (const MountPoint &mount : mountPoints()) {
        if (mount.path == path)
            ids.append(mount.id);
    }
    QCOMPARE(ids.size(), 2);
    QVERIFY(ids.first() != ids.last());
}

void TestMounts::anotherVolume_data()
{
    QTest::addColumn<Event>("event");
    QTest::addColumn<bool>("another");
    QTest::newRow("nothing happened") << Event([](const Workspace &) { return true; }) << false;
    QTest::newRow("a file was written")
        << Event([](const Workspace &space) { return !space.write(QStringLiteral("card/a"), "x").isEmpty(); })
        << false;
    QTest::newRow("another folder of the same name") << Event([](const Workspace &space) {
        return QDir().rename(space.path(QStringLiteral("card")), space.path(QStringLiteral("away"))) &&
               QDir().mkpath(space.path(QStringLiteral("card")));
    }) << true;
    QTest::newRow("no folder") << Event([](const Workspace &space) {
        return QDir().rmdir(space.path(QStringLiteral("card")));
    }) << true;
    QTest::newRow("a volume came and went") << Event([](const Workspace &space) {
        return TestVolume(space.path(QStringLiteral("other")), 64).isMounted();
    }) << true;
}

void TestMounts::anotherVolume()
{
    QFETCH(Event, event);
    QFETCH(bool, another);
    const Workspace workspace;
    {
        const TestVolume probe(workspace.path(QStringLiteral("probe")), 64);
        SKIP_UNLESS_MOUNTED(probe);
    }
    const auto mayBeAnother = watchForAnotherVolume(workspace.makeFolder(QStringLiteral("card")));
    QVERIFY(!mayBeAnother());
    QVERIFY(event(workspace));
    QCOMPARE(mayBeAnother(), another);
    // For good: the system tells of a change once.
    QCOMPARE(mayBeAnother(), another);
}

KELPORA_TEST_MAIN(TestMounts)
#include "tst_mounts.moc"
