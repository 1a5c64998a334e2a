#include "cli/commands.h"
#include "cli/output.h"
#include "controller/settingsjobs.h"
#include "platform/portholder.h"

#include <QJsonArray>

#include <optional>

Exit listPorts(const Call &call)
{
    QJsonArray ports;
    for (const QVariant &device : PSEAComms::getDevices()) {
        const QJsonObject port = device.toJsonObject();
        QString line = port.value(QStringLiteral("name")).toString();
        for (const char *key : {"description", "manufacturer", "serial"}) {
            const QString text = port.value(QLatin1String(key)).toString();
            if (!text.isEmpty())
                line += QStringLiteral(", ") + text;
        }
        call.output.line(line);
        ports.append(port);
    }
    call.output.set(QStringLiteral("ports"), ports);
    return Exit::Good;
}

Exit readSettings(const Call &call)
{
    QString port = call.arguments.first();
    for (const QVariant &device : PSEAComms::getDevices()) {
        const QJsonObject entry = device.toJsonObject();
        const QString name = entry.value(QStringLiteral("name")).toString();
        const QString location = entry.value(QStringLiteral("location")).toString();
        if (port != name && port != location)
            continue;
        port = name;
        const PortHolder holder = portHolder(location);
        if (!holder.process.isEmpty()) {
            call.output.complain(QStringLiteral("%1 is in use by %2.").arg(port, holder.text));
            return Exit::NotChecked;
        }
    }
    QString last;
    std::optional<CameraSettings> settings;
    ControllerRequest request;
    request.port = port;
    request.report = [&last](const Progress &progress) { last = progress.text; };
    request.relay = [](const QString & /*message*/) {};
    request.stop = &call.stop;
    ReadSettings(std::move(request), [&settings](const CameraSettings &read) { settings = read; }).run();
    if (!settings) {
        call.output.complain(last);
        return Exit::NotChecked;
    }
    const QList<QPair<QString, QJsonValue>> rows = {
        {QStringLiteral("firmware"), settings->firmware},
        {QStringLiteral("battery"), settings->battery},
        {QStringLiteral("date"), settings->date},
        {QStringLiteral("recLedOn"), settings->recLedOn != 0},
        {QStringLiteral("videoLoggingInterval"), settings->loggingIntervalSeconds},
        {QStringLiteral("timelapseInterval"), static_cast<double>(settings->timelapseIntervalSeconds)},
        {QStringLiteral("timelapseTimeout"), settings->timelapseTimeoutMinutes},
        {QStringLiteral("cameraFirmware"), settings->e1FirmwareVersion},
    };
    for (const auto &row : rows) {
        call.output.line(row.first + QStringLiteral(": ") + row.second.toVariant().toString());
        call.output.set(row.first, row.second);
    }
    return Exit::Good;
}
