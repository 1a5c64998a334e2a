#include "app/appcontroller.h"
#include "app/log.h"
#include "app/paths.h"

#include <QCoreApplication>
#include <QStringList>
#include <QVariantMap>

#include <cstdio>
#include <map>

namespace {

constexpr int pollMs = 5;

} // namespace

/// Does one job as the program does, without its window, and prints what was reported last: a line "CARD
/// TEXT" for each card, "0 TEXT" for a job with the controller. 64 for wrong arguments, else 0.
///
///   import CARD1 CARD2 CARD3 DESTINATION TEMPLATE PROJECT
///   prepare CARD1 CARD2 CARD3 erase|keep sync|plain
///   download PORT DESTINATION PROJECT
///   connect PORT | save PORT | reset PORT | erase PORT | off PORT
///   settings KEY VALUE        stores a value; prints all of them
int main(int argc, char *argv[])
{
    resetLog();
    qInstallMessageHandler(AppMessageHandler);
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360"));
    const QCoreApplication app(argc, argv);
    setAppPathFromExecutable(QCoreApplication::applicationFilePath());
    const QStringList words = QCoreApplication::arguments().mid(1);
    const QString job = words.value(0);

    AppController controller;
    std::map<int, QString> last;
    // Delivered on this thread, as the window's are.
    QObject::connect(&controller, &AppController::updateCardProgress, &app,
                     [&last](const QVariant &card, const QVariant & /*from*/, const QVariant & /*to*/,
                             const QVariant & /*value*/,
                             const QVariant &text) { last[card.toInt()] = text.toString(); });
    const auto take = [&last](const QVariant & /*from*/, const QVariant & /*to*/, const QVariant & /*value*/,
                              const QVariant &text) { last[0] = text.toString(); };
    QObject::connect(&controller, &AppController::updateDataProgress, &app, take);
    QObject::connect(&controller, &AppController::updateCameraSettingsProgress, &app, take);

    if (job == QLatin1String("import") && words.size() == 7) {
        controller.copyFiles(words.at(1), words.at(2), words.at(3), words.at(4), words.at(5), words.at(6));
    } else if (job == QLatin1String("prepare") && words.size() == 6) {
        controller.eraseCards(words.at(1), words.at(2), words.at(3), words.at(4) == QLatin1String("erase"),
                              words.at(5) == QLatin1String("sync"));
    } else if (job == QLatin1String("download") && words.size() == 4) {
        controller.copyData(words.at(1), words.at(2), words.at(3));
    } else if (job == QLatin1String("connect") && words.size() == 2) {
        controller.readCameraSettings(words.at(1));
    } else if (job == QLatin1String("save") && words.size() == 2) {
        controller.saveCameraSettings(words.at(1), QStringLiteral("2019-02-21 22:46:44"), 1, 2, 20, 30, 29);
    } else if (job == QLatin1String("reset") && words.size() == 2) {
        controller.resetCameraSettings(words.at(1));
    } else if (job == QLatin1String("erase") && words.size() == 2) {
        controller.eraseMemory(words.at(1));
    } else if (job == QLatin1String("off") && words.size() == 2) {
        controller.turnOff(words.at(1));
    } else if (job == QLatin1String("settings") && words.size() == 3) {
        controller.updateSettings({{words.at(1), words.at(2)}});
        const QVariantMap settings = controller.getSettings();
        for (auto entry = settings.cbegin(); entry != settings.cend(); ++entry)
            std::printf("%s=%s\n", qPrintable(entry.key()), qPrintable(entry.value().toString()));
    } else {
        return 64;
    }
    while (!AppController::waitForJobs(pollMs))
        QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    for (const auto &[card, text] : last)
        std::printf("%d %s\n", card, qPrintable(text));
    return 0;
}
