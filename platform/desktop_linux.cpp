#include "platform/desktop.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusUnixFileDescriptor>
#include <QDebug>
#include <QObject>
#include <QSet>
#include <QThread>
#include <QVariantMap>
#include <QVector>

#include <functional>

namespace {

/// A bus that answers at all does so far sooner.
constexpr int closeMs = 1000;

QDBusMessage screenSaverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.ScreenSaver"),
                                          QStringLiteral("/org/freedesktop/ScreenSaver"),
                                          QStringLiteral("org.freedesktop.ScreenSaver"), method);
}

/// Talks to the services. It lives on a thread of its own: whoever connects to a bus waits for it.
class Services : public QObject
{
public:
    /// See the inhibitor locks of systemd's logind, and the idle inhibition of freedesktop.org.
    void preventSleep(const QString &reason)
    {
        awake_ = true;
        QDBusMessage lock = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
            QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
        lock << QStringLiteral("sleep:idle") << QStringLiteral("Kelpora 360") << reason
             << QStringLiteral("block");
        ask(QDBusConnection::systemBus(), lock,
            "The computer may go to sleep during a job:", [this](const QVariant &descriptor) {
                if (awake_)
                    lock_ = descriptor.value<QDBusUnixFileDescriptor>();
            });
        QDBusMessage idle = screenSaverCall(QStringLiteral("Inhibit"));
        idle << QStringLiteral("Kelpora 360") << reason;
        ask(QDBusConnection::sessionBus(), idle,
            "The desktop may lock the screen during a job:", [this](const QVariant &cookie) {
                cookies_.append(cookie);
                if (!awake_)
                    allowIdle();
            });
    }

    void allowSleep()
    {
        awake_ = false;
        lock_ = QDBusUnixFileDescriptor();
        allowIdle();
    }

    /// See the desktop notifications of freedesktop.org.
    void notify(const QString &program, const QString &text)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
        constexpr uint nothingReplaced = 0;
        constexpr int asLongAsUsual = -1;
        // The servers read the text as markup.
        call << program << nothingReplaced << QString() << program << text.toHtmlEscaped() << QStringList()
             << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("kelpora360")}} << asLongAsUsual;
        ask(QDBusConnection::sessionBus(), call, "No notification could be shown:", [](const QVariant &) {});
    }

private:
    using Answered = std::function<void(const QVariant &)>;

    /// Calls a service; `failure` begins the line in the log that tells once that it can't be had.
    void ask(const QDBusConnection &bus, const QDBusMessage &call, const char *failure,
             const Answered &answered)
    {
        if (!bus.isConnected()) {
            logOnce(failure, bus.lastError().message());
            return;
        }
        auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [=] {
            watcher->deleteLater();
            if (watcher->isError())
                logOnce(failure, watcher->error().message());
            else
                answered(watcher->reply().arguments().value(0));
        });
    }

    void logOnce(const char *failure, const QString &why)
    {
        if (logged_.contains(failure))
            return;
        logged_.insert(failure);
        qInfo().noquote() << failure << why.simplified();
    }

    void allowIdle()
    {
        for (const QVariant &cookie : qAsConst(cookies_)) {
            QDBusMessage call = screenSaverCall(QStringLiteral("UnInhibit"));
            QDBusConnection::sessionBus().send(call << cookie);
        }
        cookies_.clear();
    }

    bool awake_ = false;
    QDBusUnixFileDescriptor lock_; ///< logind keeps the computer awake while it is open
    QVector<QVariant> cookies_;    ///< of the idle inhibitions that hold
    QSet<QByteArray> logged_;
};

} // namespace

class Desktop::Private
{
    Q_DISABLE_COPY(Private)

public:
    Private()
    {
        services_->moveToThread(&thread_);
        QObject::connect(&thread_, &QThread::finished, services_, &QObject::deleteLater);
        thread_.start();
    }

    ~Private()
    {
        thread_.quit();
        thread_.wait();
    }

    void post(const std::function<void(Services &)> &work)
    {
        Services *services = services_;
        QMetaObject::invokeMethod(
            services, [services, work] { work(*services); }, Qt::QueuedConnection);
    }

    bool close()
    {
        post([](Services &services) {
            services.allowSleep();
            QThread::currentThread()->quit();
        });
        return thread_.wait(closeMs);
    }

private:
    QThread thread_;
    Services *services_ = new Services; ///< its thread deletes it
};

Desktop::Desktop() = default;

Desktop::~Desktop() = default;

void Desktop::preventSleep(const QString &reason)
{
    // Most runs of the program need none of this.
    if (!d_)
        d_ = std::make_unique<Private>();
    d_->post([reason](Services &services) { services.preventSleep(reason); });
}

void Desktop::allowSleep()
{
    if (d_)
        d_->post([](Services &services) { services.allowSleep(); });
}

void Desktop::notify(const QString &program, const QString &text)
{
    if (!d_)
        d_ = std::make_unique<Private>();
    d_->post([program, text](Services &services) { services.notify(program, text); });
}

bool Desktop::close()
{
    if (d_ && !d_->close()) {
        // Its destructor would wait for the thread.
        static_cast<void>(d_.release());
        return false;
    }
    d_.reset();
    return true;
}
