#include "controller/firmwareupdate.h"

#include "app/paths.h"
#include "controller/shellcommand.h"

#include <QDir>

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
    ShellCommand command;
    QObject::connect(&command, &ShellCommand::newMessage, relay_);
    command.run(program, arguments);
    report_({0, 2, 2, command.success ? QStringLiteral("Done") : QStringLiteral("Error updating firmware.")});
}
