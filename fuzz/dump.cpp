// The lines of a dump, in any order and of any content, made into recording runs.

#include "controller/datadownload.h"
#include "controller/record.h"
#include "fuzz/target.h"

#include <QtGlobal>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const QString text = QString::fromLatin1(reinterpret_cast<const char *>(data), static_cast<int>(size));
    DumpLines lines;
    for (const QString &line : text.split(QLatin1Char('\n')))
        lines.append(line);
    const QString folder = QStringLiteral("/target");
    const CsvRuns dumped = runsOf(lines, folder, QStringLiteral("Reef"));

    const QByteArray heading = Record::headingCSV().toUtf8();
    int rows = 0;
    bool whole = true;
    for (const CsvRun &run : dumped.runs) {
        HOLDS(run.path.startsWith(folder + QLatin1Char('/')) && run.path.endsWith(QStringLiteral(".csv")));
        HOLDS(run.path.count(QLatin1Char('/')) == 2);
        HOLDS(run.content.startsWith(heading) && run.content.endsWith("\r\n"));
        rows += run.content.count("\r\n") - 1;
        whole = whole && run.whole;
    }
    // A start has no row of its own.
    HOLDS(rows + dumped.runs.size() <= lines.size());
    HOLDS(whole || dumped.gaps);
    HOLDS(!dumped.beginsAmidRun || rows < lines.size());
    return 0;
}
