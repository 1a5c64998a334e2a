#include "app/appcontroller.h"
#include "app/log.h"
#include "app/paths.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int pollMs = 5;

void finishJobs()
{
    while (!AppController::waitForJobs(pollMs))
        QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

/// What is resident of this process, in KiB.
long residentMemory()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    const QList<QByteArray> pages =
        file.open(QIODevice::ReadOnly) ? file.readAll().split(' ') : QList<QByteArray>();
    return pages.size() < 2 ? 0 : pages.at(1).toLong() * ::sysconf(_SC_PAGESIZE) / 1024;
}

/// Open ones but for sockets: the mocked port leaves one of its own behind whenever it can't be opened, and
/// the program has none.
int openDescriptors()
{
    namespace fs = std::filesystem;
    int count = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = fs::read_symlink(entry.path(), gone).string();
        count += gone || target.rfind("socket:", 0) == 0 ? 0 : 1;
    }
    return count;
}

void soak(AppController *controller, const std::map<int, QString> &last, const QStringList &words)
{
    const QString &port = words.at(1);
    const std::array<std::function<void()>, 3> jobs = {
        [&] { controller->readCameraSettings(port); },
        [&] {
            controller->saveCameraSettings(port, QStringLiteral("2019-02-21 22:46:44"), 1, 2, 20, 30, 29);
        },
        [&] { controller->copyData(port, words.at(2), {}); },
    };
    for (int round = words.at(3).toInt(); round > 0; --round) {
        int succeeded = 0;
        for (const std::function<void()> &job : jobs) {
            job();
            finishJobs();
            succeeded += last.at(0).startsWith(QLatin1String("Error")) ? 0 : 1;
        }
        std::printf("%d %ld %d\n", succeeded, residentMemory(), openDescriptors());
        std::fflush(stdout);
        // Until the cable may be back.
        if (succeeded == 0)
            QThread::msleep(pollMs * 10);
    }
}

} // namespace

/// Does one job as the program does, without its window, and prints what was reported last: a line "CARD
/// TEXT" for each card, "0 TEXT" for a job with the controller. 64 for wrong arguments, else 0.
///
///   import CARD1 CARD2 CARD3 DESTINATION TEMPLATE PROJECT
///   prepare CARD1 CARD2 CARD3 erase|keep sync|plain
///   download PORT DESTINATION PROJECT
///   connect PORT | save PORT | reset PORT | erase PORT | off PORT
///   settings KEY VALUE   stores a value; prints all of them
///   soak PORT DESTINATION ROUNDS
///
/// "soak" connects, saves and downloads again and again, and prints a line for each round: how many of the
/// three succeeded, memory (KiB), descriptors.
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
    } else if (job == QLatin1String("soak") && words.size() == 4) {
        soak(&controller, last, words);
        return 0;
    } else {
        return 64;
    }
    finishJobs();
    for (const auto &[card, text] : last)
        std::printf("%d %s\n", card, qPrintable(text));
    return 0;
}
