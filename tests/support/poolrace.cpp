/// A race in two workers of the thread pool, which the thread sanitizer must tell of.
#include <QCoreApplication>
#include <QThreadPool>
#include <QtConcurrent>

#include <atomic>
#include <thread>

namespace {
int counter = 0;
std::atomic<int> begun{0};

void count()
{
    // Neither waits for the other to end, and neither tells the other anything.
    begun.fetch_add(1, std::memory_order_relaxed);
    while (begun.load(std::memory_order_relaxed) < 2)
        std::this_thread::yield();
    ++counter;
}
} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    QThreadPool::globalInstance()->setMaxThreadCount(2);
    QFuture<void> first = QtConcurrent::run(count);
    QFuture<void> second = QtConcurrent::run(count);
    first.waitForFinished();
    second.waitForFinished();
    return counter > 0 ? 0 : 1;
}
