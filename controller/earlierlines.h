#pragma once

#include <QSet>
#include <QStringList>

/// The lines of a dump that came before one of them. They are gathered when somebody asks, which few dumps
/// give reason to.
class EarlierLines
{
public:
    /// `lines` may grow; those that are there now count only if `all`.
    explicit EarlierLines(const QStringList &lines, bool all = true)
        : lines_(lines)
        , gathered_(all ? 0 : lines.size())
    {
    }

    /// Whether `line` is among those before the position `end`, which never goes back.
    [[nodiscard]] bool contain(const QString &line, int end)
    {
        for (; gathered_ < end; ++gathered_)
            seen_.insert(lines_[gathered_]);
        return seen_.contains(line);
    }

private:
    const QStringList &lines_;
    QSet<QString> seen_;
    int gathered_;
};
