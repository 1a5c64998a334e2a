#include "app/settings.h"
#include "cards/filecopy.h"
#include "cards/mediaimport.h"
#include "stitching/autopano.h"
#include "stitching/templates.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <sys/resource.h>

namespace {

/// Says where it is and waits to be told to go on.
void pause(const char *where)
{
    std::printf("%s\n", where);
    std::fflush(stdout);
    static_cast<void>(std::getchar());
}

/// SOURCE DESTINATION: copies the content, pauses, gives the copy its name. 0 done, 1 the name was taken.
int publishOne(const QStringList &arguments)
{
    const StopFlag stop;
    StagedCopy copy(arguments.at(0), QFileInfo(arguments.at(1)).absolutePath(), stop);
    if (!copy.isWhole())
        return 3;
    pause("staged");
    switch (copy.publish(arguments.at(1))) {
    case Publish::Done:
        return 0;
    case Publish::Exists:
        return 1;
    case Publish::Failed:
    case Publish::NotOnDisk:
        return 2;
    }
    return 3;
}

/// Lets the system kill this process at its next attempt to write past byte `bytes` of a file.
void killPast(rlim_t bytes)
{
    const rlimit noCore = {0, 0};
    const rlimit limit = {bytes, bytes};
    ::setrlimit(RLIMIT_CORE, &noCore);
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

/// CARD SOURCE TARGET TEMPLATE PROJECT N BYTES: imports a card. From its N-th report on, the process is
/// killed when it writes past byte BYTES of a file; with "pause" for BYTES it waits at that report instead.
int importCard(const QStringList &arguments)
{
    ImportProjects projects;
    projects.fallbackPicture = templatePicture;
    projects.writeVideoProject = [](int card, const QString &templatePath, const QString &take,
                                    const QString &name) {
        return Autopano().writeKava(card, templatePath, take, name, loadSettings);
    };
    projects.writePhotoProject = [](int card, const QString &templatePath, const QString &take,
                                    const QString &name) {
        return Autopano().writePano(card, templatePath, take, name, loadSettings);
    };
    const int position = arguments.at(5).toInt();
    const bool waits = arguments.at(6) == QStringLiteral("pause");
    const rlim_t bytes = arguments.at(6).toULong();
    int reports = 0;
    const ProgressReport report = [&](const Progress &) {
        if (++reports != position)
            return;
        if (waits)
            pause("reported");
        else
            killPast(bytes);
    };
    const StopFlag stop;
    MediaImport import(
        {arguments.at(0).toInt(), arguments.at(1), arguments.at(2), arguments.at(3), arguments.at(4)},
        std::move(projects), report, stop);
    return import.run() ? 0 : 1;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() == 8 && arguments.first() == QStringLiteral("import"))
        return importCard(arguments.mid(1));
    if (arguments.size() == 3 && arguments.first() == QStringLiteral("publish"))
        return publishOne(arguments.mid(1));
    return 64;
}
