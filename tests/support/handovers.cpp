/// Tells the thread sanitizer when Qt hands data from one thread to another. Debian's Qt is built without it,
/// so the locks inside are invisible and whatever went through a queued signal or to the thread pool would
/// look like a race. Linked before Qt in the sanitizer's build only.
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFutureInterface>
#include <QMetaObject>
#include <QRunnable>
#include <QThread>
#include <QThreadPool>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {

// One point for all: what was written before any hand-over is visible after any later one.
char handOver;

void release()
{
    __tsan_release(&handOver);
}

void acquire()
{
    __tsan_acquire(&handOver);
}

template <typename Function>
Function next(const char *symbol)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbol));
}

class Handed : public QRunnable
{
public:
    explicit Handed(QRunnable *work)
        : work_(work)
    {
    }

    void run() override
    {
        acquire();
        const bool owned = work_->autoDelete();
        work_->run();
        if (owned)
            delete work_;
        release();
    }

private:
    QRunnable *const work_;
};

// A function posted to another thread's object, which no event filter of the application sees.
class HandedSlot : public QtPrivate::QSlotObjectBase
{
public:
    explicit HandedSlot(QtPrivate::QSlotObjectBase *slot)
        : QSlotObjectBase(run)
        , slot_(slot)
    {
    }

private:
    static void run(int which, QSlotObjectBase *self, QObject *receiver, void **arguments, bool * /*equal*/)
    {
        auto *handed = static_cast<HandedSlot *>(self);
        acquire();
        if (which == Call) {
            handed->slot_->call(receiver, arguments);
        } else if (which == Destroy) {
            handed->slot_->destroyIfLastRef();
            delete handed;
        }
        release();
    }

    QSlotObjectBase *const slot_;
};

class Receiver : public QObject
{
public:
    using QObject::QObject;

    bool eventFilter(QObject * /*watched*/, QEvent * /*event*/) override
    {
        acquire();
        return false;
    }
};

void watchEvents()
{
    QCoreApplication *app = QCoreApplication::instance();
    app->installEventFilter(new Receiver(app));
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(watchEvents)

void QThreadPool::start(QRunnable *runnable, int priority)
{
    static const auto start =
        next<void (*)(QThreadPool *, QRunnable *, int)>("_ZN11QThreadPool5startEP9QRunnablei");
    auto *handed = new Handed(runnable);
    release();
    start(this, handed, priority);
}

bool QThreadPool::waitForDone(int msecs)
{
    static const auto waitForDone = next<bool (*)(QThreadPool *, int)>("_ZN11QThreadPool11waitForDoneEi");
    const bool done = waitForDone(this, msecs);
    acquire();
    return done;
}

void QFutureInterfaceBase::reportResultsReady(int beginIndex, int endIndex)
{
    static const auto reportResultsReady =
        next<void (*)(QFutureInterfaceBase *, int, int)>("_ZN20QFutureInterfaceBase18reportResultsReadyEii");
    release();
    reportResultsReady(this, beginIndex, endIndex);
}

void QFutureInterfaceBase::reportFinished()
{
    static const auto reportFinished =
        next<void (*)(QFutureInterfaceBase *)>("_ZN20QFutureInterfaceBase14reportFinishedEv");
    release();
    reportFinished(this);
}

void QFutureInterfaceBase::waitForResult(int resultIndex)
{
    static const auto waitForResult =
        next<void (*)(QFutureInterfaceBase *, int)>("_ZN20QFutureInterfaceBase13waitForResultEi");
    waitForResult(this, resultIndex);
    acquire();
}

void QFutureInterfaceBase::waitForFinished()
{
    static const auto waitForFinished =
        next<void (*)(QFutureInterfaceBase *)>("_ZN20QFutureInterfaceBase15waitForFinishedEv");
    waitForFinished(this);
    acquire();
}

void QMetaObject::activate(QObject *sender, const QMetaObject *meta, int local_signal_index, void **argv)
{
    static const auto activate = next<void (*)(QObject *, const QMetaObject *, int, void **)>(
        "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv");
    release();
    activate(sender, meta, local_signal_index, argv);
}

bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot, Qt::ConnectionType type,
                                   void *ret)
{
    static const auto invoke = next<bool (*)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType,
                                             void *)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    auto *handed = new HandedSlot(slot);
    release();
    const bool posted = invoke(object, handed, type, ret);
    if (type == Qt::BlockingQueuedConnection)
        acquire();
    return posted;
}

bool QThread::wait(unsigned long time)
{
    static const auto wait = next<bool (*)(QThread *, unsigned long)>("_ZN7QThread4waitEm");
    const bool ended = wait(this, time);
    acquire();
    return ended;
}

bool QThread::wait(QDeadlineTimer deadline)
{
    static const auto wait = next<bool (*)(QThread *, QDeadlineTimer)>("_ZN7QThread4waitE14QDeadlineTimer");
    const bool ended = wait(this, deadline);
    acquire();
    return ended;
}
