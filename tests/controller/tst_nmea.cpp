#include "controller/nmea0183.h"
#include "tests/support/testmain.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <climits>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::size_t allocations = 0;

void *counted(std::size_t size)
{
    ++allocations;
    void *memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

void *operator new(std::size_t size)
{
    return counted(size);
}

void *operator new[](std::size_t size)
{
    return counted(size);
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

using Build = std::function<unsigned long(Nmea &)>;
using Use = std::function<void(Nmea &)>;
using Read = std::function<QByteArray(Nmea &, unsigned long)>;
Q_DECLARE_METATYPE(Build)
Q_DECLARE_METATYPE(Use)
Q_DECLARE_METATYPE(Read)

namespace {

/// Collects what is written to a standard stream while it lives.
class Capture
{
    Q_DISABLE_COPY(Capture)

public:
    explicit Capture(std::FILE *stream)
        : stream_(stream)
        , file_(std::tmpfile())
        , before_(::dup(::fileno(stream)))
    {
        std::fflush(stream_);
        ::dup2(::fileno(file_), ::fileno(stream_));
    }

    ~Capture()
    {
        std::fflush(stream_);
        ::dup2(before_, ::fileno(stream_));
        ::close(before_);
        std::fclose(file_);
    }

    [[nodiscard]] QByteArray text() const
    {
        std::fflush(stream_);
        QByteArray text(static_cast<int>(::lseek(::fileno(file_), 0, SEEK_END)), '\0');
        const ssize_t got = ::pread(::fileno(file_), text.data(), static_cast<std::size_t>(text.size()), 0);
        return text.left(static_cast<int>(got));
    }

private:
    std::FILE *stream_;
    std::FILE *file_;
    int before_;
};

/// How a child process that runs `operation` ends, and what it says on standard error.
struct Ending
{
    bool aborted = false;
    QByteArray message;
};

Ending inChild(const std::function<void()> &operation)
{
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0)
        qFatal("The test can't make a pipe");
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        std::signal(SIGABRT, SIG_DFL);
        ::dup2(ends[1], STDERR_FILENO);
        operation();
        ::_exit(0);
    }
    ::close(ends[1]);
    Ending ending;
    char buffer[512];
    for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
        ending.message.append(buffer, static_cast<int>(got));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    ending.aborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    return ending;
}

/// Runs the process under a locale whose decimal point is `point` until it is destroyed.
class NumberLocale
{
    Q_DISABLE_COPY(NumberLocale)

public:
    explicit NumberLocale(const char *name, const char *point)
    {
        const QByteArray full = QByteArray(name) + ".UTF-8";
        if (has(full, point))
            return;
        const QString localedef = QStandardPaths::findExecutable(QStringLiteral("localedef"));
        if (localedef.isEmpty())
            return;
        QProcess::execute(localedef, {QStringLiteral("-i"), QString::fromLatin1(name), QStringLiteral("-f"),
                                      QStringLiteral("UTF-8"), made_.filePath(QString::fromLatin1(full))});
        qputenv("LOCPATH", made_.path().toLocal8Bit());
        has(full, point);
    }

    ~NumberLocale()
    {
        std::setlocale(LC_NUMERIC, "C");
        qunsetenv("LOCPATH");
    }

    [[nodiscard]] bool holds() const { return holds_; }

private:
    bool has(const QByteArray &name, const char *point)
    {
        holds_ = std::setlocale(LC_NUMERIC, name.constData()) != nullptr &&
                 QByteArray(std::localeconv()->decimal_point) == point;
        return holds_;
    }

    QTemporaryDir made_;
    bool holds_ = false;
};

QByteArray bytes(const std::string &text)
{
    return QByteArray::fromStdString(text);
}

/// "$A,FIELD*00"; its field 1 is what is given.
Nmea withField(const QByteArray &field)
{
    return Nmea("$A," + field.toStdString() + "*00");
}

/// Text with its NUL bytes, which a plain literal would end at.
template <std::size_t Size>
QByteArray raw(const char (&text)[Size])
{
    return QByteArray(text, static_cast<int>(Size) - 1);
}

QByteArray exact(double value)
{
    return QByteArray::number(value, 'g', 17);
}

const Read asString = [](Nmea &nmea, unsigned long field) { return bytes(nmea.FieldAsString(field)); };
const Read asInt = [](Nmea &nmea, unsigned long field) { return QByteArray::number(nmea.FieldAsInt(field)); };
const Read asLong = [](Nmea &nmea, unsigned long field) {
    return QByteArray::number(qlonglong{nmea.FieldAsLong(field)});
};
const Read asULong = [](Nmea &nmea, unsigned long field) {
    return QByteArray::number(qulonglong{nmea.FieldAsULong(field)});
};
const Read asDouble = [](Nmea &nmea, unsigned long field) { return exact(nmea.FieldAsDouble(field)); };
const Read asBool = [](Nmea &nmea, unsigned long field) {
    return QByteArray(nmea.FieldAsBool(field) ? "true" : "false");
};
const Read asChar = [](Nmea &nmea, unsigned long field) { return QByteArray(1, nmea.FieldAsChar(field)); };
const Read asTime = [](Nmea &nmea, unsigned long field) { return bytes(nmea.FieldAsTimeString(field)); };

constexpr int longest = 161;

} // namespace

