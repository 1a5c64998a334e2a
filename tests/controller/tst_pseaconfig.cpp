#include "controller/pseaconfig.h"
#include "tests/support/testmain.h"

#include <cmath>
#include <ctime>
#include <limits>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
const double no_number = std::nan("");

/// The process's time zone until it is destroyed; `zone` in the C library's own notation, so that no zone
/// file is needed.
class TimeZone
{
    Q_DISABLE_COPY(TimeZone)

public:
    explicit TimeZone(const QByteArray &zone)
        : before_(qgetenv("TZ"))
        , wasSet_(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
        ::tzset();
    }

    ~TimeZone()
    {
        if (wasSet_)
            qputenv("TZ", before_);
        else
            qunsetenv("TZ");
        ::tzset();
    }

private:
    QByteArray before_;
    bool wasSet_;
};

} // namespace

class TestPseaConfig : public QObject
{
    Q_OBJECT

private slots:
    void fromUser_data();
    void fromUser();
    void clock_data();
    void clock();
    void noDateSendsNow_data();
    void noDateSendsNow();
    void battery_data();
    void battery();
};

void TestPseaConfig::fromUser_data()
{
    QTest::addColumn<double>("logging");
    QTest::addColumn<double>("timelapse");
    QTest::addColumn<double>("timeout");
    QTest::addColumn<int>("loggingMs");
    QTest::addColumn<int>("timelapseMs");
    QTest::addColumn<int>("timeoutSent");

    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    QTest::newRow("whole seconds") << 1.0 << 2.0 << 30.0 << 1000 << 2000 << 30;
    QTest::newRow("half seconds") << 0.5 << 2.5 << 30.9 << 500 << 2500 << 30;
    QTest::newRow("quarters, and a timeout with a fraction") << 0.5 << 2.25 << 1.9 << 500 << 2250 << 1;
    QTest::newRow("fractions of a millisecond are cut off") << 0.0019 << 1.9999 << 0.999 << 1 << 1999 << 0;
    QTest::newRow("negative values are cut toward zero") << -0.0019 << -1.9999 << -1.9 << -1 << -1999 << -1;
    QTest::newRow("zero") << 0.0 << 0.0 << 0.0 << 0 << 0 << 0;
    QTest::newRow("the largest interval")
        << 2147483.647 << 2147483.0 << 2147483647.0 << most << 2147483000 << most;
    QTest::newRow("more than an int holds") << 2147483.648 << 1e300 << 2147483648.0 << most << most << most;
    QTest::newRow("less than an int holds")
        << -2147484.0 << -1e300 << -2147483649.0 << least << least << least;
    QTest::newRow("infinite") << infinity << -infinity << infinity << most << least << most;
    QTest::newRow("no number") << no_number << no_number << no_number << 0 << 0 << 0;
}

void TestPseaConfig::fromUser()
{
    QFETCH(double, logging);
    QFETCH(double, timelapse);
    QFETCH(double, timeout);
    QFETCH(int, loggingMs);
    QFETCH(int, timelapseMs);
    QFETCH(int, timeoutSent);

    const PSEAConfig config = PSEAConfig::fromUser(1, logging, timelapse, timeout, 26);
    QCOMPARE(config.loggingInterval, loggingMs);
    QCOMPARE(config.timelapseInterval, timelapseMs);
    QCOMPARE(config.timelapseTimeout, timeoutSent);
    QCOMPARE(config.recLedOn, 1);
    QCOMPARE(config.e1FirmwareVersion, 26);
    QCOMPARE(config.text, QString());

    const PSEAConfig unchanged = PSEAConfig::fromUser(-7, 0, 0, 0, 123456);
    QCOMPARE(unchanged.recLedOn, -7);
    QCOMPARE(unchanged.e1FirmwareVersion, 123456);
}

