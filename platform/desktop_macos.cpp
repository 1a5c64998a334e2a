#include "platform/desktop.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStringList>

#include <csignal>

/// The system's own tool keeps the computer from idle sleep; it ends with this process, however that ends.
class Desktop::Private
{
public:
    qint64 caffeinate = 0; ///< its process id; 0 if none runs
};

Desktop::Desktop()
    : d_(std::make_unique<Private>())
{
}

Desktop::~Desktop()
{
    allowSleep();
}

void Desktop::preventSleep(const QString & /*reason*/)
{
    QProcess::startDetached(
        QStringLiteral("/usr/bin/caffeinate"),
        {QStringLiteral("-i"), QStringLiteral("-w"), QString::number(QCoreApplication::applicationPid())}, {},
        &d_->caffeinate);
}

void Desktop::allowSleep()
{
    if (d_->caffeinate != 0)
        ::kill(static_cast<pid_t>(d_->caffeinate), SIGTERM);
    d_->caffeinate = 0;
}

void Desktop::notify(const QString & /*program*/, const QString & /*text*/) {}

bool Desktop::close()
{
    allowSleep();
    return true;
}