class TestNmea : public QObject
{
    Q_OBJECT

private slots:
    void splits_data();
    void splits();
    void startsEmptyAndValid();
    void textWithoutSeparatorHasNoAddress();
    void initForgets();
    void splittingAgainAppends();
    void terminatorsBecomeNul();
    void checksum_data();
    void checksum();
    void aRightChecksumForgivesNothing();
    void initAndValidate_data();
    void initAndValidate();
    void getters_data();
    void getters();
    void timeFailureGivesThePreviousTime();
    void coordinates_data();
    void coordinates();
    void illegalIndexAborts_data();
    void illegalIndexAborts();
    void builders_data();
    void builders();
    void buildersKeepTheLimit_data();
    void buildersKeepTheLimit();
    void buildingDoesNotSplit();
    void length_data();
    void length();
    void whatIsBuiltIsRead();
    void prints();
    void closes();
    void copies();
    void assigns();
    void decimalPoint_data();
    void decimalPoint();
    void allocations_data();
    void allocations();
};

void TestNmea::splits_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("numFields");
    QTest::addColumn<QByteArrayList>("pieces");

    using List = QByteArrayList;
    const auto row = [](const char *name, const QByteArray &text, int numFields, const List &pieces) {
        QTest::newRow(name) << text << numFields << pieces;
    };
    row("two fields", "$PSEAVER,1,2*46", 2, {"$PSEAVER", "1", "2"});
    row("an address alone", "$PSEAVER*46", 0, {"$PSEAVER"});
    row("without a star the last value is dropped", "$PSEAX,1,2", 1, {"$PSEAX", "1"});
    row("without a star and with one value", "$PSEAX,1", 0, {"$PSEAX"});
    row("empty fields", "$A,,,x*00", 3, {"$A", "", "", "x"});
    row("only empty fields", "$A,,,*00", 3, {"$A", "", "", ""});
    row("no address", ",a*00", 1, {"", "a"});
    row("only a comma", ",", 0, {""});
    row("only a star", "*", 0, {""});
    row("the checksum is no field", "$A,1*7F", 1, {"$A", "1"});
    row("commas after the star separate too", "$A,1*00,2,3", 3, {"$A", "1", "00", "2"});
    row("two stars", "$A*1*2", 1, {"$A", "1"});
    row("blanks are kept", "$A, 1 ,\t*00", 2, {"$A", " 1 ", "\t"});
    row("a line end keeps its two bytes", "$A,1*00\r\n", 1, {"$A", "1"});
    row("a line end within a field", "$A,b\r\nc,d*00", 2, {"$A", raw("b\0\0c"), "d"});
    row("a NUL within a field", raw("$A,b\0c,d*00"), 2, {"$A", raw("b\0c"), "d"});
    row("bytes above 127", "$A,\xc3\xa4,\xff*00", 2, {"$A", "\xc3\xa4", "\xff"});
    row("a field longer than a short string", "$A," + QByteArray(100, 'x') + "*00", 1,
        {"$A", QByteArray(100, 'x')});
    row("161 bytes", "$A," + QByteArray(longest - 6, 'x') + "*00", 1, {"$A", QByteArray(longest - 6, 'x')});
    row("162 bytes are not cut", "$A," + QByteArray(longest - 5, 'x') + "*00", 1,
        {"$A", QByteArray(longest - 5, 'x')});
    row("as many fields as there are commas", QByteArray(200, ',') + "*", 200,
        QByteArray(200, ',').split(','));
}

void TestNmea::splits()
{
    QFETCH(QByteArray, text);
    QFETCH(int, numFields);
    QFETCH(QByteArrayList, pieces);

    Nmea nmea(text.toStdString());
    QCOMPARE(static_cast<int>(nmea.NumFields()), numFields);
    QVERIFY(nmea.IsValid());
    QByteArrayList read;
    for (unsigned long i = 0; i <= nmea.NumFields(); ++i)
        read.append(bytes(nmea.FieldAsString(i)));
    QCOMPARE(read, pieces);
    QVERIFY(nmea.IsValid());
    QCOMPARE(bytes(nmea.GetSentence()), text.replace('\r', '\0').replace('\n', '\0'));
}

void TestNmea::startsEmptyAndValid()
{
    const Nmea nmea;
    QVERIFY(nmea.IsValid());
    QCOMPARE(nmea.NumFields(), 0UL);
    QCOMPARE(bytes(nmea.GetSentence()), QByteArray(""));
}

void TestNmea::textWithoutSeparatorHasNoAddress()
{
    for (const char *text : {"", "$PSEAX"}) {
        Nmea nmea{std::string(text)};
        QCOMPARE(nmea.NumFields(), 0UL);
        const Capture errors(stderr);
        QCOMPARE(bytes(nmea.FieldAsString(0)), QByteArray(""));
        QVERIFY(errors.text().startsWith("Out of range:"));
        QVERIFY(!nmea.IsValid());
    }
}

void TestNmea::initForgets()
{
    Nmea nmea("$A,123456,x*00");
    QCOMPARE(bytes(nmea.FieldAsTimeString(1)), QByteArray("12:34:56"));
    const Capture errors(stderr);
    static_cast<void>(nmea.FieldAsInt(2));
    QVERIFY(!nmea.IsValid());

    nmea.Init("$B,y*00");
    QVERIFY(nmea.IsValid());
    QCOMPARE(nmea.NumFields(), 1UL);
    QCOMPARE(bytes(nmea.FieldAsString(0)), QByteArray("$B"));
    QCOMPARE(bytes(nmea.FieldAsTimeString(1)), QByteArray(""));
}

