#pragma once

#include <QBuffer>

/// Counts what is read.
class CountingBuffer : public QBuffer
{
public:
    using QBuffer::QBuffer;
    [[nodiscard]] qint64 bytesRead() const { return bytesRead_; }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        const qint64 read = QBuffer::readData(data, size);
        bytesRead_ += read;
        return read;
    }

private:
    qint64 bytesRead_ = 0;
};
