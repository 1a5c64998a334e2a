#pragma once

#include "checks/mhl.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

class StopFlag;

/// The seal of a folder: its ASC MHL History in the folder "ascmhl", a chain and its manifests.
class MhlHistory
{
public:
    /// What is known of a sealed file.
    struct Sealed
    {
        qint64 size = -1;
        QByteArray hash;   ///< XXH128; empty if it has hashes of other kinds only
        QByteArray failed; ///< XXH128 of another content, if the last generation that names it found one
    };

    /// Reads the seal of the folder `root`.
    explicit MhlHistory(const QString &root);

    /// Whether the folder has a seal, be it damaged.
    [[nodiscard]] bool exists() const { return exists_; }
    /// What is wrong with it: a line for each file of the seal that is damaged, altered or missing.
    [[nodiscard]] const QStringList &problems() const { return problems_; }
    /// Manifests that no chain names: what interrupted seals leave. They count for nothing.
    [[nodiscard]] const QStringList &unfinished() const { return unfinished_; }
    [[nodiscard]] int generations() const { return chain_.size(); }
    /// The files that the seal names, by their paths. Of a damaged seal, what its sound manifests name.
    [[nodiscard]] const QHash<QString, Sealed> &files() const { return files_; }
    /// Whether the seal leaves out the file `path`.
    [[nodiscard]] bool ignores(const QString &path) const { return ignore_.matches(path); }

    /// Adds the records as a new generation; `process` is "transfer" or "in-place", `begun` when the work
    /// began that it tells of. The manifest and then the chain appear on the disk whole or not at all;
    /// neither does when `stop` was raised before. Returns why it failed, empty if it didn't. A damaged seal
    /// gets no generation.
    [[nodiscard]] QString append(const QVector<MhlRecord> &records, const QString &process,
                                 const QDateTime &begun, const StopFlag &stop);

private:
    void readGenerations();
    void learn(const MhlManifest &manifest);

    QString root_;
    QString folder_;
    bool exists_ = false;
    QByteArray chainContent_; ///< as it was read
    QStringList problems_;
    QStringList unfinished_;
    QVector<MhlGeneration> chain_;
    QHash<QString, Sealed> files_;
    QStringList patterns_;
    MhlIgnore ignore_;
};

/// What came of sealing files.
struct SealResult
{
    int added = 0;       ///< files in the new generation
    int known = 0;       ///< sealed before, and still the same
    int ignored = 0;     ///< the seal leaves them out by its patterns
    QStringList altered; ///< sealed before with another content; this generation or the last one says so
    QStringList leftOut; ///< a manifest can't carry their names, or the seal has no XXH128 of them
    QString problem;     ///< why nothing was sealed
};

/// Seals files of the folder `root` that an import wrote and a verification proved: adds a generation with
/// those that are new, if there are any. What stitchers rewrite is left out. `begun` is when the verification
/// began.
[[nodiscard]] SealResult sealFiles(const QString &root, const QVector<MhlRecord> &files,
                                   const QDateTime &begun, const StopFlag &stop);