void TestNmea::splittingAgainAppends()
{
    Nmea nmea("$A,1*00");
    QCOMPARE(nmea.SplitFields(), 3UL);
    QCOMPARE(nmea.NumFields(), 3UL);
    QByteArrayList read;
    for (unsigned long i = 0; i <= 3; ++i)
        read.append(bytes(nmea.FieldAsString(i)));
    QCOMPARE(read, QByteArrayList({"$A", "1", "$A", "1"}));

    Nmea address("$A*00");
    QCOMPARE(address.SplitFields(), 1UL);
    Nmea nothing;
    QCOMPARE(nothing.SplitFields(), 0UL);
    QCOMPARE(nothing.NumFields(), 0UL);
}

void TestNmea::terminatorsBecomeNul()
{
    Nmea nmea("$A");
    nmea.AddString(std::string("a\r\nb\0c", 6));
    QCOMPARE(bytes(nmea.GetSentence()), raw("$A,a\r\nb\0c"));
    nmea.Terminate0();
    QCOMPARE(bytes(nmea.GetSentence()), raw("$A,a\0\0b\0c"));
}

void TestNmea::checksum_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qulonglong>("calculated");
    QTest::addColumn<qlonglong>("stored");
    QTest::addColumn<bool>("agree");

    const auto row = [](const char *name, const QByteArray &text, qulonglong calculated, qlonglong stored,
                        bool agree) { QTest::newRow(name) << text << calculated << stored << agree; };
    row("right", "$PSEABEEP*15", 0x15, 0x15, true);
    row("wrong", "$PSEABEEP*16", 0x15, 0x16, false);
    row("with fields", "$PSEANUMDATA,12*6E", 0x6e, 0x6e, true);
    row("a damaged byte", "$PSEANUMDATA,13*6E", 0x6f, 0x6e, false);
    row("a lost byte", "$PSEANUMDATA,1*6E", 0x5c, 0x6e, false);
    row("no dollar", "PSEABEEP*15", 0x15, 0x15, true);
    row("an exclamation mark counts", "!PSEABEEP*34", 0x34, 0x34, true);
    row("only the first dollar is left out", "$$A*65", 0x65, 0x65, true);
    row("a dollar further on counts", "A$*65", 0x65, 0x65, true);
    row("upper-case digits", "$AK*0A", 0x0a, 0x0a, true);
    row("lower-case digits", "$AK*0a", 0x0a, 0x0a, true);
    row("mixed digits", "$\x01*fF", 0x01, 0xff, false);
    row("one digit", "$AK*A", 0x0a, 0x0a, true);
    row("many digits", "$AK*0000000000000000000000A", 0x0a, 0x0a, true);
    row("a third digit counts", "$AK*10A", 0x0a, 0x10a, false);
    row("nothing after the star", "$AK*", 0x0a, -1, false);
    row("a line end after the star", "$AK*\r\n", 0x0a, -1, false);
    row("no star", "$AK", 0x0a, -1, false);
    row("no star and a line end", "$AK\r\n", 0x0a, -1, false);
    row("G is no digit", "$AK*G1", 0x0a, -1, false);
    row("g is no digit", "$AK*0g", 0x0a, -1, false);
    row("a sign", "$AK*-A", 0x0a, -1, false);
    row("a blank before the digits", "$AK* A", 0x0a, -1, false);
    row("a blank after the digits", "$AK*0A ", 0x0a, -1, false);
    row("a 0x before the digits", "$AK*0x0A", 0x0a, -1, false);
    row("a second star", "$AK*0A*0A", 0x0a, -1, false);
    row("the byte before 0", "$AK*/A", 0x0a, -1, false);
    row("the byte after 9", "$AK*:A", 0x0a, -1, false);
    row("the byte before A", "$AK*@A", 0x0a, -1, false);
    row("the byte before a", "$AK*`A", 0x0a, -1, false);
    row("a byte above 127 after the star", "$AK*0\xc3", 0x0a, -1, false);
    row("CR LF after the digits", "$AK*0A\r\n", 0x0a, 0x0a, true);
    row("LF after the digits", "$AK*0A\n", 0x0a, 0x0a, true);
    row("what follows a line end doesn't count", "$AK*0A\nFFzz", 0x0a, 0x0a, true);
    row("what follows a NUL doesn't count", raw("$AK*0A\0zz"), 0x0a, 0x0a, true);
    row("a line end before the star", "$AK\r\n*0A", 0x0a, -1, false);
    row("a NUL before the star", raw("$AK\0*0A"), 0x0a, -1, false);
    row("a NUL at the start", raw("\0$AK*0A"), 0, -1, false);
    row("two bytes above 127 cancel out", "$\xc3\xa4*67", 0x67, 0x67, true);
    row("one byte above 127 fills the high bits", "$\xe9*E9", 0xffffffffffffffe9, 0xe9, false);
    row("all digits of one byte above 127", "$\xe9*FFFFFFFFFFFFFFE9", 0xffffffffffffffe9, -23, true);
    row("a byte of 255 isn't a missing checksum", "$\xff", 0xffffffffffffffff, -1, false);
    row("nothing", "", 0, -1, false);
    row("only a star", "*", 0, -1, false);
    row("nothing to sum", "$*00", 0, 0, true);
    row("nothing to sum, no dollar", "*0", 0, 0, true);
}

