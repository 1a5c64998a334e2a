#include "app/appcontroller.h"
#include "app/log.h"
#include "app/paths.h"

#include <QCoreApplication>

#include <array>
#include <cstdio>

namespace {

constexpr int pollMs = 20;

} // namespace

/// Imports three cards as the program does, without its window, and prints what each card's import said last.
int main(int argc, char *argv[])
{
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "Usage: %s CARD1 CARD2 CARD3 DESTINATION [TEMPLATE]\n", argv[0]);
        return 2;
    }
    resetLog();
    qInstallMessageHandler(AppMessageHandler);
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360"));
    const QCoreApplication app(argc, argv);
    setAppPathFromExecutable(QCoreApplication::applicationFilePath());

    AppController controller;
    std::array<QString, 3> lastTexts;
    // Delivered on this thread, as the window's are.
    QObject::connect(&controller, &AppController::updateCardProgress, &app,
                     [&lastTexts](const QVariant &card, const QVariant & /*from*/, const QVariant & /*to*/,
                                  const QVariant & /*value*/, const QVariant &text) {
                         lastTexts.at(static_cast<std::size_t>(card.toInt() - 1)) = text.toString();
                     });
    const auto argument = [argv](int i) { return QString::fromLocal8Bit(argv[i]); };
    controller.copyFiles(argument(1), argument(2), argument(3), argument(4),
                         argc == 6 ? argument(5) : QString(), {});
    while (!AppController::waitForJobs(pollMs))
        QCoreApplication::processEvents();
    QCoreApplication::processEvents();

    bool copied = true;
    for (const QString &text : lastTexts) {
        std::printf("%s\n", qPrintable(text));
        copied = copied && text.startsWith(QStringLiteral("Copied "));
    }
    return copied ? 0 : 1;
}
