#include "controller/firmwareupdate.h"

#include "app/paths.h"
#include "controller/shellcommand.h"

#include <QDebug>
#include <QDir>

#include <exception>
#include <utility>

FirmwareUpdate::FirmwareUpdate(QString port, QString filePath, ProgressReport report,
                               std::function<void(const QString &)> relay)
    : port_(std::move(port))
    , filePath_(std::move(filePath))
    , report_(std::move(report))
    , relay_(std::move(relay))
{
}

void FirmwareUpdate::run()
{
    const QString program = QDir(getUtilitiesDir()).absoluteFilePath(QStringLiteral("bootloader"));
    // One argument with a blank: the shell makes two words of it.
    const QStringList arguments = {QStringLiteral("-p /dev/%1").arg(port_),
                                   QDir(getFirmwareDir()).absoluteFilePath(filePath_)};
    bool success = false;
    try {
        ShellCommand command;
        QObject::connect(&command, &ShellCommand::newMessage, relay_);
        command.run(program, arguments);
        success = command.success;
    } catch (const std::exception &error) {
        qWarning().noquote() << "The firmware update failed:" << QString::fromLocal8Bit(error.what());
    }
    report_({0, 2, 2, success ? QStringLiteral("Done") : QStringLiteral("Error updating firmware.")});
}
