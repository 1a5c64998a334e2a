#pragma once

#include <QDateTime>
#include <QString>

/// One entry of the controller's data log. Start entries open a recording run; ordinary entries carry only
/// the low 16 bits of their time, which the run's start completes.
class Record
{
public:
    /// The fields of a whole "$PSEADATA" sentence, its address left out.
    static constexpr unsigned long fieldCount = 9;

    Record() = default;
    explicit Record(const QString &line);
    /// An ordinary entry gets its time completed, as correctTimestamp() does.
    Record(const QString &line, int start);

    /// Takes the values of a "$PSEADATA" sentence; any other line leaves the record as it is.
    void fromNmea(const QString &line);
    /// Completes the time from the run's start, in seconds since the epoch. Without a carry: the low half of
    /// the time may lie before the start's.
    void correctTimestamp(int start);

    /// The CSV file's first line, with its line end.
    [[nodiscard]] static QString headingCSV();
    /// The entry's line, with its line end.
    [[nodiscard]] QString toCSV() const;

    /// `value` with the `width` bits from bit `shift` on replaced by the low bits of `field`.
    [[nodiscard]] static int setbits(int value, int field, int shift, int width);

    qint32 id = 0;
    qint32 number = 0; ///< data-set number; within the run once the download has subtracted the start's
    qint32 flags = 0;
    qint32 startTimestamp = 0; ///< seconds since the epoch
    qint32 timestamp = 0;      ///< seconds since the epoch
    QDateTime datetime;        ///< `timestamp` in local time
    char type = ' ';           ///< 's' start, 'v' video, 'p' photo
    double depth = 0;
    double temperature = 0;
    double heading = 0;
    double roll = 0;
    double pitch = 0;
    double reserved = 0; ///< sent, but not part of the CSV

private:
    bool takeFields(const QString &line);
    void setTime(int seconds);
};
