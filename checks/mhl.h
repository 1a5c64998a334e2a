#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

// The documents of an ASC Media Hash List (ASC MHL 1.0, of the American Society of Cinematographers).

/// What a hash in a manifest says of a file.
enum class MhlAction {
    Original, ///< the first hash of the file
    Verified, ///< it still is as it was
    Failed,   ///< it was altered
};

/// What a manifest says of one file.
struct MhlRecord
{
    QString path;       ///< relative to the sealed folder, parts joined by "/"
    qint64 size = -1;   ///< in bytes; -1 if it isn't told
    QDateTime modified; ///< invalid if it isn't told
    QByteArray hash;    ///< XXH128, 16 bytes; empty if the manifest has only hashes of other kinds
    MhlAction action = MhlAction::Original;
    QString previousPath; ///< the name in earlier generations if the file was renamed, else empty

    [[nodiscard]] bool operator==(const MhlRecord &other) const;
};

/// A manifest: one generation of a seal.
struct MhlManifest
{
    QString process;          ///< "transfer", "in-place" or "flatten"
    QStringList ignored;      ///< patterns as in .gitignore
    QVector<MhlRecord> files; ///< without directories
    QString problem;          ///< why it could not be read; empty if it could
};

/// An entry of the chain, the table of contents of a seal.
struct MhlGeneration
{
    QString name;  ///< of the manifest, in the folder of the chain
    QByteArray c4; ///< of the manifest

    [[nodiscard]] bool operator==(const MhlGeneration &other) const
    {
        return name == other.name && c4 == other.c4;
    }
};

struct MhlChain
{
    QVector<MhlGeneration> generations; ///< the first is number 1
    QString problem;                    ///< why it could not be read; empty if it could
};

[[nodiscard]] MhlManifest readManifest(const QByteArray &content);
/// The document of `manifest`, made at `created`. Its paths must fit; see fitsManifest().
[[nodiscard]] QByteArray toXml(const MhlManifest &manifest, const QDateTime &created);

[[nodiscard]] MhlChain readChain(const QByteArray &content);
[[nodiscard]] QByteArray toXml(const QVector<MhlGeneration> &generations);

/// Whether a manifest can carry `path`, which has to be relative, without "." and "..", and of characters
/// that XML has.
[[nodiscard]] bool fitsManifest(const QString &path);

/// The files that a seal leaves out, by patterns as in .gitignore.
class MhlIgnore
{
public:
    explicit MhlIgnore(const QStringList &patterns);

    /// Whether the file `path`, or a folder that it is in, matches.
    [[nodiscard]] bool matches(const QString &path) const;

private:
    struct Pattern
    {
        QRegularExpression expression;
        bool foldersOnly = false;
        bool negated = false;
    };
    QVector<Pattern> patterns_;
};
