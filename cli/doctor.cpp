#include "cards/drives.h"
#include "checks/filename.h"
#include "cli/commands.h"
#include "cli/output.h"
#include "controller/pseacomms.h"
#include "controller/pseaconfig.h"
#include "platform/portaccess.h"
#include "platform/portholder.h"
#include "platform/stopflag.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QSerialPortInfo>

#include <algorithm>
#include <array>

namespace {

/// What is wrong, and what to type about it.
struct Finding
{
    QString kind;
    QString text;
    QString command;
};

/// One port or volume, as lines and for JSON.
struct Report
{
    QString title;
    QString verdict;
    QList<Finding> findings;
    QJsonObject object;
    bool answers = false;
};

QString quoted(QString path)
{
    return QLatin1Char('\'') + path.replace(QLatin1Char('\''), QStringLiteral("'\\''")) + QLatin1Char('\'');
}

QJsonArray toJson(const QList<Finding> &findings)
{
    QJsonArray list;
    for (const Finding &finding : findings)
        list.append(QJsonObject{{QStringLiteral("kind"), finding.kind},
                                {QStringLiteral("text"), finding.text},
                                {QStringLiteral("command"), finding.command}});
    return list;
}

void write(const Output &output, const QList<Finding> &findings, const QString &indent)
{
    for (const Finding &finding : findings)
        output.line(QStringLiteral("%1%2 Type: %3").arg(indent, finding.text, finding.command));
}

void write(const Output &output, Report &report, QJsonArray *list)
{
    output.line(QStringLiteral("%1: %2").arg(report.title, report.verdict));
    write(output, report.findings, QStringLiteral("  "));
    report.object.insert(QStringLiteral("findings"), toJson(report.findings));
    list->append(report.object);
}

QString usbIds(const QSerialPortInfo &port)
{
    if (!port.hasVendorIdentifier() || !port.hasProductIdentifier())
        return {};
    constexpr int width = 4;
    constexpr int base = 16;
    return QStringLiteral("%1:%2")
        .arg(port.vendorIdentifier(), width, base, QLatin1Char('0'))
        .arg(port.productIdentifier(), width, base, QLatin1Char('0'));
}

Finding noPort()
{
    return {QStringLiteral("no port"),
            QStringLiteral(
                "There is no USB serial port: connect the controller with a cable that carries data, and tap "
                "its record button twice."),
            QStringLiteral("sudo dmesg | tail")};
}

Finding braille(const QString &ids)
{
    return {QStringLiteral("braille"),
            QStringLiteral(
                "The braille daemon brltty claims the USB device %1, which then has no port: if nobody "
                "uses a braille display, remove it, and plug the device in anew.")
                .arg(ids),
            QStringLiteral("sudo apt remove brltty")};
}

Finding noPermission(const PortAccess &access, const QString &location)
{
    if (access.nextLogin)
        return {QStringLiteral("next login"),
                QStringLiteral("This user is in the group \"%1\" from the next login on: log out and in "
                               "again, or join it in this terminal alone.")
                    .arg(access.group),
                QStringLiteral("newgrp ") + access.group};
    if (!access.group.isEmpty())
        return {QStringLiteral("no permission"),
                QStringLiteral("This user may not open it: join the group \"%1\", then log out and in again.")
                    .arg(access.group),
                QStringLiteral("sudo usermod -aG %1 $USER").arg(access.group)};
    return {QStringLiteral("no permission"),
            QStringLiteral("This user may not open it, and no group may: take it until it is unplugged."),
            QStringLiteral("sudo chown $USER %1").arg(location)};
}

/// Asks a port that nobody holds for the version, which changes nothing and makes no sound.
void ask(const Call &call, const QString &port, Report *report)
{
    PSEAComms link(&call.stop);
    if (!link.open(port)) {
        report->verdict = QStringLiteral("not asked.");
        // Only root sees what other users' programs hold.
        report->findings.append(
            {QStringLiteral("not opened"),
             QStringLiteral("It could not be opened (%1): look whether another user's program "
                            "holds it.")
                 .arg(link.lastError_.isEmpty() ? QStringLiteral("it is gone") : link.lastError_),
             QStringLiteral("sudo kelpora360-cli doctor ") + port});
        return;
    }
    // Some controllers start when their port is opened, and say so.
    link.skipUntilQuiet();
    static_cast<void>(link.getVersion());
    report->answers = !link.version_.isEmpty();
    if (!report->answers && call.stop.isRaised()) {
        report->verdict = QStringLiteral("stopped.");
        return;
    }
    report->object.insert(QStringLiteral("answers"), report->answers);
    if (!report->answers) {
        report->verdict = QStringLiteral("no answer.");
        report->findings.append(
            {QStringLiteral("no answer"),
             QStringLiteral("Nobody answers: charge the rig if need be, switch it on, tap its record "
                            "button twice, and try again."),
             QStringLiteral("kelpora360-cli doctor ") + port});
        return;
    }
    const QString battery = voltsToPercent(link.batteryVoltage_);
    report->verdict =
        QStringLiteral("the controller answers (firmware %1, battery %2).").arg(link.version_, battery);
    report->object.insert(QStringLiteral("firmware"), link.version_);
    report->object.insert(QStringLiteral("battery"), battery);
}

/// The state of a port; of one that is to be left alone, without findings.
Report examinePort(const Call &call, const QJsonObject &entry, const QStringList &brailleIds, bool leaveAlone)
{
    const QString name = entry.value(QStringLiteral("name")).toString();
    const QString location = entry.value(QStringLiteral("location")).toString();
    const QString serial = entry.value(QStringLiteral("serial")).toString();
    const QString ids = usbIds(QSerialPortInfo(name));
    const PortAccess access = portAccess(location);
    const PortHolder holder = portHolder(location);

    Report report;
    QStringList known = {entry.value(QStringLiteral("description")).toString(),
                         entry.value(QStringLiteral("manufacturer")).toString(),
                         ids.isEmpty() ? QString() : QStringLiteral("USB ") + ids,
                         serial.isEmpty() ? QString() : QStringLiteral("serial number ") + serial};
    known.removeAll(QString());
    report.title =
        known.isEmpty() ? name : QStringLiteral("%1 (%2)").arg(name, known.join(QStringLiteral(", ")));
    report.object = entry;
    report.object.insert(QStringLiteral("usb"), ids);
    report.object.insert(QStringLiteral("mayOpen"), access.mayOpen);
    report.object.insert(QStringLiteral("group"), access.group);
    report.object.insert(QStringLiteral("nextLogin"), access.nextLogin);
    report.object.insert(QStringLiteral("holder"), holder.text);
    report.object.insert(QStringLiteral("modemManager"), access.modemManager);
    report.object.insert(QStringLiteral("braille"), brailleIds.contains(ids));
    report.object.insert(QStringLiteral("answers"), QJsonValue::Null);
    report.verdict = QStringLiteral("not asked.");
    if (leaveAlone) {
        report.verdict = QStringLiteral("no USB device, not asked.");
        return report;
    }

    if (!access.mayOpen)
        report.findings.append(noPermission(access, location));
    if (!holder.process.isEmpty())
        report.findings.append(
            {QStringLiteral("held"),
             QStringLiteral("It is in use by %1: close that program, or end it.").arg(holder.text),
             (holder.lockOnly ? QStringLiteral("ps -fp ") : QStringLiteral("kill ")) + holder.process});
    if (access.mayOpen && holder.process.isEmpty())
        ask(call, name, &report);
    if (access.modemManager)
        report.findings.append(
            {QStringLiteral("modem manager"),
             QStringLiteral(
                 "ModemManager has not been told to leave this port alone, and may hold it for half a "
                 "minute after it is plugged in: if there is no mobile modem, switch it off."),
             QStringLiteral("sudo systemctl disable --now ModemManager")});
    if (brailleIds.contains(ids))
        report.findings.append(braille(ids));
    if (report.answers && report.findings.isEmpty())
        report.verdict.prepend(QStringLiteral("all well, "));
    return report;
}

/// Whether something hinders the operator at the ports: all of them, or `wanted`.
bool examinePorts(const Call &call, const QString &wanted)
{
    const QStringList brailleIds = brailleDevices();
    QStringList unseen = brailleIds;
    QStringList names;
    QJsonArray list;
    bool answered = false;
    bool foundWhereAnswered = false;
    bool found = false;
    bool known = wanted.isEmpty();
    bool usable = false;
    for (const QVariant &device : PSEAComms::getDevices()) {
        const QJsonObject entry = device.toJsonObject();
        const QString name = entry.value(QStringLiteral("name")).toString();
        names.append(name);
        unseen.removeAll(usbIds(QSerialPortInfo(name)));
        if (call.stop.isRaised() || (!wanted.isEmpty() && wanted != name &&
                                     wanted != entry.value(QStringLiteral("location")).toString()))
            continue;
        known = true;
        // The controller is a USB device. Nobody knows how what else hangs at a port takes a request.
        const bool leaveAlone = wanted.isEmpty() && usbIds(QSerialPortInfo(name)).isEmpty();
        usable = usable || !leaveAlone;
        Report report = examinePort(call, entry, brailleIds, leaveAlone);
        write(call.output, report, &list);
        answered = answered || report.answers;
        found = found || !report.findings.isEmpty();
        foundWhereAnswered = foundWhereAnswered || (report.answers && !report.findings.isEmpty());
    }
    QList<Finding> general;
    if (!known && !names.isEmpty())
        general.append({QStringLiteral("no such port"),
                        QStringLiteral("There is no port %1, but %2.")
                            .arg(shown(pathOf(wanted)), names.join(QStringLiteral(", "))),
                        QStringLiteral("kelpora360-cli doctor ") + names.first()});
    else if (!usable && !call.stop.isRaised())
        general.append(noPort());
    if (!known || wanted.isEmpty()) {
        for (const QString &ids : unseen)
            general.append(braille(ids));
    }
    write(call.output, general, QString());
    call.output.set(QStringLiteral("ports"), list);
    call.output.set(QStringLiteral("findings"), toJson(general));
    // What is wrong at other ports is no matter once a controller answers.
    return answered ? foundWhereAnswered : found || !general.isEmpty();
}

/// Cards by their labels whose volumes are not mounted.
QList<Finding> unmountedCards()
{
    const QDir labels(QStringLiteral("/dev/disk/by-label"));
    QStringList mounted;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes())
        mounted.append(QFileInfo(QString::fromLocal8Bit(volume.device())).canonicalFilePath());
    QList<Finding> findings;
    for (const QFileInfo &label : labels.entryInfoList(QDir::System | QDir::Files)) {
        const int card = cardOf({}, label.fileName());
        const QString device = label.canonicalFilePath();
        if (card > 0 && !device.isEmpty() && !mounted.contains(device))
            findings.append({QStringLiteral("not mounted"),
                             QStringLiteral("%1 is called %2, as card %3 is, but it is not mounted.")
                                 .arg(device, shown(pathOf(label.fileName())))
                                 .arg(card),
                             QStringLiteral("udisksctl mount -b ") + quoted(device)});
    }
    return findings;
}

