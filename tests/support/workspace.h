#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

/// A folder for one test, with the program's own paths pointed into it and forgotten afterwards. The
/// support folder is SUPPORT = path("data/Kelpora 360"); no templates folder stands beside the application.
class Workspace
{
    Q_DISABLE_COPY(Workspace)

public:
    Workspace();
    ~Workspace();

    /// Absolute path of `relative` in the workspace; "" gives the workspace itself.
    [[nodiscard]] QString path(const QString &relative = {}) const;
    /// Writes a file, with its folders; returns its absolute path.
    QString write(const QString &relative, const QByteArray &content) const;
    /// The content of a file; null if it can't be read.
    [[nodiscard]] QByteArray read(const QString &relative) const;
    /// Creates a folder; returns its absolute path.
    QString makeFolder(const QString &relative) const;
    /// Every file below `relative`, hidden ones too: path relative to it, content.
    [[nodiscard]] QMap<QString, QByteArray> tree(const QString &relative) const;

private:
    QTemporaryDir folder_;
    QString currentBefore_;
};