void TestNmea::checksum()
{
    QFETCH(QByteArray, text);
    QFETCH(qulonglong, calculated);
    QFETCH(qlonglong, stored);
    QFETCH(bool, agree);

    Nmea nmea(text.toStdString());
    QCOMPARE(qulonglong{nmea.ChecksumCalculate()}, calculated);
    QCOMPARE(qlonglong{nmea.ChecksumGet()}, stored);
    QCOMPARE(nmea.ChecksumValidate(), agree);
    QCOMPARE(nmea.IsValid(), agree);
    Nmea again;
    QCOMPARE(again.InitAndValidate(text.toStdString(), 0), agree);
    QCOMPARE(again.IsValid(), agree);
}

void TestNmea::aRightChecksumForgivesNothing()
{
    Nmea nmea("$AK*0A");
    const Capture errors(stderr);
    static_cast<void>(nmea.FieldAsInt(0));
    QVERIFY(nmea.ChecksumValidate());
    QVERIFY(!nmea.IsValid());
}

void TestNmea::initAndValidate_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("atLeast");
    QTest::addColumn<bool>("valid");

    QTest::newRow("none wanted, none there") << QByteArray("$PSEABEEP*15") << 0 << true;
    QTest::newRow("one wanted, none there") << QByteArray("$PSEABEEP*15") << 1 << false;
    QTest::newRow("fewer than there are") << QByteArray("$PSEAVER,1,2*45") << 1 << true;
    QTest::newRow("as many as there are") << QByteArray("$PSEAVER,1,2*45") << 2 << true;
    QTest::newRow("one more than there are") << QByteArray("$PSEAVER,1,2*45") << 3 << false;
    QTest::newRow("a wrong checksum") << QByteArray("$PSEAVER,1,2*44") << 2 << false;
    QTest::newRow("no checksum") << QByteArray("$PSEAVER,1,2") << 0 << false;
    QTest::newRow("a line end") << QByteArray("$PSEAVER,1,2*45\r\n") << 2 << true;
}

void TestNmea::initAndValidate()
{
    QFETCH(QByteArray, text);
    QFETCH(int, atLeast);
    QFETCH(bool, valid);

    Nmea nmea;
    nmea.Close();
    QCOMPARE(nmea.InitAndValidate(text.toStdString(), static_cast<unsigned long>(atLeast)), valid);
    QCOMPARE(nmea.IsValid(), valid);
    QCOMPARE(bytes(nmea.FieldAsString(0)), text.left(text.indexOf(text.contains(',') ? ',' : '*')));
}

void TestNmea::getters_data()
{
    QTest::addColumn<Read>("read");
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QByteArray>("failure");

    const QByteArray invalid = "Invalid argument:";
    const QByteArray range = "Out of range:";
    const auto row = [](const char *name, const Read &read, const QByteArray &field, const QByteArray &result,
                        const QByteArray &failure = {}) {
        QTest::newRow(name) << read << field << result << failure;
    };
    row("string", asString, "abc", "abc");
    row("string: empty", asString, "", "");
    row("string: blanks stay", asString, " a ", " a ");

    row("int", asInt, "12", "12");
    row("int: minus", asInt, "-5", "-5");
    row("int: plus", asInt, "+5", "5");
    row("int: leading blanks", asInt, " \t7", "7");
    row("int: leading zeros are decimal", asInt, "010", "10");
    row("int: trailing text", asInt, "7m", "7");
    row("int: a fraction", asInt, "1.9", "1");
    row("int: hexadecimal isn't read", asInt, "0x10", "0");
    row("int: what follows a NUL isn't read", asInt, raw("1\0002"), "1");
    row("int: largest", asInt, "2147483647", "2147483647");
    row("int: smallest", asInt, "-2147483648", "-2147483648");
    row("int: one too large", asInt, "2147483648", "2147483647", range);
    row("int: one too small", asInt, "-2147483649", "2147483647", range);
    row("int: larger than any", asInt, "99999999999999999999999", "2147483647", range);
    row("int: empty", asInt, "", "2147483647", invalid);
    row("int: text", asInt, "x1", "2147483647", invalid);
    row("int: only a sign", asInt, "-", "2147483647", invalid);
    row("int: only blanks", asInt, "  ", "2147483647", invalid);
    row("int: a byte above 127", asInt, "\xff", "2147483647", invalid);

    row("long", asLong, "-12", "-12");
    row("long: trailing text", asLong, " 7,", "7");
    row("long: largest", asLong, "9223372036854775807", "9223372036854775807");
    row("long: smallest", asLong, "-9223372036854775808", "-9223372036854775808");
    row("long: one too large", asLong, "9223372036854775808", "9223372036854775807", range);
    row("long: one too small", asLong, "-9223372036854775809", "9223372036854775807", range);
    row("long: empty", asLong, "", "9223372036854775807", invalid);
    row("long: text", asLong, "x", "9223372036854775807", invalid);

    row("unsigned", asULong, "12", "12");
    row("unsigned: trailing text", asULong, " 7x", "7");
    row("unsigned: largest", asULong, "18446744073709551615", "18446744073709551615");
    row("unsigned: minus one wraps", asULong, "-1", "18446744073709551615");
    row("unsigned: one too large", asULong, "18446744073709551616", "18446744073709551615", range);
    row("unsigned: empty", asULong, "", "18446744073709551615", invalid);
    row("unsigned: text", asULong, "x", "18446744073709551615", invalid);

    const QByteArray largest = exact(std::numeric_limits<double>::max());
    row("double", asDouble, "12.5", "12.5");
    row("double: minus", asDouble, "-0.25", "-0.25");
    row("double: whole", asDouble, "20", "20");
    row("double: no leading zero", asDouble, ".5", "0.5");
    row("double: exponent", asDouble, "1e3", "1000");
    row("double: leading blanks and trailing text", asDouble, "  1.5m", "1.5");
    row("double: a second point ends it", asDouble, "1.5.25", "1.5");
    row("double: more digits than a short string holds", asDouble, "12.5000000000000000000", "12.5");
    row("double: largest", asDouble, "1.7976931348623157e308", largest);
    row("double: too large", asDouble, "1e309", largest, range);
    row("double: too small to tell from 0", asDouble, "1e-999", largest, range);
    row("double: empty", asDouble, "", largest, invalid);
    row("double: text", asDouble, "x", largest, invalid);
    row("double: only a point", asDouble, ".", largest, invalid);

    row("bool: 1", asBool, "1", "true");
    row("bool: 0", asBool, "0", "false");
    row("bool: anything but 0", asBool, "-2", "true");
    row("bool: a fraction below 1", asBool, "0.9", "false");
    row("bool: empty", asBool, "", "false", invalid);
    row("bool: a word", asBool, "true", "false", invalid);
    row("bool: too large", asBool, "2147483648", "false", range);

    row("char", asChar, "N", "N");
    row("char: the first byte", asChar, "North", "N");
    row("char: a blank", asChar, " N", " ");
    row("char: a byte above 127", asChar, "\xe9", "\xe9");
    row("char: empty", asChar, "", raw("\0"), range);

    row("time", asTime, "123456", "12:34:56");
    row("time: a single digit's hour", asTime, "093005", " 9:30:05");
    row("time: midnight", asTime, "0", " 0:00:00");
    row("time: seconds only", asTime, "59", " 0:00:59");
    row("time: fractions are cut off", asTime, "123456.789", "12:34:56");
    row("time: it isn't judged", asTime, "1236199", "123:61:99");
    row("time: the largest", asTime, "18446744073709551615", "1844674407370955:16:15");
    row("time: too large", asTime, "18446744073709551616", "", range);
    row("time: empty", asTime, "", "", invalid);
    row("time: text", asTime, "noon", "", invalid);
}

