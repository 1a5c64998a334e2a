#pragma once

#include "controller/dumplines.h"
#include "controller/serialport.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <array>
#include <functional>
#include <string>

class Nmea;

/// The link to the rig's controller: the commands that go over one serial port.
///
/// One object per job, used on that job's thread only; calls block up to their time-outs, see SerialPort.
/// Nothing throws: a failure returns false and leaves a text for the user in lastError_.
class PSEAComms : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(PSEAComms)

public:
    /// Milliseconds.
    struct Timeouts
    {
        int answer = 2000; ///< of one read
        int dump = 10000;  ///< of one read of a dump
        int quiet = 300;   ///< a link that is silent for so long is quiet
        int quietLimit = 10000;
    };

    /// The data lines of a dump that arrived.
    struct DumpCounts
    {
        qint32 numbered = 0;   ///< different whole data sets, numbered from 1
        qint32 unnumbered = 0; ///< lines with a number below 1, neither reported nor kept
        bool damaged = false;  ///< a data line came with a wrong checksum
        bool garbled = false;  ///< any line did
    };

    /// Over `device`, which is open and outlives the link, if there is one; otherwise over the port that
    /// open() opens.
    explicit PSEAComms(const StopFlag *stop = nullptr, QIODevice *device = nullptr);
    ~PSEAComms() override;

    /// The serial ports that may carry a controller, as JSON objects with the keys "name", "description",
    /// "location", "manufacturer" and "serial".
    [[nodiscard]] static QVariantList getDevices();

    /// Opens the port named `portName` at 115200 baud, 8N1. True at once if one is open, whatever its name.
    [[nodiscard]] bool open(const QString &portName);
    void close() { port_.close(); }
    [[nodiscard]] bool isOpen() const { return port_.isOpen(); }
    /// The serial number of the device behind the port that was opened last; empty if it has none.
    [[nodiscard]] const QString &serialNumber() const { return port_.serialNumber(); }

    /// Sends the line, trimmed, with "\r\n". Does not wait for the bytes to leave.
    bool writeLine(const QString &line) { return port_.writeLine(line); }
    /// The next line with its line end; empty if nothing arrived within `timeoutMs`, partial after `maxReads`
    /// pieces without a line end.
    QString readLine(int timeoutMs, int maxReads) { return port_.readLine(timeoutMs, maxReads); }
    /// Drops what arrives until the link is quiet, or for as long as that may take.
    void skipUntilQuiet() { port_.skipUntilQuiet(timeouts_.quiet, timeouts_.quietLimit); }

    // Each sends one command and waits for its answer; see docs/protocol.md.
    bool beep();
    bool getSettings();
    bool getVersion();
    bool readConfig();
    bool setConfig(unsigned time, unsigned a, unsigned b, unsigned c, unsigned d, unsigned e);
    bool setTime(unsigned time);
    bool eraseData();
    bool countData();
    /// Appends every line of the controller's data log to `lines`, with its line end. What had arrived stays
    /// in `lines` when the dump is cut off.
    bool readData(QStringList &lines);
    /// The same, for a long log; `lines` is empty before.
    bool readData(DumpLines &lines);
    bool off();
    bool reboot();
    bool reset();

    // Results of the last answers.
    QString version_;      ///< firmware version
    qint32 clockTime_ = 0; ///< the controller's clock, seconds since the epoch
    std::array<qint32, 5>
        settings_{};            ///< LED flag, logging interval ms, time-lapse ms, time-out, camera generation
    qint32 numData_ = 0;        ///< data sets in memory
    DumpCounts dump_;           ///< of the last dump
    double batteryVoltage_ = 0; ///< volts, 0 when unknown
    QString lastError_;         ///< the last failure, for the user
    Timeouts timeouts_;

signals:
    void newMessage(const QString &message);

private:
    /// Looks at one valid sentence; true when it answers the command.
    using Accept = std::function<bool(Nmea &, const QString &line)>;

    bool requireOpen();
    bool send(Nmea &sentence);
    bool send(const std::string &address);
    bool awaitAnswer(const Accept &accept);
    bool communicationError();
    bool takeSettings(Nmea &sentence, const QString &line);

    SerialPort port_;
};
