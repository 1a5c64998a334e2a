#include "platform/portaccess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <algorithm>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

using Properties = QMap<QByteArray, QByteArray>;

void readProperties(const QString &path, const QByteArray &prefix, Properties *properties)
{
    for (const QByteArray &line : contentOf(path).split('\n')) {
        const int equals = line.indexOf('=');
        if (line.startsWith(prefix) && equals > prefix.size())
            properties->insert(line.mid(prefix.size(), equals - prefix.size()), line.mid(equals + 1));
    }
}

/// What the kernel and the rules of udev say about the device at `folder` below /sys.
Properties propertiesOf(const QString &folder)
{
    Properties properties;
    readProperties(folder + QStringLiteral("/uevent"), {}, &properties);
    // The names of udev's records; a serial port and a USB device are both character devices.
    const QString record = QStringLiteral("/run/udev/data/c%1:%2")
                               .arg(QString::fromLatin1(properties.value("MAJOR")))
                               .arg(QString::fromLatin1(properties.value("MINOR")));
    readProperties(record, "E:", &properties);
    return properties;
}

QString ttyFolder(const QString &device)
{
    return QFileInfo(QStringLiteral("/sys/class/tty/") + QFileInfo(device).fileName()).canonicalFilePath();
}

/// The folder of the USB device to which the one at `folder` belongs; empty if there is none.
QString usbFolder(QString folder)
{
    while (!folder.isEmpty() && !QFileInfo::exists(folder + QStringLiteral("/idVendor")))
        folder.truncate(std::max(folder.lastIndexOf(QLatin1Char('/')), 0));
    return folder;
}

QString idsAt(const QString &folder)
{
    const QByteArray vendor = contentOf(folder + QStringLiteral("/idVendor")).trimmed();
    const QByteArray product = contentOf(folder + QStringLiteral("/idProduct")).trimmed();
    return vendor.isEmpty() ? QString() : QString::fromLatin1(vendor + ':' + product);
}

/// Whether the group database names the user as a member, as the next login will find.
bool isMember(const group &found)
{
    const passwd *user = ::getpwuid(::getuid());
    if (user == nullptr)
        return false;
    bool member = false;
    for (char **name = found.gr_mem; *name != nullptr && !member; ++name)
        member = qstrcmp(*name, user->pw_name) == 0;
    return member;
}

bool runs(const QByteArray &program)
{
    const QStringList processes =
        QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs);
    return std::any_of(processes.cbegin(), processes.cend(), [&](const QString &process) {
        return contentOf(QStringLiteral("/proc/%1/comm").arg(process)).trimmed() == program;
    });
}

bool startsWithSystem(const QString &service)
{
    // A link, which may name a file that only the service manager sees.
    const QFileInfo link(
        QStringLiteral("/etc/systemd/system/multi-user.target.wants/%1.service").arg(service));
    return link.isSymLink() || link.exists();
}

/// Whether the modem manager's own rules name the port as one to try, and no rule tells it to leave it alone.
bool isForModemManager(const QString &folder)
{
    const Properties port = propertiesOf(folder);
    const Properties usb = propertiesOf(usbFolder(folder));
    const QByteArray yes = "1";
    return port.value("ID_MM_CANDIDATE") == yes && port.value("ID_MM_PORT_IGNORE") != yes &&
           port.value("ID_MM_DEVICE_IGNORE") != yes && usb.value("ID_MM_DEVICE_IGNORE") != yes;
}

} // namespace

PortAccess portAccess(const QString &device)
{
    PortAccess access;
    const QByteArray path = QFile::encodeName(device);
    struct stat node = {};
    if (::stat(path.constData(), &node) == 0) {
        access.mayOpen = ::access(path.constData(), R_OK | W_OK) == 0;
        constexpr mode_t readWrite = S_IRGRP | S_IWGRP;
        const group *owner =
            (node.st_mode & readWrite) == readWrite && node.st_gid != 0 ? ::getgrgid(node.st_gid) : nullptr;
        if (owner != nullptr) {
            access.group = QString::fromLocal8Bit(owner->gr_name);
            // A member of whom this login knew could open it.
            access.nextLogin = !access.mayOpen && isMember(*owner);
        }
    }
    access.modemManager = isForModemManager(ttyFolder(device)) &&
                          (runs("ModemManager") || startsWithSystem(QStringLiteral("ModemManager")));
    return access;
}

QStringList brailleDevices()
{
    QStringList devices;
    const QDir bus(QStringLiteral("/sys/bus/usb/devices"));
    for (const QString &name : bus.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString folder = bus.filePath(name);
        const QByteArray driver = propertiesOf(folder).value("BRLTTY_BRAILLE_DRIVER");
        // Rules switch it off for a device with these.
        if (!driver.isEmpty() && driver != "ignore" && !idsAt(folder).isEmpty())
            devices.append(idsAt(folder));
    }
    return devices;
}
