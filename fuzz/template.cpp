// A template project, which may come from anywhere: read, written, and read again.

#include "fuzz/target.h"
#include "stitching/projectxml.h"

#include <QFile>
#include <QTemporaryFile>

namespace {

QDomDocument Read(const QByteArray &content)
{
    static QTemporaryFile file;
    static const bool open = file.open();
    HOLDS(open && file.resize(0) && file.seek(0) && file.write(content) == content.size() && file.flush());
    return readTemplate(file.fileName());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QDomDocument document =
        Read(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    const QByteArray written = toXml(document);
    HOLDS(document.isNull() == written.isEmpty());
    HOLDS(toXml(document) == written);
    static_cast<void>(toPanoXml(document.documentElement()));
    if (!document.isNull())
        static_cast<void>(toXml(Read(written)));
    return 0;
}
