#include "app/settingsfile.h"

#include "platform/filesync.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <cctype>
#include <cstring>
#include <utility>

namespace {

constexpr int largest = 1 << 20;

QString problemOf(const QString &path)
{
    const QFileInfo file(path);
    if (file.exists() && !file.isFile())
        return QStringLiteral("it is no regular file");
    if (file.size() > largest)
        return QStringLiteral("it is larger than 1 MiB");
    const QFileInfo lock(path + QStringLiteral(".lock"));
    if (lock.exists() && !lock.isFile())
        return QStringLiteral("its lock is no regular file");
    return {};
}

bool isHexDigit(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool isOctalDigit(char c)
{
    return c >= '0' && c <= '7';
}

/// Whether the text that begins at `at` is one with an "@" in front, however that is spelled, and with no
/// name that is harmless. As the toolkit reads it: of an escape's number the low 16 bits count, and an escape
/// that it doesn't know is nothing.
bool beginsObject(const char *at, const char *end)
{
    const auto number = [&at, end](int base, bool (*isDigit)(char)) {
        unsigned value = 0;
        for (; at != end && isDigit(*at); ++at)
            value = value * static_cast<unsigned>(base) +
                    static_cast<unsigned>(QByteArray(1, *at).toInt(nullptr, base));
        return value & 0xffffU;
    };
    bool quoted = false;
    while (at != end) {
        const char c = *at++;
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        // In quotes they are the text's beginning.
        if (!quoted && (c == ' ' || c == '\t' || c == '\n' || c == '\r'))
            continue;
        if (c == '@') {
            static const QRegularExpression harmless(
                QStringLiteral("^(?:@|(?:ByteArray|String|Rect|Size|Point|Invalid)\\()"));
            return !harmless.match(QString::fromLatin1(at, static_cast<int>(end - at))).hasMatch();
        }
        if (c != '\\' || at == end)
            return false;
        if (isOctalDigit(*at))
            return number(8, isOctalDigit) == '@';
        const char escape = *at++;
        if (std::strchr("abfnrtv'?\"\\", escape) != nullptr)
            return false;
        if (escape == 'x' && at != end && isHexDigit(*at))
            return number(16, isHexDigit) == '@';
    }
    return false;
}

/// Whether the toolkit would build more than texts, numbers and plain bytes from a value, or one of several.
bool holdsObject(const QByteArray &value)
{
    const char *const end = value.constData() + value.size();
    for (const char *at = value.constData(); at != end; ++at) {
        if ((at == value.constData() || at[-1] == ',') && beginsObject(at, end))
            return true;
    }
    return false;
}

/// A line of the file: where it and its value begin and end. By the toolkit's rules: a line goes on in quotes
/// and after a backslash, and ends at a semicolon.
struct Line
{
    int begin = 0;
    int value = -1; ///< -1 if there is none
    int end = 0;
    int next = 0;      ///< where the next line begins
    bool whole = true; ///< false for one that would take in whatever followed it
};

Line lineAt(const QByteArray &content, int begin)
{
    Line line;
    line.begin = begin;
    bool quoted = false;
    int i = begin;
    for (; i < content.size(); ++i) {
        const char c = content.at(i);
        if (c == '\\') {
            const char next = i + 1 < content.size() ? content.at(i + 1) : '\0';
            const char afterNext = i + 2 < content.size() ? content.at(i + 2) : '\0';
            const bool twoBytes = (next == '\r' && afterNext == '\n') || (next == '\n' && afterNext == '\r');
            i += twoBytes ? 2 : 1;
        } else if (c == '"') {
            quoted = !quoted;
        } else if (c == '=' && line.value < 0) {
            line.value = i + 1;
        } else if (!quoted && (c == '\n' || c == '\r' || c == ';')) {
            break;
        }
    }
    line.whole = !quoted && i <= content.size();
    line.end = qMin(i, content.size());
    // A comment.
    while (i < content.size() && content.at(i) != '\n' && content.at(i) != '\r')
        ++i;
    line.next = qMin(i + 1, content.size());
    // The name of a group.
    if (content.mid(begin, line.end - begin).trimmed().startsWith('['))
        line.value = -1;
    return line;
}

/// Empty if it has none.
QByteArray valueOf(const Line &line, const QByteArray &content)
{
    return line.value < 0 ? QByteArray() : content.mid(line.value, line.end - line.value);
}

bool holdsObjects(const QByteArray &content)
{
    // No spelling of "@" ends otherwise.
    if (!content.contains('@') && !content.contains("40") && !content.contains("100"))
        return false;
    for (Line line; line.next < content.size();) {
        line = lineAt(content, line.next);
        if (holdsObject(valueOf(line, content)))
            return true;
    }
    return false;
}

} // namespace

SettingsFile::SettingsFile(const QString &path)
    : path_(path)
    , problem_(problemOf(path))
{
    QByteArray content;
    QFile file(path);
    if (problem_.isEmpty() && file.open(QIODevice::ReadOnly))
        content = file.read(largest);
    if (holdsObjects(content))
        useCopy(content);
    else if (problem_.isEmpty())
        values_ = std::make_unique<QSettings>(path, QSettings::IniFormat);
    // No file can be there.
    if (!problem_.isEmpty())
        values_ = std::make_unique<QSettings>(QStringLiteral("/dev/null/none"), QSettings::IniFormat);
}

SettingsFile::~SettingsFile()
{
    if (changed_)
        sync();
}

void SettingsFile::useCopy(const QByteArray &content)
{
    mark_ = "KeptAsItIs";
    while (content.contains(mark_))
        mark_ += '_';
    QByteArray harmless;
    for (Line line; line.next < content.size();) {
        line = lineAt(content, line.next);
        if (!line.whole)
            problem_ = QStringLiteral("it has a line without an end");
        const QByteArray value = valueOf(line, content);
        if (!holdsObject(value)) {
            harmless += content.mid(line.begin, line.end - line.begin) + '\n';
            continue;
        }
        harmless += content.mid(line.begin, line.value - line.begin) + mark_ +
                    QByteArray::number(kept_.size()) + ".\n";
        kept_.append(value);
    }
    if (!copy_.open() || copy_.write(harmless) != harmless.size() || !copy_.flush())
        problem_ = QStringLiteral("no temporary file can be written");
    if (!problem_.isEmpty())
        return;
    values_ = std::make_unique<QSettings>(copy_.fileName(), QSettings::IniFormat);
    // The toolkit reads a group when it is asked for.
    static_cast<void>(values_->allKeys());
    if (values_->status() != QSettings::NoError)
        problem_ = QStringLiteral("a line of it can't be read");
}

QVariant SettingsFile::value(const QString &key, const QVariant &fallback) const
{
    QVariant value = values_->value(key, fallback);
    const QByteArray text = value.type() == QVariant::String ? value.toString().toLatin1() : QByteArray();
    for (int i = 0; i < kept_.size(); ++i) {
        if (text == mark_ + QByteArray::number(i) + '.')
            return QString::fromLatin1(kept_.at(i).constData(), kept_.at(i).size());
    }
    return value;
}

void SettingsFile::setValue(const QString &key, const QVariant &value)
{
    values_->setValue(key, value);
    changed_ = true;
}

void SettingsFile::sync()
{
    values_->sync();
    // Once: what was set is not to be written over what others set later.
    if (!std::exchange(changed_, false) || mark_.isEmpty() || !problem_.isEmpty() ||
        values_->status() != QSettings::NoError)
        return;
    QFile copy(copy_.fileName());
    if (!copy.open(QIODevice::ReadOnly))
        return;
    QByteArray content = copy.readAll();
    for (int i = 0; i < kept_.size(); ++i)
        content.replace(mark_ + QByteArray::number(i) + '.', kept_.at(i));
    QSaveFile file(path_);
    // commit() would replace the file also when the disk could not take the new one.
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && syncToDisk(file))
        file.commit();
}
