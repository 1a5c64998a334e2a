#include "stitching/stitchangles.h"
#include "tests/support/testmain.h"

#include <cstring>

namespace {

const QStringList angleKeys = {
    QStringLiteral("Camera1Yaw"), QStringLiteral("Camera1Pitch"), QStringLiteral("Camera1Roll"),
    QStringLiteral("Camera2Yaw"), QStringLiteral("Camera2Pitch"), QStringLiteral("Camera2Roll"),
    QStringLiteral("Camera3Yaw"), QStringLiteral("Camera3Pitch"), QStringLiteral("Camera3Roll"),
};
const QString switchKey = QStringLiteral("RadiansAngles");

/// A full settings map whose values are all different.
QVariantMap settingsWith(const QVariant &radians)
{
    QVariantMap settings = {
        {QStringLiteral("Serialnumber"), QStringLiteral("123456")},
        {QStringLiteral("OverwriteAngles"), QStringLiteral("1")},
    };
    int angle = 10;
    for (const QString &key : angleKeys)
        settings.insert(key, QString::number(angle++));
    for (int camera = 1; camera <= 3; ++camera) {
        settings.insert(QStringLiteral("Camera%1OffsetX").arg(camera), QString::number(-camera));
        settings.insert(QStringLiteral("Camera%1OffsetY").arg(camera), QString::number(100 * camera));
    }
    if (radians.isValid())
        settings.insert(switchKey, radians);
    return settings;
}

quint32 bits(float value)
{
    quint32 pattern = 0;
    std::memcpy(&pattern, &value, sizeof pattern);
    return pattern;
}

} // namespace

class TestStitchAngles : public QObject
{
    Q_OBJECT

private slots:
    void unconverted_data();
    void unconverted();
    void converted_data();
    void converted();
    void values_data();
    void values();
    void theFactor();
};

void TestStitchAngles::unconverted_data()
{
    QTest::addColumn<QVariantMap>("settings");

    QTest::newRow("the switch is absent") << settingsWith({});
    QTest::newRow("the switch is 0") << settingsWith(QStringLiteral("0"));
    QTest::newRow("the switch is false") << settingsWith(QStringLiteral("false"));
    QTest::newRow("the switch is empty") << settingsWith(QString());
    QTest::newRow("no settings at all") << QVariantMap();
}

void TestStitchAngles::unconverted()
{
    QFETCH(QVariantMap, settings);

    const QVariantMap result = stitchSettingsToRadians(settings);
    QCOMPARE(result, settings);
    for (const QVariant &value : result)
        QCOMPARE(value.userType(), int(QMetaType::QString));
}

void TestStitchAngles::converted_data()
{
    QTest::addColumn<QVariant>("radians");

    QTest::newRow("the switch is 1") << QVariant(QStringLiteral("1"));
    QTest::newRow("the switch is true") << QVariant(QStringLiteral("true"));
    QTest::newRow("the switch is a boolean") << QVariant(true);
}

void TestStitchAngles::converted()
{
    QFETCH(QVariant, radians);

    const QVariantMap settings = settingsWith(radians);
    const QVariantMap before = settings;
    const QVariantMap result = stitchSettingsToRadians(settings);
    QCOMPARE(settings, before);
    QCOMPARE(result.keys(), settings.keys());
    for (auto entry = result.cbegin(); entry != result.cend(); ++entry) {
        const QVariant original = settings.value(entry.key());
        if (angleKeys.contains(entry.key())) {
            QCOMPARE(entry.value().userType(), int(QMetaType::Float));
            QCOMPARE(bits(entry.value().toFloat()), bits(original.toFloat() * 0.017453292F));
        } else {
            QCOMPARE(entry.value(), original);
            QCOMPARE(entry.value().userType(), original.userType());
        }
    }
}

void TestStitchAngles::values_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<double>("expected");

    const double right = 1.5707963705062866;
    for (const QString &key : angleKeys)
        QTest::newRow(qPrintable(key + QStringLiteral(" of 90")))
            << key << QVariant(QStringLiteral("90")) << right;
    const QString yaw = angleKeys.first();
    QTest::newRow("-90") << yaw << QVariant(QStringLiteral("-90")) << -right;
    QTest::newRow("blanks around the number") << yaw << QVariant(QStringLiteral(" 90 ")) << right;
    QTest::newRow("an exponent") << yaw << QVariant(QStringLiteral("9e1")) << right;
    QTest::newRow("a number instead of text") << yaw << QVariant(90) << right;
    QTest::newRow("empty text is 0") << yaw << QVariant(QString()) << 0.0;
    QTest::newRow("text that is no number is 0") << yaw << QVariant(QStringLiteral("ninety")) << 0.0;
    QTest::newRow("a decimal comma is no number") << yaw << QVariant(QStringLiteral("90,5")) << 0.0;
    QTest::newRow("a missing angle is made, with 0") << yaw << QVariant() << 0.0;
}

void TestStitchAngles::values()
{
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(double, expected);

    QVariantMap settings = settingsWith(QStringLiteral("1"));
    settings.remove(key);
    if (value.isValid())
        settings.insert(key, value);
    const QVariant result = stitchSettingsToRadians(settings).value(key);
    QCOMPARE(result.userType(), int(QMetaType::Float));
    // To the last bit: QCOMPARE on doubles is lenient.
    QVERIFY2(double(result.toFloat()) >= expected && double(result.toFloat()) <= expected,
             qPrintable(QString::number(double(result.toFloat()), 'g', 17)));
}

void TestStitchAngles::theFactor()
{
    const QVariantMap settings = {{switchKey, QStringLiteral("1")}, {angleKeys.first(), QStringLiteral("1")}};
    QCOMPARE(bits(stitchSettingsToRadians(settings).value(angleKeys.first()).toFloat()), 0x3C8EFA35U);
    QCOMPARE(stitchSettingsToRadians(settings).size(), 10);
}

KELPORA_TEST_MAIN(TestStitchAngles)
#include "tst_stitchangles.moc"