void TestNmea::getters()
{
    QFETCH(Read, read);
    QFETCH(QByteArray, field);
    QFETCH(QByteArray, result);
    QFETCH(QByteArray, failure);

    Nmea nmea = withField(field);
    QByteArray got;
    QByteArray said;
    {
        const Capture errors(stderr);
        got = read(nmea, 1);
        said = errors.text();
    }
    QCOMPARE(got, result);
    QCOMPARE(nmea.IsValid(), failure.isEmpty());
    if (failure.isEmpty()) {
        QCOMPARE(said, QByteArray(""));
    } else {
        QVERIFY2(said.startsWith(failure), said.constData());
        QVERIFY2(said.size() > failure.size() + 1 && said.at(failure.size()) != ' ', said.constData());
        QCOMPARE(said.indexOf('\n'), said.size() - 1);
    }
}

void TestNmea::timeFailureGivesThePreviousTime()
{
    Nmea nmea("$A,123456,x,*00");
    QCOMPARE(bytes(nmea.FieldAsTimeString(1)), QByteArray("12:34:56"));
    const Capture errors(stderr);
    QCOMPARE(bytes(nmea.FieldAsTimeString(2)), QByteArray("12:34:56"));
    QCOMPARE(bytes(nmea.FieldAsTimeString(3)), QByteArray("12:34:56"));
    QVERIFY(!nmea.IsValid());
}

void TestNmea::coordinates_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QByteArray>("hemisphere");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QByteArray>("failure");
    QTest::addColumn<bool>("valid");

    const auto row = [](const char *name, const QByteArray &value, const QByteArray &hemisphere,
                        const QByteArray &result, const QByteArray &failure = {}, bool valid = true) {
        QTest::newRow(name) << value << hemisphere << result << failure << valid;
    };
    row("north", "4736.1234", "N", "47:36.1234N");
    row("a single digit's degrees", "00912.5", "E", " 9:12.5000E");
    row("three digits' degrees", "12345.6789", "W", "123:45.6789W");
    row("the equator", "0", "S", " 0:00.0000S");
    row("minutes below ten", "4703.25", "N", "47:03.2500N");
    row("the hemisphere's first byte", "4736.1234", "North", "47:36.1234N");
    row("no hemisphere", "4736.1234", "", "", "Out of range:", false);
    row("neither value nor hemisphere", "", "", "", "Out of range:", false);
    row("no value", "", "N", "", "Invalid argument:", false);
    row("the longest that fits", "5e23", "N", "5000000000000000000000:00.0000N");
    row("one byte too long", "5e24", "N", "50000000000000004194304:00.0000", {}, false);
}

void TestNmea::coordinates()
{
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, hemisphere);
    QFETCH(QByteArray, result);
    QFETCH(QByteArray, failure);
    QFETCH(bool, valid);

    using Coordinate = std::string (Nmea::*)(unsigned long, unsigned long);
    for (const Coordinate coordinate : {&Nmea::FieldsAsLatString, &Nmea::FieldsAsLonString}) {
        Nmea nmea("$A,1122.3344,N," + value.toStdString() + "," + hemisphere.toStdString() + "*00");
        QCOMPARE(bytes((nmea.*coordinate)(1, 2)), QByteArray("11:22.3344N"));
        const Capture errors(stderr);
        QCOMPARE(bytes((nmea.*coordinate)(3, 4)), result);
        QCOMPARE(nmea.IsValid(), valid);
        QVERIFY2(errors.text().startsWith(failure) && errors.text().isEmpty() == failure.isEmpty(),
                 errors.text().constData());
    }
}