void TestPseaConfig::clock_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QString>("date");
    QTest::addColumn<quint32>("sent");

    const auto row = [](const char *name, const char *zone, const char *date, quint32 sent) {
        QTest::newRow(name) << QByteArray(zone) << QString::fromLatin1(date) << sent;
    };
    const char *central = "CET-1CEST,M3.5.0,M10.5.0/3";
    row("the epoch", "UTC0", "1970-01-01 00:00:00", 0);
    row("universal time", "UTC0", "2019-02-21 20:46:44", 1550782004);
    row("winter in central Europe", central, "2019-02-21 21:46:44", 1550782004);
    row("summer in central Europe", central, "2019-07-01 12:00:00", 1561975200);
    row("west of Greenwich", "EST5", "2019-02-21 15:46:44", 1550782004);
    row("a quarter of an hour off", "NPT-5:45", "2019-02-22 02:31:44", 1550782004);
    row("a leap day", "UTC0", "2020-02-29 12:00:00", 1582977600);
    row("the last second of 31 bits", "UTC0", "2038-01-19 03:14:07", 2147483647);
    row("the first second beyond", "UTC0", "2038-01-19 03:14:08", 2147483648U);
    row("more than 32 bits are cut", "UTC0", "2106-02-07 06:28:17", 1);
    row("before the epoch wraps", "UTC0", "1969-12-31 23:59:59", 4294967295U);
}

void TestPseaConfig::clock()
{
    QFETCH(QByteArray, zone);
    QFETCH(QString, date);
    QFETCH(quint32, sent);

    const TimeZone there(zone);
    QCOMPARE(clockValue(date), sent);
}

void TestPseaConfig::noDateSendsNow_data()
{
    QTest::addColumn<QString>("date");

    for (const char *date :
         {"", "now", "2019-02-30 10:00:00", "2019-13-01 10:00:00", "2019-02-28 24:00:00",
          "2019-02-28 10:60:00", "2019-02-28", "10:00:00", "2019-02-28T10:00:00", "28.02.2019 10:00:00",
          "2019-02-28 10:00", "19-02-28 10:00:00", "2019-02-28 10:00:00 ", "2021-02-29 10:00:00"})
        QTest::newRow(qPrintable(QStringLiteral("'%1'").arg(QLatin1String(date))))
            << QString::fromLatin1(date);
}

void TestPseaConfig::noDateSendsNow()
{
    QFETCH(QString, date);

    // A zone far from universal time would show a local clock taken for it.
    const TimeZone there("XYZ-9");
    const auto before = static_cast<quint32>(std::time(nullptr));
    const quint32 sent = clockValue(date);
    const auto after = static_cast<quint32>(std::time(nullptr));
    QVERIFY2(sent >= before && sent <= after, qPrintable(QString::number(sent)));
}

void TestPseaConfig::battery_data()
{
    QTest::addColumn<double>("volts");
    QTest::addColumn<QString>("text");

    const auto row = [](const char *name, double volts, const char *text) {
        QTest::newRow(name) << volts << QString::fromLatin1(text);
    };
    row("none reported", 0, "-");
    row("negative", -1, "-");
    row("minus infinity", -infinity, "-");
    row("infinity", infinity, "100 %");
    row("no number", no_number, "100 %");
    row("full", 4.2, "100 %");

    struct Bound
    {
        double volts;
        const char *below;
        const char *from;
    };
    for (const Bound &bound :
         {Bound{0.5, "-", "Empty"}, Bound{3.5, "Empty", "10 %"}, Bound{3.57, "10 %", "20 %"},
          Bound{3.64, "20 %", "30 %"}, Bound{3.71, "30 %", "40 %"}, Bound{3.78, "40 %", "50 %"},
          Bound{3.85, "50 %", "60 %"}, Bound{3.92, "60 %", "70 %"}, Bound{3.99, "70 %", "80 %"},
          Bound{4.06, "80 %", "90 %"}, Bound{4.13, "90 %", "100 %"}}) {
        const QString name = QString::number(bound.volts) + QStringLiteral(" V");
        row(qPrintable(QStringLiteral("just below ") + name), std::nextafter(bound.volts, 0.0), bound.below);
        row(qPrintable(QStringLiteral("exactly ") + name), bound.volts, bound.from);
    }
}

void TestPseaConfig::battery()
{
    QFETCH(double, volts);
    QFETCH(QString, text);

    QCOMPARE(voltsToPercent(volts), text);
}

KELPORA_TEST_MAIN(TestPseaConfig)
#include "tst_pseaconfig.moc"
