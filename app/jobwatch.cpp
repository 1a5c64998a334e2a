#include "app/jobwatch.h"

#include "app/version.h"
#include "platform/desktop.h"

#include <QMetaObject>
#include <QStringList>
#include <QTimer>
#include <QWindow>

namespace {

/// A job that kept the main thread has kept it from hearing that the operator went to another window.
constexpr int windowNewsMs = 100;

QString labelOf(JobWatch::Row row)
{
    switch (row) {
    case JobWatch::Row::Card1:
        return QStringLiteral("Card 1: ");
    case JobWatch::Row::Card2:
        return QStringLiteral("Card 2: ");
    case JobWatch::Row::Card3:
        return QStringLiteral("Card 3: ");
    case JobWatch::Row::Data:
    case JobWatch::Row::Settings:
    case JobWatch::Row::Firmware:
        break;
    }
    return {};
}

} // namespace

JobWatch::JobWatch(Desktop &desktop, const QWindow &window)
    : desktop_(desktop)
    , window_(window)
{
}

JobWatch::Job JobWatch::begin(const QVector<Row> &rows)
{
    if (running_++ == 0)
        desktop_.preventSleep(QStringLiteral("A job is running."));
    return {static_cast<void *>(this), [this, rows](void *) {
                QMetaObject::invokeMethod(
                    this, [this, rows] { end(rows); }, Qt::QueuedConnection);
            }};
}

void JobWatch::tell(Row row, const QString &text)
{
    const std::lock_guard<std::mutex> lock(textsMutex_);
    texts_[row] = text;
}

void JobWatch::end(const QVector<Row> &rows)
{
    if (--running_ == 0)
        desktop_.allowSleep();
    QStringList lines;
    {
        const std::lock_guard<std::mutex> lock(textsMutex_);
        for (const Row row : rows) {
            const QString text = texts_.take(row);
            if (!text.isEmpty())
                lines.append(labelOf(row) + text);
        }
    }
    QTimer::singleShot(windowNewsMs, this, [this, lines] {
        if (!lines.isEmpty() && !window_.isActive())
            desktop_.notify(app_name, lines.join(QLatin1Char('\n')));
    });
}
