#include "app/settingsfile.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

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

/// Whether the toolkit would build more than texts, numbers and plain bytes from `content`.
bool holdsObjects(const QByteArray &content)
{
    // An "@" with which a value or one of several begins, however it is spelled, and no name that is
    // harmless.
    static const QRegularExpression object(
        QStringLiteral("(?<![^=,\\s\"])(?:@|\\\\x0*40(?![0-9A-Fa-f])|\\\\0*100(?![0-7]))"
                       "(?!@|(?:ByteArray|String|Rect|Size|Point|Invalid)\\()"));
    return content.contains('@') || content.contains('\\')
               ? object.match(QString::fromLatin1(content.constData(), content.size())).hasMatch()
               : false;
}

/// Where the value of the line that begins at `position` begins and ends; -1 for a line without one. Moves
/// `position` on to the next line. The toolkit's rules: a line goes on in quotes and after a backslash, and
/// ends at a semicolon.
std::pair<int, int> nextValue(const QByteArray &content, int *position)
{
    int equals = -1;
    int i = *position;
    bool quoted = false;
    for (; i < content.size(); ++i) {
        const char c = content.at(i);
        if (c == '\\')
            ++i;
        else if (c == '"')
            quoted = !quoted;
        else if (c == '=' && equals < 0)
            equals = i;
        else if (!quoted && (c == '\n' || c == '\r' || c == ';'))
            break;
    }
    const int end = qMin(i, content.size());
    // The name of a group, or a value that would take in whatever followed it.
    if (content.mid(*position, end - *position).trimmed().startsWith('[') || quoted || i > content.size())
        equals = -1;
    if (end < content.size() && content.at(end) == ';')
        i = content.indexOf('\n', end);
    *position = i < 0 ? content.size() : i + 1;
    return {equals < 0 ? -1 : equals + 1, end};
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
    if (problem_.isEmpty() && !holdsObjects(content))
        values_ = std::make_unique<QSettings>(path, QSettings::IniFormat);
    else
        useCopy(content);
}

SettingsFile::~SettingsFile()
{
    sync();
}

void SettingsFile::useCopy(const QByteArray &content)
{
    mark_ = "KeptAsItIs";
    while (content.contains(mark_))
        mark_ += '_';
    QByteArray harmless;
    for (int position = 0; position < content.size();) {
        const int line = position;
        const auto [begin, end] = nextValue(content, &position);
        const QByteArray value = content.mid(begin, end - begin);
        if (begin < 0 || !holdsObjects(value)) {
            harmless += content.mid(line, end - line) + '\n';
            continue;
        }
        harmless += content.mid(line, begin - line) + mark_ + QByteArray::number(kept_.size()) + ".\n";
        kept_.append(value.trimmed());
    }
    if (holdsObjects(harmless)) {
        problem_ = QStringLiteral("it holds values of unknown types");
        harmless.clear();
    }
    if (copy_.open()) {
        copy_.write(harmless);
        copy_.flush();
    }
    values_ = std::make_unique<QSettings>(copy_.fileName(), QSettings::IniFormat);
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
    if (mark_.isEmpty() || !problem_.isEmpty() || !changed_)
        return;
    QFile copy(copy_.fileName());
    QSaveFile file(path_);
    if (!copy.open(QIODevice::ReadOnly) || !file.open(QIODevice::WriteOnly))
        return;
    QByteArray content = copy.readAll();
    for (int i = 0; i < kept_.size(); ++i)
        content.replace(mark_ + QByteArray::number(i) + '.', kept_.at(i));
    file.write(content);
    changed_ = !file.commit();
}
