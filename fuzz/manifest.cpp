// A manifest or a chain of a seal, which may come from anywhere: read, written, and read again.

#include "checks/mhl.h"
#include "fuzz/target.h"

#include <QDateTime>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray content(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const MhlManifest manifest = readManifest(content);
    if (manifest.problem.isEmpty()) {
        for (const MhlRecord &file : manifest.files) {
            HOLDS(fitsManifest(file.path));
            HOLDS(!file.path.startsWith(QLatin1Char('/')));
        }
        const MhlIgnore ignore(manifest.ignored);
        HOLDS(!ignore.matches(QStringLiteral("a/b.MOV")) || !manifest.ignored.isEmpty());
        const MhlManifest again = readManifest(toXml(manifest, QDateTime::fromMSecsSinceEpoch(0, Qt::UTC)));
        HOLDS(again.problem.isEmpty());
        HOLDS(again.files == manifest.files);
    }
    const MhlChain chain = readChain(content);
    if (chain.problem.isEmpty()) {
        HOLDS(!chain.generations.isEmpty());
        HOLDS(readChain(toXml(chain.generations)).generations == chain.generations);
    }
    HOLDS(!manifest.problem.isEmpty() || !chain.problem.isEmpty());
    return 0;
}
