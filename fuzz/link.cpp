// What a controller sends after a command, handed over as a whole, byte by byte, or in pieces: the outcome
// must be the same. The input's first byte chooses the command, the second the pieces, the rest is sent.

#include "controller/pseacomms.h"
#include "fuzz/target.h"
#include "platform/stopflag.h"

#include <QIODevice>
#include <QStringList>

#include <algorithm>
#include <cstring>

namespace {

/// A piece without a line end is handed on at this length, so that how a longer one is cut may be told from
/// what is read.
constexpr int longestLine = 511;

/// Hands over the bytes in pieces, one at each wait. When there are no more, it asks the link to end, which
/// would wait for seconds otherwise.
class Stream : public QIODevice
{
    Q_DISABLE_COPY(Stream)

public:
    /// `step` gives the length of a piece from the number of the pieces before.
    template <typename Step>
    Stream(const QByteArray &bytes, StopFlag *stop, Step step)
        : bytes_(bytes)
        , stop_(stop)
    {
        for (int end = 0, piece = 0; end < bytes.size(); ++piece) {
            end = std::min(bytes.size(), end + std::max(1, step(piece)));
            ends_.append(end);
        }
        open(QIODevice::ReadWrite | QIODevice::Unbuffered);
    }

    [[nodiscard]] bool isSequential() const override { return true; }
    [[nodiscard]] qint64 bytesAvailable() const override { return arrived_ - read_; }
    [[nodiscard]] bool canReadLine() const override
    {
        const int at = bytes_.indexOf('\n', read_);
        return at >= 0 && at < arrived_;
    }
    bool waitForReadyRead(int /*ms*/) override
    {
        const auto next = std::upper_bound(ends_.cbegin(), ends_.cend(), arrived_);
        if (next == ends_.cend()) {
            stop_->raise();
            return false;
        }
        arrived_ = *next;
        return true;
    }
    [[nodiscard]] int consumed() const { return read_; }
    [[nodiscard]] const QByteArray &sent() const { return sent_; }

protected:
    qint64 readData(char *data, qint64 length) override
    {
        const int count = std::min(static_cast<int>(length), arrived_ - read_);
        std::memcpy(data, bytes_.constData() + read_, static_cast<std::size_t>(count));
        read_ += count;
        return count;
    }
    qint64 writeData(const char *data, qint64 length) override
    {
        sent_.append(data, static_cast<int>(length));
        return length;
    }

private:
    QByteArray bytes_;
    StopFlag *stop_;
    QVector<int> ends_;
    QByteArray sent_;
    int arrived_ = 0;
    int read_ = 0;
};

/// Everything that a command leaves behind, as text; a double that is no number equals itself there.
template <typename Step>
QStringList outcome(int command, const QByteArray &bytes, Step step)
{
    StopFlag stop;
    Stream stream(bytes, &stop, step);
    PSEAComms link(&stop, &stream);
    QStringList told;
    QObject::connect(&link, &PSEAComms::newMessage, [&told](const QString &text) { told << text; });
    QStringList lines;
    bool done = false;
    switch (command) {
    case 0:
        done = link.readConfig();
        break;
    case 1:
        done = link.setConfig(1550782004, 1, 1000, 2000, 3, 29);
        break;
    case 2:
        done = link.setTime(1550782004);
        break;
    case 3:
        done = link.eraseData();
        break;
    case 4:
        done = link.countData();
        break;
    case 5:
        done = link.off();
        break;
    case 6:
        done = link.reboot();
        break;
    case 7:
        done = link.reset();
        break;
    case 8:
        for (QString line = link.readLine(2000, 3); !line.isEmpty(); line = link.readLine(2000, 3))
            lines << line;
        // ASCII arrives as it was sent.
        if (std::all_of(bytes.cbegin(), bytes.cend(),
                        [](char c) { return c != 0 && (static_cast<unsigned char>(c) & 0x80U) == 0; }))
            HOLDS(lines.join(QString()).toUtf8() == bytes);
        break;
    default:
        done = link.countData();
        done = link.readData(lines) && done;
        for (const QString &line : qAsConst(lines))
            HOLDS(line.startsWith(QStringLiteral("$PSEADATA")));
        HOLDS(link.dump_.numbered <= lines.size() && told.size() == lines.size());
    }
    QStringList result{QString::number(done),
                       link.version_,
                       QString::number(link.clockTime_),
                       QString::number(link.numData_),
                       QString::number(link.dump_.numbered),
                       QString::number(link.dump_.unnumbered),
                       QString::number(link.dump_.damaged),
                       QString::number(link.dump_.garbled),
                       QString::number(link.batteryVoltage_, 'g', 17),
                       link.lastError_,
                       QString::number(stream.consumed()),
                       QString::fromUtf8(stream.sent())};
    for (const qint32 word : link.settings_)
        result << QString::number(word);
    return result + lines + told;
}

bool hasLongLine(const QByteArray &bytes)
{
    for (int begin = 0; begin < bytes.size();) {
        const int at = bytes.indexOf('\n', begin);
        const int end = at < 0 ? bytes.size() : at;
        if (end - begin > longestLine)
            return true;
        begin = end + 1;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    SilenceErrors();
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    constexpr int commands = 10;
    if (size < 2)
        return 0;
    const int command = data[0] % commands;
    const unsigned seed = data[1];
    const QByteArray bytes(reinterpret_cast<const char *>(data) + 2, static_cast<int>(size) - 2);
    const auto whole = [&bytes](int) { return bytes.size(); };
    const auto single = [](int) { return 1; };
    const auto pieces = [seed](int piece) {
        return static_cast<int>((seed * 2654435761U + static_cast<unsigned>(piece) * 40503U) >> 7U) % 24;
    };
    // Time passes meanwhile; only on a machine that stands still for a moment does it cut a piece.
    constexpr int attempts = 3;
    bool equal = false;
    for (int attempt = 0; attempt < attempts && !equal; ++attempt) {
        const QStringList expected = outcome(command, bytes, whole);
        equal = outcome(command, bytes, single) == expected && outcome(command, bytes, pieces) == expected;
        equal = equal || hasLongLine(bytes);
    }
    HOLDS(equal);
    return 0;
}
