#pragma once

#include <QByteArray>
#include <QSettings>
#include <QStringList>
#include <QTemporaryFile>
#include <QVariant>
#include <QVector>

#include <memory>

/// The settings file, opened so that no content of it can end or stop the program.
///
/// A value that the toolkit would build an object of any type and size from ("@Variant(...)",
/// "@DateTime(...)") is its bytes as text, each a character, and stays as it is in the file. What is no
/// regular file, or larger than 1 MiB, is neither read nor written: the values that are set hold as long as
/// the object.
class SettingsFile
{
    Q_DISABLE_COPY(SettingsFile)

public:
    /// Opens `path`, an INI file; a file that is missing is empty.
    explicit SettingsFile(const QString &path);
    /// Writes what was set, as sync() does.
    ~SettingsFile();

    /// Why the file is left alone, for the log; empty if it is used.
    [[nodiscard]] const QString &problem() const { return problem_; }

    /// Whether the file was read, and written if need was, without an error.
    [[nodiscard]] bool isSound() const
    {
        return problem_.isEmpty() && values_->status() == QSettings::NoError;
    }

    [[nodiscard]] QStringList allKeys() const { return values_->allKeys(); }
    [[nodiscard]] bool contains(const QString &key) const { return values_->contains(key); }
    [[nodiscard]] QVariant value(const QString &key, const QVariant &fallback = {}) const;
    void setValue(const QString &key, const QVariant &value);
    /// Writes what was set. A file that can't be written is left as it was, without a word.
    void sync();

private:
    void useCopy(const QByteArray &content);

    QString path_;
    QString problem_;
    QVector<QByteArray> kept_; ///< values that are not interpreted; their numbers stand in `copy_`
    QByteArray mark_;          ///< what their numbers begin with
    QTemporaryFile copy_;      ///< of the file, unless it is used itself
    std::unique_ptr<QSettings> values_;
    bool changed_ = false;
};
