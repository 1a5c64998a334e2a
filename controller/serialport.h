#pragma once

#include <QSerialPort>
#include <QString>
#include <QVariantList>

class StopFlag;

/// The serial port below the link to the controller: what can be opened, and lines in both directions.
///
/// Used on one thread; calls block up to their time-outs. A wait ends early when the port fails (cable
/// pulled) and, within 200 ms, when the stop flag is raised.
class SerialPort
{
    Q_DISABLE_COPY(SerialPort)

public:
    /// Over `device`, which is open and outlives this, if there is one.
    explicit SerialPort(const StopFlag *stop = nullptr, QIODevice *device = nullptr);
    ~SerialPort();

    /// The ports that may carry a controller, see PSEAComms::getDevices().
    [[nodiscard]] static QVariantList list();

    /// Opens the port named `portName` at 115200 baud, 8N1. True at once if one is open, whatever its name.
    [[nodiscard]] bool open(const QString &portName);
    void close();
    [[nodiscard]] bool isOpen() const;
    /// Why the last open() failed; empty if there is no such port.
    [[nodiscard]] const QString &openError() const { return openError_; }
    /// The serial number of the device behind the port that was opened last; empty if it has none.
    [[nodiscard]] const QString &serialNumber() const { return serialNumber_; }

    /// Sends the line, trimmed, with "\r\n". Does not wait for the bytes to leave.
    bool writeLine(const QString &line);
    /// The next line with its line end; empty if nothing arrived within `timeoutMs`, partial after `maxReads`
    /// pieces without a line end.
    QString readLine(int timeoutMs, int maxReads);
    /// Drops what arrives until nothing has arrived for `quietMs`, but for at most `limitMs`.
    void skipUntilQuiet(int quietMs, int limitMs);

    /// Whether the port has failed or the stop flag is raised.
    [[nodiscard]] bool interrupted() const;

private:
    bool waitForData(int timeoutMs);
    bool portFailed();

    QSerialPort port_;
    QIODevice *device_; ///< what the bytes go through
    QString serialNumber_;
    QString openError_;
    const StopFlag *stop_;
    bool failed_ = false;
};
