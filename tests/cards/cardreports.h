#pragma once

#include "app/appcontroller.h"
#include "tests/cards/importrun.h"

#include <QMap>

#include <functional>
#include <mutex>

/// Everything that a controller says of its cards, written down on the thread that says it.
class CardReports
{
    Q_DISABLE_COPY(CardReports)

public:
    explicit CardReports(AppController &controller)
    {
        QObject::connect(
            &controller, &AppController::updateCardProgress, &controller,
            [this](const QVariant &card, const QVariant &from, const QVariant &to, const QVariant &value,
                   const QVariant &text) {
                {
                    const std::lock_guard<std::mutex> lock(mutex_);
                    lines_[card.toInt()].append(
                        reportLine(from.toInt(), to.toInt(), value.toInt(), text.toString()));
                }
                if (onReport)
                    onReport(card.toInt(), text.toString());
            },
            Qt::DirectConnection);
    }

    [[nodiscard]] QStringList of(int card) const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lines_.value(card);
    }
    /// See ImportRun::finalReports().
    [[nodiscard]] QStringList finalOf(int card) const { return finalReportsIn(of(card)); }
    [[nodiscard]] int count() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        int lines = 0;
        for (const QStringList &card : lines_)
            lines += card.size();
        return lines;
    }

    /// Called after every report, on the job's thread. To be set before a job starts.
    std::function<void(int card, const QString &text)> onReport;

private:
    mutable std::mutex mutex_;
    QMap<int, QStringList> lines_;
};
