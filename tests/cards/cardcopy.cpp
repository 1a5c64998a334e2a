#include "app/settings.h"
#include "cards/filecopy.h"
#include "cards/mediaimport.h"
#include "stitching/autopano.h"
#include "stitching/templates.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>

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
        return 2;
    }
    return 3;
}

/// CARD SOURCE TARGET TEMPLATE PROJECT N: imports a card and pauses at its N-th report.
int importCard(const QStringList &arguments)
{
    ImportProjects projects;
    projects.fallbackPicture = templatePicture;
    projects.writeVideoProject = [](int card, const QString &templatePath, const QString &take,
                                    const QString &name) {
        Autopano::createKava(card, templatePath, take, name, loadSettings());
    };
    projects.writePhotoProject = [](int card, const QString &templatePath, const QString &take,
                                    const QString &name) {
        Autopano::createPano(card, templatePath, take, name, loadSettings());
    };
    const int pauseAt = arguments.at(5).toInt();
    int reports = 0;
    const ProgressReport report = [&](const Progress &) {
        if (++reports == pauseAt)
            pause("reported");
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
    if (arguments.size() == 7 && arguments.first() == QStringLiteral("import"))
        return importCard(arguments.mid(1));
    if (arguments.size() == 3 && arguments.first() == QStringLiteral("publish"))
        return publishOne(arguments.mid(1));
    return 64;
}
