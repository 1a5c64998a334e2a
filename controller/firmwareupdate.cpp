#include "controller/firmwareupdate.h"

#include "controller/shellcommand.h"

#include <QDebug>
#include <QDir>

#include <exception>
#include <utility>

FirmwareUpdate::FirmwareUpdate(FirmwareRequest request)
    : request_(std::move(request))
{
}

void FirmwareUpdate::run() const
{
    const QString program = QDir(request_.utilitiesDir).absoluteFilePath(QStringLiteral("bootloader"));
    // One argument with a blank: the shell makes two words of it.
    const QStringList arguments = {QStringLiteral("-p /dev/%1").arg(request_.port),
                                   QDir(request_.firmwareDir).absoluteFilePath(request_.filePath)};
    bool success = false;
    try {
        ShellCommand command;
        QObject::connect(&command, &ShellCommand::newMessage, request_.relay);
        if (request_.stop == nullptr || !request_.stop->isRaised())
            command.run(program, arguments);
        success = command.success;
    } catch (const std::exception &error) {
        qWarning().noquote() << "The firmware update failed:" << QString::fromLocal8Bit(error.what());
    }
    request_.report({0, 2, 2, success ? QStringLiteral("Done") : QStringLiteral("Error updating firmware.")});
}