void TestNmea::illegalIndexAborts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<Use>("use");
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<QByteArray>("expression");

    const QByteArray text = "$A,1,N*00";
    const auto row = [&text](const char *name, const QByteArray &expression, const Use &use) {
        QTest::newRow(name) << text << use << QByteArray(name) << expression;
    };
    const QByteArray field = "field <= num_fields_";
    row("FieldAsString", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsString(3)); });
    row("FieldAsInt", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsInt(3)); });
    row("FieldAsLong", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsLong(3)); });
    row("FieldAsULong", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsULong(3)); });
    row("FieldAsDouble", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsDouble(3)); });
    row("FieldAsBool", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsBool(3)); });
    row("FieldAsChar", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsChar(3)); });
    row("FieldAsTimeString", field, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsTimeString(3)); });
    row("FieldsAsLatString", "ns_field <= num_fields_",
        [](Nmea &nmea) { static_cast<void>(nmea.FieldsAsLatString(1, 3)); });
    row("FieldsAsLonString", "ew_field <= num_fields_",
        [](Nmea &nmea) { static_cast<void>(nmea.FieldsAsLonString(1, 3)); });

    const auto also = [](const char *name, const QByteArray &given, const Use &use) {
        QTest::newRow(name) << given << use << QByteArray("FieldAsDouble")
                            << QByteArray("field <= num_fields_");
    };
    also("a latitude's value", text, [](Nmea &nmea) { static_cast<void>(nmea.FieldsAsLatString(3, 2)); });
    also("a longitude's value", text, [](Nmea &nmea) { static_cast<void>(nmea.FieldsAsLonString(3, 2)); });
    also("the largest index", text, [](Nmea &nmea) { static_cast<void>(nmea.FieldAsDouble(ULONG_MAX)); });
    also("1 in an empty sentence", "", [](Nmea &nmea) { static_cast<void>(nmea.FieldAsDouble(1)); });
    also("1 in an address alone", "$A*00", [](Nmea &nmea) { static_cast<void>(nmea.FieldAsDouble(1)); });
    also("after Close", text, [](Nmea &nmea) {
        nmea.Close();
        static_cast<void>(nmea.FieldAsDouble(1));
    });
    also("a field only just built", "$A*00", [](Nmea &nmea) {
        nmea.AddLong(1);
        static_cast<void>(nmea.FieldAsDouble(1));
    });
}

void TestNmea::illegalIndexAborts()
{
    QFETCH(QByteArray, text);
    QFETCH(Use, use);
    QFETCH(QByteArray, operation);
    QFETCH(QByteArray, expression);

    const Ending ending = inChild([&text, &use] {
        Nmea nmea(text.toStdString());
        use(nmea);
    });
    QVERIFY(ending.aborted);
    QVERIFY2(ending.message.contains(operation), ending.message.constData());
    QVERIFY2(ending.message.contains("nmea0183"), ending.message.constData());
    // Not merely as the end of "ns_field <= num_fields_".
    QVERIFY2(QByteArray(" " + ending.message).replace('`', ' ').replace('\'', ' ').contains(" " + expression),
             ending.message.constData());
}

void TestNmea::builders_data()
{
    QTest::addColumn<Build>("build");
    QTest::addColumn<QByteArray>("appended");
    QTest::addColumn<bool>("valid");

    const auto row = [](const char *name, const QByteArray &appended, const Build &build, bool valid = true) {
        QTest::newRow(name) << build << appended << valid;
    };
    const auto addLong = [](long value) {
        return [value](Nmea &nmea) {
            nmea.AddLong(value);
            return nmea.VerifyLength();
        };
    };
    const auto addDouble = [](double value, unsigned int precision) {
        return [value, precision](Nmea &nmea) { return nmea.AddDouble(value, precision); };
    };
    const auto addString = [](const std::string &value) {
        return [value](Nmea &nmea) { return nmea.AddString(value); };
    };
    row("true", ",1", [](Nmea &nmea) { return nmea.AddBool(true); });
    row("false", ",0", [](Nmea &nmea) { return nmea.AddBool(false); });
    row("a character", ",N", [](Nmea &nmea) { return nmea.AddChar('N'); });
    row("a character above 127", ",\xe9", [](Nmea &nmea) { return nmea.AddChar('\xe9'); });
    row("a percent sign", ",%", [](Nmea &nmea) { return nmea.AddChar('%'); });
    row("a long", ",0", addLong(0));
    row("the largest long", ",9223372036854775807", addLong(LONG_MAX));
    row("the smallest long", ",-9223372036854775808", addLong(LONG_MIN));
    row("the largest unsigned", ",18446744073709551615", [](Nmea &nmea) { return nmea.AddULong(ULONG_MAX); });
    row("two decimals", ",1.50", addDouble(1.5, 2));
    row("no decimals", ",3", addDouble(2.75, 0));
    row("a negative number", ",-0.125", addDouble(-0.125, 3));
    row("28 decimals just fit", ",0.5000000000000000000000000000", addDouble(0.5, 28));
    row("29 decimals are cut", ",0.5000000000000000000000000000", addDouble(0.5, 29), false);
    row("more decimals than an int counts", ",0.5000000000000000000000000000", addDouble(0.5, UINT_MAX),
        false);
    row("the most decimals an int counts", ",0.5000000000000000000000000000", addDouble(0.5, INT_MAX), false);
    row("a huge number is cut", ",160693804425899027554196209234", addDouble(0x1p200, 1), false);
    row("text", ",abc", addString("abc"));
    row("no text", ",", addString(""));
    row("text with separators", ",a,b*c", addString("a,b*c"));
    row("text isn't a format", ",%d%s%n", addString("%d%s%n"));
    row("text longer than a number's buffer", "," + QByteArray(100, 'x'), addString(std::string(100, 'x')));
    row("a good status", ",A", [](Nmea &nmea) { return nmea.AddStatus(true); });
    row("a bad status is F", ",F", [](Nmea &nmea) { return nmea.AddStatus(false); });
}

