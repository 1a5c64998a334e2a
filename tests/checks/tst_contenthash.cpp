#include "checks/contenthash.h"
#include "checks/filename.h"

#include <QtTest>

class ContentHashTest : public QObject
{
    Q_OBJECT

private slots:
    void hash_data();
    void hash();
    void nameIsShownOnOneLine_data();
    void nameIsShownOnOneLine();
};

void ContentHashTest::hash_data()
{
    QTest::addColumn<QByteArrayList>("pieces");
    QTest::addColumn<QByteArray>("hash");

    // As xxhsum -H128 gives them.
    QTest::newRow("nothing") << QByteArrayList{} << QByteArray("99aa06d3014798d86001c324468d497f");
    QTest::newRow("one piece") << QByteArrayList{"abc"} << QByteArray("06b05ab6733a618578af5f94892f3950");
    QTest::newRow("several pieces") << QByteArrayList{"a", "", "bc"}
                                    << QByteArray("06b05ab6733a618578af5f94892f3950");
}

void ContentHashTest::hash()
{
    QFETCH(QByteArrayList, pieces);
    ContentHash hash;
    for (const QByteArray &piece : pieces)
        hash.add(piece.constData(), static_cast<std::size_t>(piece.size()));
    QTEST(hash.result().toHex(), "hash");
}

void ContentHashTest::nameIsShownOnOneLine_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("text");

    QTest::newRow("plain") << QByteArray("a/b c.MOV") << QStringLiteral("a/b c.MOV");
    QTest::newRow("UTF-8") << QByteArray("T\xc3\xbcr") << QStringLiteral("T\u00fcr");
    QTest::newRow("not UTF-8") << QByteArray("T\xfcr") << QStringLiteral("T\\xfcr");
    QTest::newRow("line feed") << QByteArray("a\nb") << QStringLiteral("a\\x0ab");
}

void ContentHashTest::nameIsShownOnOneLine()
{
    QFETCH(QByteArray, name);
    QTEST(shown(name.toStdString()), "text");
}

QTEST_GUILESS_MAIN(ContentHashTest)
#include "tst_contenthash.moc"
