#pragma once

#include <QJsonObject>
#include <QString>

enum class Exit;

/// What a command says: its results on standard output, either as lines or as one JSON object at the end;
/// what went wrong on standard error.
class Output
{
    Q_DISABLE_COPY(Output)

public:
    Output() = default;

    void useJson() { json_ = true; }
    [[nodiscard]] bool isJson() const { return json_; }

    /// A line of the result for people; nothing in JSON.
    void line(const QString &text) const;
    /// A member of the JSON object.
    void set(const QString &key, const QJsonValue &value);
    /// Why the command can't do what it was asked for: a line on standard error, in JSON "error" too.
    void complain(const QString &text);
    /// A line on standard error that changes nothing.
    void warn(const QString &text);

    /// Writes what is left. Returns the exit code: `exit`, or NotChecked if a result could not be written.
    [[nodiscard]] int finish(Exit exit);

private:
    bool json_ = false;
    QJsonObject object_;
};