void TestNmea::builders()
{
    QFETCH(Build, build);
    QFETCH(QByteArray, appended);
    QFETCH(bool, valid);

    Nmea nmea("$A");
    QCOMPARE(static_cast<int>(build(nmea)), 2 + appended.size());
    QCOMPARE(bytes(nmea.GetSentence()), "$A" + appended);
    QCOMPARE(nmea.IsValid(), valid);
}

void TestNmea::buildersKeepTheLimit_data()
{
    QTest::addColumn<Build>("build");
    QTest::addColumn<int>("adds");

    const auto row = [](const char *name, int adds, const Build &build) {
        QTest::newRow(name) << build << adds;
    };
    row("AddBool", 2, [](Nmea &nmea) { return nmea.AddBool(true); });
    row("AddChar", 2, [](Nmea &nmea) { return nmea.AddChar('N'); });
    row("AddULong", 5, [](Nmea &nmea) { return nmea.AddULong(1234); });
    row("AddDouble", 5, [](Nmea &nmea) { return nmea.AddDouble(1, 2); });
    row("AddString", 4, [](Nmea &nmea) { return nmea.AddString("abc"); });
    row("AddStatus", 2, [](Nmea &nmea) { return nmea.AddStatus(true); });
    // These two return nothing.
    row("AddLong", 4, [](Nmea &nmea) {
        nmea.AddLong(-12);
        return static_cast<unsigned long>(nmea.GetSentence().size());
    });
    row("AddChecksum", 3, [](Nmea &nmea) {
        nmea.AddChecksum();
        return static_cast<unsigned long>(nmea.GetSentence().size());
    });
}

void TestNmea::buildersKeepTheLimit()
{
    QFETCH(Build, build);
    QFETCH(int, adds);

    const auto filler = [adds](int total) {
        return std::string(static_cast<std::size_t>(total - adds), 'x');
    };
    Nmea fits(filler(longest));
    QCOMPARE(static_cast<int>(build(fits)), longest);
    QVERIFY(fits.IsValid());
    Nmea tooLong(filler(longest + 1));
    QCOMPARE(static_cast<int>(build(tooLong)), longest + 1);
    QVERIFY(!tooLong.IsValid());
}

void TestNmea::buildingDoesNotSplit()
{
    Nmea nmea("$A,1*");
    nmea.AddString("2,3*");
    QCOMPARE(nmea.NumFields(), 1UL);
}

void TestNmea::length_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("valid");

    QTest::newRow("nothing") << 0 << true;
    QTest::newRow("161 bytes") << longest << true;
    QTest::newRow("162 bytes") << longest + 1 << false;
    QTest::newRow("10,000 bytes") << 10000 << false;
}

void TestNmea::length()
{
    QFETCH(int, size);
    QFETCH(bool, valid);

    Nmea nmea(std::string(static_cast<std::size_t>(size), 'x'));
    QVERIFY(nmea.IsValid());
    QCOMPARE(static_cast<int>(nmea.VerifyLength()), size);
    QCOMPARE(nmea.IsValid(), valid);
    QCOMPARE(static_cast<int>(nmea.GetSentence().size()), size);
}

void TestNmea::whatIsBuiltIsRead()
{
    Nmea built("$PSEASETSETTINGS");
    built.AddLong(-1);
    built.AddULong(2);
    built.AddDouble(0.5, 1);
    built.AddString("abc");
    built.AddBool(true);
    built.AddChar('N');
    built.AddStatus(false);
    built.AddChecksum();
    QCOMPARE(bytes(built.GetSentence()), QByteArray("$PSEASETSETTINGS,-1,2,0.5,abc,1,N,F*30"));
    QVERIFY(built.IsValid());

    Nmea read;
    QVERIFY(read.InitAndValidate(built.GetSentence(), 7));
    QCOMPARE(read.NumFields(), 7UL);
    QCOMPARE(read.FieldAsInt(1), -1);
    QCOMPARE(read.FieldAsDouble(3), 0.5);
    QCOMPARE(bytes(read.FieldAsString(7)), QByteArray("F"));

    Nmea low("$AK");
    low.AddChecksum();
    QCOMPARE(bytes(low.GetSentence()), QByteArray("$AK*0A"));

    Nmea wide("$\xe9");
    wide.AddChecksum();
    QCOMPARE(bytes(wide.GetSentence()), QByteArray("$\xe9*FFFFFF"));
    QVERIFY(!wide.IsValid());
}

void TestNmea::prints()
{
    QByteArray printed;
    {
        const Capture output(stdout);
        Nmea("$PSEAVER,1,,2*45").Print();
        Nmea("$A*00").Print();
        Nmea().Print();
        printed = output.text();
    }
    QCOMPARE(printed, QByteArray("Sentence:$PSEAVER,1,,2*45\n3 Fields: $PSEAVER,1,,2,\n"
                                 "Sentence:$A*00\n0 Fields: $A,\n"
                                 "Sentence:\n0 Fields: \n"));
}

