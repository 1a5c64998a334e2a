#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QVector>

#include <memory>
#include <mutex>

class Desktop;
class QWindow;

/// Tells the desktop of the jobs: the computer stays awake while one runs, and the operator who works in
/// another window is notified of its end.
class JobWatch : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(JobWatch)

public:
    /// What the reports of a job are about, in the order in which a notification tells it.
    enum class Row { Card1, Card2, Card3, Data, Settings, Firmware };

    /// A job runs as long as anybody holds this.
    using Job = std::shared_ptr<void>;

    /// Both must live until the last job has ended.
    JobWatch(Desktop &desktop, const QWindow &window);

    /// From now on a job runs, which reports on `rows`. Main thread only; the last holder may let go of it on
    /// any.
    [[nodiscard]] Job begin(const QVector<Row> &rows);

    /// The latest text of a row. Any thread.
    void tell(Row row, const QString &text);

private:
    void end(const QVector<Row> &rows);

    Desktop &desktop_;
    const QWindow &window_;
    int running_ = 0;
    QMap<Row, QString> texts_;
    std::mutex textsMutex_;
};