/// Whether something hinders the use of the cards that are there.
bool examineCards(const Call &call)
{
    struct Volume
    {
        QString path;
        QString name;
        int card;
        bool readOnly;
        QString fileSystem;
    };
    QList<Volume> volumes;
    std::array<QString, 4> chosen; // by card
    for (const QStorageInfo &volume : Drives(Drives::Which::ReadOnlyToo).volumes()) {
        const QString path = volume.rootPath();
        const QString name = volume.displayName();
        const int card = cardOf(path, name);
        // The window doesn't list the others.
        if (volume.isReadOnly() && card == 0)
            continue;
        volumes.append({path, name, card, volume.isReadOnly(), QString::fromLatin1(volume.fileSystemType())});
        if (!volume.isReadOnly())
            chosen.at(static_cast<std::size_t>(card)) = path;
    }

    bool found = false;
    QJsonArray list;
    for (const Volume &volume : volumes) {
        const bool isChosen =
            volume.card > 0 && chosen.at(static_cast<std::size_t>(volume.card)) == volume.path;
        const bool writable = !volume.readOnly && QFileInfo(volume.path).isWritable();
        Report report;
        report.title =
            QStringLiteral("%1: %2 (%3)")
                .arg(isChosen ? QStringLiteral("Card %1").arg(volume.card) : QStringLiteral("Not chosen"))
                .arg(shown(pathOf(volume.name)))
                .arg(shown(pathOf(volume.path)));
        report.verdict = QStringLiteral("%1, %2.").arg(
            volume.fileSystem, writable          ? QStringLiteral("writable")
                               : volume.readOnly ? QStringLiteral("write-protected")
                                                 : QStringLiteral("not writable for this user"));
        if (volume.readOnly)
            report.findings.append(
                {QStringLiteral("write-protected"),
                 QStringLiteral(
                     "It fits card %1, but the window doesn't list it: open the card's lock and put it "
                     "in again, or choose its folder with \"...\" for an import.")
                     .arg(volume.card),
                 QStringLiteral("sudo mount -o remount,rw ") + quoted(volume.path)});
        else if (isChosen && !writable)
            report.findings.append(
                {QStringLiteral("not writable"),
                 QStringLiteral("It can be imported from, but not erased by this user: unmount "
                                "it, and put it in anew."),
                 QStringLiteral("sudo umount ") + quoted(volume.path)});
        else if (volume.card > 0 && !isChosen)
            report.findings.append(
                {QStringLiteral("same card"),
                 QStringLiteral("It fits card %1 as well, and the window takes the last: remove or "
                                "rename the one that is not the card.")
                     .arg(volume.card),
                 QStringLiteral("umount ") + quoted(volume.path)});
        else if (isChosen)
            report.verdict.prepend(QStringLiteral("all well, "));
        report.object = {{QStringLiteral("path"), shown(pathOf(volume.path))},
                         {QStringLiteral("name"), shown(pathOf(volume.name))},
                         {QStringLiteral("fileSystem"), volume.fileSystem},
                         {QStringLiteral("writable"), writable},
                         {QStringLiteral("card"), isChosen ? QJsonValue(volume.card) : QJsonValue::Null}};
        write(call.output, report, &list);
        found = found || !report.findings.isEmpty();
    }
    for (std::size_t card = 1; card < chosen.size(); ++card) {
        if (chosen.at(card).isEmpty())
            call.output.line(
                QStringLiteral("Card %1: no volume is chosen. Name the card 360_0%1 and put it in.")
                    .arg(card));
    }
    const QList<Finding> unmounted = unmountedCards();
    write(call.output, unmounted, QString());
    call.output.set(QStringLiteral("cards"), list);
    call.output.set(QStringLiteral("unmounted"), toJson(unmounted));
    return found || !unmounted.isEmpty();
}

} // namespace

Exit diagnose(const Call &call)
{
    const QString port = call.arguments.value(0);
    bool found = examinePorts(call, port);
    if (port.isEmpty() && !call.stop.isRaised())
        found = examineCards(call) || found;
    return found ? Exit::Finding : Exit::Good;
}
