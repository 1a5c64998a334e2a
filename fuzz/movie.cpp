// A movie or a photo, which may be damaged in any way: its header is read in few and small steps.

#include "checks/movie.h"

#include "checks/exif.h"
#include "fuzz/countingbuffer.h"
#include "fuzz/target.h"

#include <QtGlobal>

namespace {

void check(const QByteArray &content, RecordingTime (*read)(QIODevice &))
{
    QByteArray bytes = content;
    CountingBuffer file(&bytes);
    HOLDS(file.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    const RecordingTime time = read(file);
    constexpr qint64 most = 1'000'000;
    HOLDS(file.bytesRead() < most);
    HOLDS(time.length >= -1);
    // The same twice, and nothing of a file that has no time.
    HOLDS(read(file).problem == time.problem);
    HOLDS(time.problem.isEmpty() || time.start == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // A place beyond the end of the buffer is told as a warning; of a file, nothing is read there.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const QByteArray content(reinterpret_cast<const char *>(data), static_cast<int>(size));
    check(content, readMovieTime);
    check(content, readPhotoTime);
    return 0;
}
