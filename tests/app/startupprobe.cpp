#include <QCoreApplication>
#include <QFile>
#include <QGenericPlugin>
#include <QGuiApplication>
#include <QTimer>
#include <QWindow>

namespace {

void report()
{
    QFile file(QFile::decodeName(qgetenv("STARTUP_REPORT")));
    if (!file.open(QIODevice::WriteOnly))
        return;
    const auto line = [&file](const char *name, const QByteArray &value) {
        file.write(name + QByteArray("=") + value + '\n');
    };
    for (const char *name : {"QT_SCALE_FACTOR", "QT_AUTO_SCREEN_SCALE_FACTOR"})
        line(name, qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray("unset"));
    line("highDpi", QCoreApplication::testAttribute(Qt::AA_EnableHighDpiScaling) ? "1" : "0");
    line("name", QCoreApplication::applicationName().toUtf8());
    line("version", QCoreApplication::applicationVersion().toUtf8());
}

/// Waits until the program's window is shown and has its pages, if it loads them later; reports and closes it
/// as its user would.
class Probe : public QObject
{
    Q_OBJECT

public:
    Probe()
    {
        connect(&timer_, &QTimer::timeout, this, &Probe::look);
        timer_.start(50);
    }

private:
    void look()
    {
        const QWindowList windows = QGuiApplication::topLevelWindows();
        for (QWindow *window : windows) {
            const QVariant ready = window->property("ready");
            if (ready.isValid() ? ready.toBool() : window->isExposed()) {
                timer_.stop();
                report();
                window->close();
                return;
            }
        }
    }

    QTimer timer_;
};

} // namespace

class StartupProbePlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "startupprobe.json")

public:
    QObject *create(const QString & /*key*/, const QString & /*value*/) override { return new Probe; }
};

#include "startupprobe.moc"