void TestNmea::closes()
{
    Nmea nmea("$A,123456*00");
    QCOMPARE(bytes(nmea.FieldAsTimeString(1)), QByteArray("12:34:56"));
    nmea.Close();
    QVERIFY(!nmea.IsValid());
    QCOMPARE(nmea.NumFields(), 0UL);
    QCOMPARE(bytes(nmea.GetSentence()), QByteArray(""));
    QCOMPARE(nmea.SplitFields(), 0UL);
    const Capture errors(stderr);
    QCOMPARE(bytes(nmea.FieldAsString(0)), QByteArray(""));
    // The last time stays.
    QCOMPARE(bytes(nmea.FieldAsTimeString(0)), QByteArray("12:34:56"));
}

void TestNmea::copies()
{
    Nmea original("$A,123456,x*00");
    QCOMPARE(bytes(original.FieldAsTimeString(1)), QByteArray("12:34:56"));
    original.AddString("3,4");
    original.Close();
    original.AddString("5,6*");
    QVERIFY(!original.IsValid());

    Nmea copy(original);
    QVERIFY(copy.IsValid());
    QCOMPARE(bytes(copy.GetSentence()), QByteArray(",5,6*"));
    QCOMPARE(original.NumFields(), 0UL);
    QCOMPARE(copy.NumFields(), 2UL);
    QCOMPARE(copy.FieldAsInt(2), 6);
    const Capture errors(stderr);
    QCOMPARE(bytes(copy.FieldAsTimeString(0)), QByteArray(""));
    copy.AddBool(true);
    QCOMPARE(bytes(original.GetSentence()), QByteArray(",5,6*"));
}

void TestNmea::assigns()
{
    Nmea original("$A,1,2*00");
    original.AddString("3*");
    Nmea target("$B,x*00");
    target.Close();
    target = original;
    QVERIFY(target.IsValid());
    QCOMPARE(bytes(target.GetSentence()), QByteArray("$A,1,2*00,3*"));
    QCOMPARE(target.NumFields(), 4UL);

    const Nmea &itself = target;
    target = itself;
    QCOMPARE(bytes(target.GetSentence()), QByteArray("$A,1,2*00,3*"));
    QCOMPARE(target.NumFields(), 4UL);
}

void TestNmea::decimalPoint_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("point");

    QTest::newRow("a comma") << QByteArray("de_DE") << QByteArray(",");
    QTest::newRow("a point of two bytes") << QByteArray("ps_AF") << QByteArray("\xd9\xab");
}

void TestNmea::decimalPoint()
{
    QFETCH(QByteArray, locale);
    QFETCH(QByteArray, point);

    const NumberLocale user(locale.constData(), point.constData());
    if (!user.holds())
        QSKIP("This machine has no such locale and can't make one.");
    char number[16];
    std::snprintf(number, sizeof number, "%.1f", 0.5);
    QCOMPARE(QByteArray(number), "0" + point + "5");

    Nmea nmea("$A,12.5,4736.1234,N,.25,-1.5e2,1.25000000000000000000*00");
    QCOMPARE(nmea.FieldAsDouble(1), 12.5);
    QCOMPARE(nmea.FieldAsDouble(4), 0.25);
    QCOMPARE(nmea.FieldAsDouble(5), -150.0);
    QCOMPARE(nmea.FieldAsDouble(6), 1.25);
    QCOMPARE(bytes(nmea.FieldsAsLatString(2, 3)), QByteArray("47:36.1234N"));
    QCOMPARE(bytes(nmea.FieldsAsLonString(2, 3)), QByteArray("47:36.1234N"));
    QVERIFY(nmea.IsValid());
    Nmea built("$A,b.c");
    built.AddDouble(-12.5, 2);
    QCOMPARE(bytes(built.GetSentence()), QByteArray("$A,b.c,-12.50"));
    Nmea full("$A");
    full.AddDouble(0.5, 28);
    QCOMPARE(bytes(full.GetSentence()), QByteArray("$A,0.5000000000000000000000000000"));
    QVERIFY(full.IsValid());
}

void TestNmea::allocations_data()
{
    QTest::addColumn<int>("fields");

    QTest::newRow("one field") << 1;
    QTest::newRow("a dataset's nine fields") << 9;
    QTest::newRow("thirty fields") << 30;
}

void TestNmea::allocations()
{
    QFETCH(int, fields);

    std::string text = "$PSEADATA";
    for (int i = 0; i < fields; ++i)
        text += ",1.5";
    text += "*00";

    // The text; the list of fields is made with the first that is read.
    const std::size_t before = ::allocations;
    Nmea nmea(text);
    const std::size_t parsing = ::allocations - before;
    QVERIFY2(parsing <= 1, qPrintable(QString::number(parsing)));

    double sum = 0;
    for (unsigned long i = 1; i <= nmea.NumFields(); ++i) {
        sum += nmea.FieldAsDouble(i) + nmea.FieldAsInt(i);
        sum += static_cast<double>(nmea.FieldAsString(i).size());
    }
    const bool address = nmea.FieldAsString(0) == "$PSEADATA";
    const bool right = nmea.ChecksumValidate();
    const std::size_t reading = ::allocations - before - parsing;
    QVERIFY2(reading <= 1, qPrintable(QString::number(reading)));
    QCOMPARE(sum, fields * 5.5);
    QVERIFY(address && !right);
}

KELPORA_TEST_MAIN(TestNmea)
#include "tst_nmea.moc"
