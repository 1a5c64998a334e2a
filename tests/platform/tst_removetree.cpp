#include "platform/removetree.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Nests `levels` folders named `name` below `root`, each with a file; deeper than any path is long.
bool nest(const QString &root, int levels, const QByteArray &name, mode_t mode)
{
    int folder = ::open(QFile::encodeName(root).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; folder >= 0 && level < levels; ++level) {
        const int file = ::openat(folder, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0400);
        const bool made = file >= 0 && ::mkdirat(folder, name.constData(), 0700) == 0;
        ::close(file);
        const int next = made ? ::openat(folder, name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
        if (level > 0)
            static_cast<void>(::fchmod(folder, mode));
        ::close(folder);
        folder = next;
    }
    if (folder < 0)
        return false;
    ::close(folder);
    return true;
}

/// Removes what nest() made, level by level: no path is long enough for all of it at once.
bool unnest(const QString &root, const QByteArray &name)
{
    const QByteArray top = QFile::encodeName(root);
    const QByteArray below = top + '/' + name;
    const QByteArray aside = top + "/aside";
    while (::rename((below + '/' + name).constData(), aside.constData()) == 0) {
        ::unlink((below + "/file").constData());
        if (::rmdir(below.constData()) != 0 || ::rename(aside.constData(), below.constData()) != 0)
            return false;
    }
    return ::rmdir(below.constData()) == 0;
}

/// Lets the process have at most `count` files open while it lives.
class DescriptorLimit
{
    Q_DISABLE_COPY(DescriptorLimit)

public:
    explicit DescriptorLimit(rlim_t count)
    {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit now = {count, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &now);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_ = {};
};

} // namespace

class TestRemoveTree : public QObject
{
    Q_OBJECT

private slots:
    void deepTrees_data();
    void deepTrees();
};

void TestRemoveTree::deepTrees_data()
{
    QTest::addColumn<int>("levels");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("descriptors");
    QTest::addColumn<bool>("emptied");
    QTest::newRow("800 levels") << 800 << QByteArray("d") << 0755 << 1024 << true;
    QTest::newRow("800 read-only levels") << 800 << QByteArray("DCIM") << 0555 << 1024 << true;
    QTest::newRow("800 levels of long names") << 800 << QByteArray(200, 'n') << 0755 << 1024 << true;
    QTest::newRow("more levels than descriptors") << 800 << QByteArray("d") << 0755 << 100 << false;
    QTest::newRow("more levels than the stack is sure to hold")
        << 3000 << QByteArray("d") << 0755 << 4000 << false;
}

void TestRemoveTree::deepTrees()
{
    QFETCH(int, levels);
    QFETCH(QByteArray, name);
    QFETCH(int, mode);
    QFETCH(int, descriptors);
    QFETCH(bool, emptied);
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    // Where mounts are forbidden it only takes longer.
    const TestVolume volume(root, 256 * 1024);
    workspace.write(QStringLiteral("card/beside"), "text");
    const PlainUser user;
    QVERIFY(nest(root, levels, name, mode_t(mode)));
    {
        const DescriptorLimit limit{rlim_t(descriptors)};
        QCOMPARE(emptyFolder(root), emptied);
    }
    const QStringList left = QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(left, emptied ? QStringList() : QStringList(QString::fromLatin1(name)));
    QVERIFY(emptied || unnest(root, name));
}

KELPORA_TEST_MAIN(TestRemoveTree)
#include "tst_removetree.moc"
