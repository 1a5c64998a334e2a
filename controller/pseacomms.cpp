#include "controller/pseacomms.h"

#include "controller/nmea0183.h"
#include "controller/record.h"

#include <QDateTime>
#include <QDebug>
#include <QElapsedTimer>

#include <algorithm>

namespace {

constexpr int readsPerAnswer = 4;
constexpr int piecesPerLine = 3;
constexpr int versionAttempts = 5;
constexpr qint32 defaultGeneration = 29;
constexpr double leastVoltage = 0.5;
constexpr const char *dataAddress = "$PSEADATA";

const QString closedError = QStringLiteral("Please open serial port first.");
const QString exchangeError = QStringLiteral("Communication error. Please try again.");

bool startsWith(const std::string &text, const char *start)
{
    return text.rfind(start, 0) == 0;
}

bool contains(const std::string &text, const char *part)
{
    return text.find(part) != std::string::npos;
}

/// Whether the sentence is `address` with at least `fields` data fields.
bool isSentence(Nmea &sentence, const char *address, unsigned long fields)
{
    return sentence.NumFields() >= fields && startsWith(sentence.FieldAsString(0), address);
}

/// Whether the sentence is a message whose text or tag `field` contains `part`.
bool isMessage(Nmea &sentence, unsigned long field, const char *part)
{
    return isSentence(sentence, "$PSEAMSG", field) && contains(sentence.FieldAsString(field), part);
}

bool isClock(Nmea &sentence)
{
    constexpr unsigned long statusField = 8;
    return isSentence(sentence, "$PSEACLOCK", statusField) && sentence.FieldAsString(statusField) == "A";
}

void logAnswer(const char *what, const QString &line)
{
    qInfo() << what << line;
}

} // namespace

PSEAComms::PSEAComms(const StopFlag *stop, QIODevice *device)
    : port_(stop, device)
{
}

PSEAComms::~PSEAComms() = default;

QVariantList PSEAComms::getDevices()
{
    return SerialPort::list();
}

bool PSEAComms::open(const QString &portName)
{
    if (port_.open(portName))
        return true;
    if (!port_.openError().isEmpty())
        lastError_ = port_.openError();
    return false;
}

bool PSEAComms::requireOpen()
{
    if (isOpen())
        return true;
    lastError_ = closedError;
    return false;
}

bool PSEAComms::send(Nmea &sentence)
{
    sentence.AddChecksum();
    if (writeLine(QString::fromStdString(sentence.GetSentence())))
        return true;
    lastError_ = isOpen() ? exchangeError : closedError;
    return false;
}

bool PSEAComms::send(const std::string &address)
{
    Nmea sentence(address);
    return send(sentence);
}

bool PSEAComms::awaitAnswer(const Accept &accept)
{
    for (int reads = 0; reads < readsPerAnswer && !port_.interrupted(); ++reads) {
        const QString line = readLine(timeouts_.answer, piecesPerLine);
        if (line.isEmpty())
            continue;
        Nmea sentence(line.toStdString());
        if (sentence.ChecksumValidate() && accept(sentence, line))
            return true;
    }
    return communicationError();
}

bool PSEAComms::communicationError()
{
    lastError_ = exchangeError;
    qWarning().noquote() << lastError_;
    return false;
}

bool PSEAComms::beep()
{
    return send("$PSEABEEP");
}

bool PSEAComms::takeSettings(Nmea &sentence, const QString &line)
{
    constexpr unsigned long words = 4;
    if (!isSentence(sentence, "$PSEASETTINGS", words))
        return false;
    for (unsigned long word = 0; word < words; ++word)
        settings_[word] = sentence.FieldAsInt(word + 1);
    logAnswer("PSEASETTINGS response", line);
    return true;
}

bool PSEAComms::getSettings()
{
    return requireOpen() && send("$PSEAGETSETTINGS") &&
           awaitAnswer([this](Nmea &sentence, const QString &line) {
               if (!takeSettings(sentence, line))
                   return false;
               settings_[4] = sentence.NumFields() >= 5 ? sentence.FieldAsInt(5) : defaultGeneration;
               return true;
           });
}

bool PSEAComms::getVersion()
{
    return requireOpen() && send("$PSEAVER") && awaitAnswer([this](Nmea &sentence, const QString &line) {
               if (isMessage(sentence, 2, "PSEAVER") && sentence.NumFields() >= 4) {
                   version_ = QString::fromStdString(sentence.FieldAsString(4));
                   clockTime_ = sentence.FieldAsInt(1);
                   logAnswer("PSEAVER response", line);
                   return false;
               }
               if (!isSentence(sentence, "$PSEABATTERY", 1))
                   return false;
               const double volts = sentence.FieldAsDouble(1);
               batteryVoltage_ = volts > leastVoltage ? volts : 0;
               logAnswer("PSEABATTERY response", line);
               return true;
           });
}

bool PSEAComms::readConfig()
{
    lastError_.clear();
    const auto repeat = [this](bool (PSEAComms::*command)()) {
        bool done = false;
        for (int attempt = 0; attempt < versionAttempts && !done && (attempt == 0 || !port_.interrupted());
             ++attempt)
            done = (this->*command)();
        return done;
    };
    const bool version = repeat(&PSEAComms::getVersion);
    const bool settings = repeat(&PSEAComms::getSettings);
    return version && settings;
}

