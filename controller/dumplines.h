#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QVector>

/// The data lines of a dump in the order in which they came. There may be 100,000: they share one text.
class DumpLines
{
public:
    void append(const QString &line)
    {
        text_ += line.toUtf8();
        ends_.append(text_.size());
    }

    [[nodiscard]] int size() const { return ends_.size(); }
    [[nodiscard]] bool isEmpty() const { return ends_.isEmpty(); }
    [[nodiscard]] QString at(int i) const
    {
        const int begin = i > 0 ? ends_[i - 1] : 0;
        return QString::fromUtf8(text_.constData() + begin, ends_[i] - begin);
    }

private:
    QByteArray text_; ///< UTF-8
    QVector<int> ends_;
};

/// The lines of a dump that came before one of them. They are gathered when somebody asks, which few dumps
/// give reason to.
class EarlierLines
{
public:
    /// `lines` may grow.
    explicit EarlierLines(const DumpLines &lines)
        : lines_(lines)
    {
    }

    /// Whether `line` is among those before the position `end`, which never goes back.
    [[nodiscard]] bool contain(const QString &line, int end)
    {
        for (; gathered_ < end; ++gathered_)
            seen_.insert(lines_.at(gathered_));
        return seen_.contains(line);
    }

private:
    const DumpLines &lines_;
    QSet<QString> seen_;
    int gathered_ = 0;
};
