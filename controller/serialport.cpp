#include "controller/serialport.h"

#include "platform/stopflag.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonObject>
#include <QSerialPortInfo>

#include <algorithm>
#include <cerrno>

namespace {

constexpr int baudRate = QSerialPort::Baud115200;

/// No sentence is as long: so many bytes without a line end come from something else, and are a piece.
constexpr qint64 longestPiece = 512;

/// The longest wait between two looks at the stop flag.
constexpr int sliceMs = 200;

/// The longest that a piece may take from its first byte on; the longest sentence takes 14 ms.
constexpr int pieceMs = 200;

/// A line's bytes follow each other within microseconds, however the adapter hands them over; a pause of
/// this length ends a piece.
constexpr int pauseMs = 20;

bool isHidden(const QString &location)
{
    for (const char *mark : {"dev/cu", "NERD", "iPhone", "Bluetooth"}) {
        if (location.contains(QLatin1String(mark)))
            return true;
    }
    return false;
}

} // namespace

SerialPort::SerialPort(const StopFlag *stop, QIODevice *device)
    : device_(device != nullptr ? device : &port_)
    , stop_(stop)
{
}

SerialPort::~SerialPort()
{
    close();
}

QVariantList SerialPort::list()
{
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    if (ports.isEmpty())
        qWarning("No serial ports found");
    QVariantList devices;
    for (const QSerialPortInfo &port : ports) {
        qInfo().noquote()
            << QStringLiteral(
                   "Found serial port: name=%1, description=%2, location=%3, manufacturer=%4, serial=%5")
                   .arg(port.portName())
                   .arg(port.description())
                   .arg(port.systemLocation())
                   .arg(port.manufacturer())
                   .arg(port.serialNumber());
        if (isHidden(port.systemLocation()))
            continue;
        devices.append(QJsonObject{
            {QStringLiteral("name"), port.portName()},
            {QStringLiteral("description"), port.description()},
            {QStringLiteral("location"), port.systemLocation()},
            {QStringLiteral("manufacturer"), port.manufacturer()},
            {QStringLiteral("serial"), port.serialNumber()},
        });
    }
    return devices;
}

bool SerialPort::open(const QString &portName)
{
    qInfo().noquote() << "Opening port" << portName;
    if (isOpen()) {
        qInfo("Port is already open.");
        return true;
    }
    openError_.clear();
    qInfo().noquote() << "Looking for port" << portName;
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    const auto found = std::find_if(ports.cbegin(), ports.cend(),
                                    [&](const QSerialPortInfo &port) { return port.portName() == portName; });
    if (found == ports.cend())
        return false;
    qInfo("Port found.");

    serialNumber_ = found->serialNumber();
    port_.setPort(*found);
    port_.setBaudRate(baudRate);
    port_.setParity(QSerialPort::NoParity);
    port_.setFlowControl(QSerialPort::NoFlowControl);
    port_.setStopBits(QSerialPort::OneStop);
    failed_ = false;
    if (!port_.open(QIODevice::ReadWrite)) {
        qWarning().noquote() << "Error opening port:" << port_.errorString();
        openError_ = port_.errorString();
        // Not a port that another program uses, which the port calls a permission too.
        const QFileInfo device(found->systemLocation());
        if (openError_ == qt_error_string(EACCES) && device.groupId() != 0 &&
            device.permission(QFile::ReadGroup | QFile::WriteGroup)) {
            qWarning().noquote() << QStringLiteral("This user may not use %1: add the user to the group "
                                                   "\"%2\", then log in anew.")
                                        .arg(device.filePath(), device.group());
        }
        return false;
    }
    qInfo("Port opened.");
    // Some drivers forget the rate when the port is opened.
    port_.setBaudRate(baudRate);
    return true;
}

void SerialPort::close()
{
    if (device_->isOpen()) {
        device_->close();
        qInfo("Closing port: Port closed.");
    } else {
        qInfo("Closing port: Port already closed.");
    }
}

bool SerialPort::isOpen() const
{
    return device_->isOpen();
}

bool SerialPort::writeLine(const QString &line)
{
    qInfo() << "writeLine:" << line;
    const QByteArray bytes = line.trimmed().toUtf8() + "\r\n";
    const qint64 written = device_->write(bytes);
    // On a worker thread no event loop would send them.
    if (written > 0 && port_.isOpen())
        port_.flush();
    if (written != bytes.size())
        qWarning("writeLine error, bytes don't match.");
    return written == bytes.size();
}

QString SerialPort::readLine(int timeoutMs, int maxReads)
{
    QString line;
    for (int reads = 0; waitForData(timeoutMs) && reads < maxReads; ++reads) {
        const QByteArray piece = device_->readLine();
        line += QString::fromUtf8(piece.constData());
        if (line.endsWith(QLatin1Char('\n')))
            break;
    }
    qInfo() << "readLine:" << line;
    return line;
}

void SerialPort::skipUntilQuiet(int quietMs, int limitMs)
{
    QElapsedTimer total;
    QElapsedTimer sinceData;
    total.start();
    sinceData.start();
    qint64 skipped = 0;
    while (sinceData.elapsed() < quietMs && total.elapsed() < limitMs && !interrupted()) {
        const int left = quietMs - static_cast<int>(sinceData.elapsed());
        if (device_->bytesAvailable() == 0 &&
            !device_->waitForReadyRead(std::min(std::max(left, 1), sliceMs)) && portFailed())
            break;
        const qint64 bytes = device_->readAll().size();
        if (bytes > 0)
            sinceData.start();
        skipped += bytes;
    }
    if (skipped > 0)
        qInfo("Skipped %lld bytes that the controller was still sending.", skipped);
}

/// Waits for a whole line, or for a piece that a pause ends: what comes byte by byte is one piece, and what
/// is already here needs no waiting.
bool SerialPort::waitForData(int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    int limit = timeoutMs;
    bool begun = false;
    while (!device_->canReadLine() && device_->bytesAvailable() < longestPiece && !interrupted()) {
        const qint64 before = device_->bytesAvailable();
        if (before > 0 && !begun) {
            begun = true;
            limit = std::min(timeoutMs, static_cast<int>(timer.elapsed()) + pieceMs);
        }
        const int left = limit - static_cast<int>(timer.elapsed());
        if (left <= 0)
            break;
        const bool arrived = device_->waitForReadyRead(std::min(left, before > 0 ? pauseMs : sliceMs));
        if (device_->bytesAvailable() > before)
            continue;
        if (portFailed() || (!arrived && before > 0))
            break;
    }
    return device_->bytesAvailable() > 0;
}

bool SerialPort::interrupted() const
{
    return failed_ || (stop_ != nullptr && stop_->isRaised());
}

/// Whether the last wait ended because the port is gone. Says so once, in its own words: the port's error
/// text is whatever the system reported last.
bool SerialPort::portFailed()
{
    const QSerialPort::SerialPortError error = port_.error();
    if (!failed_ && error != QSerialPort::NoError && error != QSerialPort::TimeoutError) {
        failed_ = true;
        qWarning().noquote() << "The port failed, as if unplugged:" << port_.portName()
                             << QStringLiteral("(%1)").arg(port_.errorString());
    }
    return failed_ || !device_->isOpen();
}