bool PSEAComms::setConfig(unsigned time, unsigned a, unsigned b, unsigned c, unsigned d, unsigned e)
{
    lastError_.clear();
    Nmea settings("$PSEASETSETTINGS");
    for (const unsigned word : {a, b, c, d, e})
        settings.AddLong(static_cast<long>(word));
    if (!send(settings) ||
        !awaitAnswer([this](Nmea &sentence, const QString &line) { return takeSettings(sentence, line); }))
        return false;

    Nmea clock("$PSEASETRTC");
    clock.AddLong(static_cast<long>(time));
    return send(clock) && awaitAnswer([this](Nmea &sentence, const QString &line) {
               const bool set = isMessage(sentence, 4, "TIME SET");
               if (!set && !isClock(sentence))
                   return false;
               clockTime_ = sentence.FieldAsInt(1);
               logAnswer(set ? "PSEAMSG TIME SET response" : "PSEACLOCK response", line);
               return true;
           });
}

bool PSEAComms::setTime(unsigned time)
{
    lastError_.clear();
    Nmea clock("$PSEASETRTC");
    clock.AddLong(static_cast<long>(time));
    return send(clock) && awaitAnswer([this](Nmea &sentence, const QString &line) {
               if (!isClock(sentence))
                   return false;
               clockTime_ = static_cast<qint32>(QDateTime::currentSecsSinceEpoch());
               logAnswer("PSEACLOCK response", line);
               return true;
           });
}

bool PSEAComms::eraseData()
{
    lastError_.clear();
    return send("$PSEAFORMAT") && awaitAnswer([](Nmea &sentence, const QString &line) {
               if (!isMessage(sentence, 2, "PSEAFORMAT") || !isMessage(sentence, 4, "COMPLETE"))
                   return false;
               logAnswer("PSEAFORMAT response", line);
               return true;
           });
}

bool PSEAComms::countData()
{
    lastError_.clear();
    if (!requireOpen())
        return false;
    numData_ = 0;
    return send("$PSEANUMDUMP") && awaitAnswer([this](Nmea &sentence, const QString & /*line*/) {
               if (!isSentence(sentence, "$PSEANUMDATA", 1))
                   return false;
               numData_ = sentence.FieldAsInt(1);
               return true;
           });
}

bool PSEAComms::readData(QStringList &lines)
{
    DumpLines dumped;
    const bool ended = readData(dumped);
    for (int i = 0; i < dumped.size(); ++i)
        lines.append(dumped.at(i));
    return ended;
}

bool PSEAComms::readData(DumpLines &lines)
{
    lastError_.clear();
    if (!send("$PSEADUMP"))
        return false;
    dump_ = {};
    EarlierLines earlier(lines);
    int highest = 0;
    // Before the first data line four reads are the limit. After it, no number of lines ends a dump without
    // its end message, but as much time as four silent reads take does.
    int reads = 0;
    QElapsedTimer sinceData;
    const auto isLate = [&] {
        return sinceData.isValid() ? sinceData.elapsed() >= readsPerAnswer * qint64{timeouts_.dump}
                                   : reads >= readsPerAnswer;
    };
    while (!isLate() && !port_.interrupted()) {
        ++reads;
        const QString line = readLine(timeouts_.dump, piecesPerLine);
        if (line.isEmpty())
            continue;
        Nmea sentence(line.toStdString());
        if (!sentence.ChecksumValidate()) {
            qWarning().noquote() << "Damaged line skipped:" << line.trimmed();
            dump_.garbled = true;
            if (line.startsWith(QLatin1String(dataAddress)))
                dump_.damaged = true;
            continue;
        }
        if (isMessage(sentence, 4, "DATA END")) {
            qInfo("All data read");
            return true;
        }
        if (!isSentence(sentence, dataAddress, 1))
            continue;
        const int number = sentence.FieldAsInt(1);
        if (number < 1) {
            // These may all be alike. A stream of them without end must not keep the dump going.
            ++dump_.unnumbered;
            if (!sinceData.isValid() || dump_.numbered + dump_.unnumbered <= numData_)
                sinceData.start();
            continue;
        }
        // A number above all others was not sent before.
        const bool again = number <= highest && earlier.contain(line, lines.size());
        highest = std::max(highest, number);
        if (!again) {
            sinceData.start();
            if (sentence.NumFields() >= Record::fieldCount)
                ++dump_.numbered;
        }
        emit newMessage(QStringLiteral("Reading dataset %1 of %2").arg(number).arg(numData_));
        lines.append(line);
    }
    return communicationError();
}

bool PSEAComms::off()
{
    lastError_.clear();
    return send("$PSEAOFF") && awaitAnswer([](Nmea &sentence, const QString & /*line*/) {
               return isMessage(sentence, 3, "POWER OFF");
           });
}

bool PSEAComms::reboot()
{
    lastError_.clear();
    return send("$PSEAREBOOT") && awaitAnswer([](Nmea &sentence, const QString &line) {
               if (!isMessage(sentence, 3, "BOOT"))
                   return false;
               logAnswer("PSEAMSG response", line);
               return true;
           });
}

bool PSEAComms::reset()
{
    lastError_.clear();
    return send("$PSEAFACTORYSETTINGS") &&
           awaitAnswer([this](Nmea &sentence, const QString &line) { return takeSettings(sentence, line); });
}
