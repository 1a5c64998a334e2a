#include "app/appcontroller.h"
#include "app/log.h"
#include "app/paths.h"

#include <QCoreApplication>

#include <array>
#include <cstdio>

namespace {

/// Collects the three cards' last reports and ends the event loop with the last of them.
class Ending : public QObject
{
    Q_OBJECT

public:
    [[nodiscard]] const std::array<QString, 3> &texts() const { return texts_; }

public slots:
    void take(const QVariant &card, const QVariant & /*from*/, const QVariant &to, const QVariant &value,
              const QVariant &text)
    {
        // A card's own bar also runs past its maximum; only the last report has the maximum 1, or 0 on an
        // error.
        if (value.toInt() < to.toInt() || to.toInt() > 1)
            return;
        texts_.at(static_cast<std::size_t>(card.toInt() - 1)) = text.toString();
        if (++ended_ == 3)
            QCoreApplication::quit();
    }

private:
    std::array<QString, 3> texts_;
    int ended_ = 0;
};

} // namespace

/// Imports three cards as the program does, without its window, and prints what each card's import reported.
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
    Ending ending;
    QObject::connect(&controller, &AppController::updateCardProgress, &ending, &Ending::take);
    const auto argument = [argv](int i) { return QString::fromLocal8Bit(argv[i]); };
    controller.copyFiles(argument(1), argument(2), argument(3), argument(4),
                         argc == 6 ? argument(5) : QString(), {});
    QCoreApplication::exec();

    bool copied = AppController::waitForJobs(-1);
    for (const QString &text : ending.texts()) {
        std::printf("%s\n", qPrintable(text));
        copied = copied && text.startsWith(QStringLiteral("Copied "));
    }
    return copied ? 0 : 1;
}

#include "importcards.moc"
