#include "app/appcontroller.h"
#include "app/log.h"
#include "app/paths.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int pollMs = 20;
constexpr double nsPerMs = 1e6;

/// "VmHWM" (the most that was ever resident) or "VmRSS" of this process, in KiB.
long memory(const char *what)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray status = file.readAll();
    const int at = status.indexOf(what);
    return at < 0 ? 0
                  : std::strtol(status.constData() + at + static_cast<int>(std::string(what).size()) + 1,
                                nullptr, 10);
}

/// Runs the event loop, as the window does, until a job's last word; that is printed.
class Ending
{
public:
    explicit Ending(AppController *controller)
    {
        // Delivered on this thread, as the window's are.
        const auto take = [this](const QVariant & /*from*/, const QVariant &to, const QVariant &value,
                                 const QVariant &text) {
            ++reports_;
            if (value.toInt() < to.toInt())
                return;
            last_ = text.toString();
            QCoreApplication::quit();
        };
        QObject::connect(controller, &AppController::updateDataProgress, QCoreApplication::instance(), take);
        QObject::connect(controller, &AppController::updateCameraSettingsProgress,
                         QCoreApplication::instance(), take);
    }

    bool await(const char *success)
    {
        QCoreApplication::exec();
        if (last_.startsWith(QLatin1String(success)))
            return true;
        std::fprintf(stderr, "%s\n", qPrintable(last_));
        return false;
    }

    [[nodiscard]] int reports() const { return reports_; }

private:
    QString last_;
    int reports_ = 0;
};

void letPortGo()
{
    while (!AppController::waitForJobs(pollMs))
        QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

} // namespace

/// Reads the settings or downloads the data log as the program does, without its window. Prints what it took:
/// "connect" the milliseconds of each round; "dump" the milliseconds, the reports, and the memory before and
/// at most (KiB).
int main(int argc, char *argv[])
{
    const std::string job = argc > 1 ? argv[1] : "";
    if (argc != 4 || (job != "connect" && job != "dump")) {
        std::fprintf(stderr, "Usage: %s connect PORT ROUNDS | dump PORT DESTINATION\n", argv[0]);
        return 2;
    }
    resetLog();
    qInstallMessageHandler(AppMessageHandler);
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360"));
    const QCoreApplication app(argc, argv);
    setAppPathFromExecutable(QCoreApplication::applicationFilePath());

    AppController controller;
    Ending ending(&controller);
    const QString port = QString::fromLocal8Bit(argv[2]);
    QElapsedTimer timer;
    if (job == "dump") {
        const long before = memory("VmRSS:");
        timer.start();
        controller.copyData(port, QString::fromLocal8Bit(argv[3]), {});
        if (!ending.await("Wrote "))
            return 1;
        const double taken = static_cast<double>(timer.nsecsElapsed()) / nsPerMs;
        std::printf("%.1f %d %ld %ld\n", taken, ending.reports(), before, memory("VmHWM:"));
    } else {
        for (int round = std::atoi(argv[3]); round > 0; --round) {
            timer.start();
            controller.readCameraSettings(port);
            if (!ending.await("Success. "))
                return 1;
            std::printf("%.1f\n", static_cast<double>(timer.nsecsElapsed()) / nsPerMs);
            letPortGo();
        }
    }
    letPortGo();
    return 0;
}
