#include "checks/mhl.h"

#include "app/version.h"

#include <QSet>
#include <QSysInfo>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <utility>

namespace {

const QString manifestSpace = QStringLiteral("urn:ASC:MHL:v2.0");
const QString chainSpace = QStringLiteral("urn:ASC:MHL:DIRECTORY:v2.0");

const QVector<std::pair<MhlAction, QString>> &actions()
{
    static const QVector<std::pair<MhlAction, QString>> all = {
        {MhlAction::Original, QStringLiteral("original")},
        {MhlAction::Verified, QStringLiteral("verified")},
        {MhlAction::Failed, QStringLiteral("failed")},
    };
    return all;
}

/// Goes to the next child; false after the last. A child of another namespace has no name here.
bool nextChild(QXmlStreamReader *xml, const QString &space, QString *name)
{
    if (!xml->readNextStartElement())
        return false;
    *name = xml->namespaceUri() == space ? xml->name().toString() : QString();
    return true;
}

void readHash(QXmlStreamReader *xml, MhlRecord *file)
{
    const QStringRef action = xml->attributes().value(QLatin1String("action"));
    for (const auto &[value, text] : actions()) {
        if (action == text)
            file->action = value;
    }
    const QByteArray digits = xml->readElementText().trimmed().toLatin1();
    file->hash = QByteArray::fromHex(digits);
    constexpr int hashSize = 16;
    if (!xml->hasError() && (file->hash.size() != hashSize || file->hash.toHex() != digits.toLower()))
        xml->raiseError(QStringLiteral("a hash that is none"));
}

MhlRecord readFile(QXmlStreamReader *xml)
{
    MhlRecord file;
    QString name;
    while (nextChild(xml, manifestSpace, &name)) {
        if (name == QLatin1String("path")) {
            bool isNumber = false;
            const qint64 size = xml->attributes().value(QLatin1String("size")).toLongLong(&isNumber);
            file.size = isNumber && size >= 0 ? size : -1;
            const QStringRef modified = xml->attributes().value(QLatin1String("lastmodificationdate"));
            file.modified = QDateTime::fromString(modified.toString(), Qt::ISODateWithMs).toUTC();
            file.path = xml->readElementText();
        } else if (name == QLatin1String("xxh128")) {
            readHash(xml, &file);
        } else if (name == QLatin1String("previousPath")) {
            file.previousPath = xml->readElementText();
        } else {
            xml->skipCurrentElement();
        }
    }
    if (!xml->hasError() &&
        (!fitsManifest(file.path) || (!file.previousPath.isEmpty() && !fitsManifest(file.previousPath))))
        xml->raiseError(QStringLiteral("a path that leads nowhere or out of the folder"));
    return file;
}

void readFiles(QXmlStreamReader *xml, MhlManifest *manifest)
{
    QSet<QString> paths;
    QString name;
    while (nextChild(xml, manifestSpace, &name)) {
        if (name != QLatin1String("hash")) {
            xml->skipCurrentElement();
            continue;
        }
        manifest->files.append(readFile(xml));
        const QString &path = manifest->files.last().path;
        if (!xml->hasError() && paths.contains(path))
            xml->raiseError(QStringLiteral("two hashes of one file"));
        paths.insert(path);
    }
}

void readProcess(QXmlStreamReader *xml, MhlManifest *manifest)
{
    QString name;
    while (nextChild(xml, manifestSpace, &name)) {
        if (name == QLatin1String("process")) {
            manifest->process = xml->readElementText();
        } else if (name == QLatin1String("ignore")) {
            QString pattern;
            while (nextChild(xml, manifestSpace, &pattern)) {
                if (pattern == QLatin1String("pattern"))
                    manifest->ignored.append(xml->readElementText());
                else
                    xml->skipCurrentElement();
            }
        } else {
            xml->skipCurrentElement();
        }
    }
}

/// Reads the start of the only element of a document; raises an error if it is another.
void enter(QXmlStreamReader *xml, const QString &space, const QString &expected)
{
    QString name;
    if (nextChild(xml, space, &name) && name != expected)
        xml->raiseError(QStringLiteral("another kind of document"));
}

/// What is wrong, with the line; empty if nothing is.
QString problemOf(QXmlStreamReader *xml)
{
    while (!xml->atEnd() && !xml->hasError())
        xml->readNext();
    if (!xml->hasError())
        return {};
    return QStringLiteral("line %1: ").arg(xml->lineNumber()) + xml->errorString();
}

void writeFile(QXmlStreamWriter *xml, const MhlRecord &file)
{
    xml->writeStartElement(QStringLiteral("hash"));
    xml->writeStartElement(QStringLiteral("path"));
    if (file.size >= 0)
        xml->writeAttribute(QStringLiteral("size"), QString::number(file.size));
    if (file.modified.isValid())
        xml->writeAttribute(QStringLiteral("lastmodificationdate"),
                            file.modified.toUTC().toString(Qt::ISODateWithMs));
    xml->writeCharacters(file.path);
    xml->writeEndElement();
    if (!file.hash.isEmpty()) {
        const auto action = std::find_if(actions().begin(), actions().end(),
                                         [&](const auto &one) { return one.first == file.action; });
        xml->writeStartElement(QStringLiteral("xxh128"));
        xml->writeAttribute(QStringLiteral("action"), action->second);
        xml->writeCharacters(QString::fromLatin1(file.hash.toHex()));
        xml->writeEndElement();
    }
    if (!file.previousPath.isEmpty())
        xml->writeTextElement(QStringLiteral("previousPath"), file.previousPath);
    xml->writeEndElement();
}

/// A pattern of .gitignore as a regular expression that matches a whole path.
QString expressionOf(QString pattern)
{
    const bool anywhere = !pattern.contains(QLatin1Char('/'));
    if (pattern.startsWith(QLatin1Char('/')))
        pattern.remove(0, 1);
    QString expression = anywhere ? QStringLiteral("(?:.*/)?") : QString();
    for (int i = 0; i < pattern.size(); ++i) {
        const QStringRef rest = pattern.midRef(i);
        const bool startsPart = i == 0 || pattern.at(i - 1) == QLatin1Char('/');
        if (startsPart && rest == QLatin1String("**")) {
            expression += QStringLiteral(".+");
            ++i;
        } else if (startsPart && rest.startsWith(QLatin1String("**/"))) {
            expression += QStringLiteral("(?:.*/)?");
            i += 2;
        } else if (rest.startsWith(QLatin1Char('*'))) {
            expression += QStringLiteral("[^/]*");
        } else if (rest.startsWith(QLatin1Char('?'))) {
            expression += QStringLiteral("[^/]");
        } else if (const int end = rest.indexOf(QLatin1Char(']'), 2);
                   rest.startsWith(QLatin1Char('[')) && end > 0) {
            QString range = rest.mid(1, end - 1).toString();
            range.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
                .replace(QLatin1Char('['), QLatin1String("\\["));
            if (range.startsWith(QLatin1Char('!')))
                range[0] = QLatin1Char('^');
            expression += QStringLiteral("(?!/)[%1]").arg(range);
            i += end;
        } else {
            if (rest.startsWith(QLatin1Char('\\')) && rest.size() > 1)
                ++i;
            expression += QRegularExpression::escape(pattern.mid(i, 1));
        }
    }
    return QRegularExpression::anchoredPattern(expression);
}

} // namespace

bool MhlRecord::operator==(const MhlRecord &other) const
{
    return path == other.path && size == other.size && modified == other.modified && hash == other.hash &&
           action == other.action && previousPath == other.previousPath;
}

MhlManifest readManifest(const QByteArray &content)
{
    MhlManifest manifest;
    QXmlStreamReader xml(content);
    enter(&xml, manifestSpace, QStringLiteral("hashlist"));
    if (!xml.hasError() && xml.attributes().value(QLatin1String("version")) != QLatin1String("2.0"))
        xml.raiseError(QStringLiteral("another version"));
    QString name;
    while (nextChild(&xml, manifestSpace, &name)) {
        if (name == QLatin1String("processinfo"))
            readProcess(&xml, &manifest);
        else if (name == QLatin1String("hashes"))
            readFiles(&xml, &manifest);
        else
            xml.skipCurrentElement();
    }
    manifest.problem = problemOf(&xml);
    return manifest;
}

QByteArray toXml(const MhlManifest &manifest, const QDateTime &created)
{
    QByteArray content;
    QXmlStreamWriter xml(&content);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("hashlist"));
    xml.writeDefaultNamespace(manifestSpace);
    xml.writeAttribute(QStringLiteral("version"), QStringLiteral("2.0"));

    xml.writeStartElement(QStringLiteral("creatorinfo"));
    xml.writeTextElement(QStringLiteral("creationdate"), created.toUTC().toString(Qt::ISODate));
    xml.writeTextElement(QStringLiteral("hostname"), QSysInfo::machineHostName());
    xml.writeStartElement(QStringLiteral("tool"));
    xml.writeAttribute(QStringLiteral("version"), app_version);
    xml.writeCharacters(app_name);
    xml.writeEndElement();
    xml.writeEndElement();

    xml.writeStartElement(QStringLiteral("processinfo"));
    xml.writeTextElement(QStringLiteral("process"), manifest.process);
    if (!manifest.ignored.isEmpty()) {
        xml.writeStartElement(QStringLiteral("ignore"));
        for (const QString &pattern : manifest.ignored)
            xml.writeTextElement(QStringLiteral("pattern"), pattern);
        xml.writeEndElement();
    }
    xml.writeEndElement();

    if (!manifest.files.isEmpty()) {
        xml.writeStartElement(QStringLiteral("hashes"));
        for (const MhlRecord &file : manifest.files)
            writeFile(&xml, file);
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return content;
}

MhlChain readChain(const QByteArray &content)
{
    MhlChain chain;
    QXmlStreamReader xml(content);
    enter(&xml, chainSpace, QStringLiteral("ascmhldirectory"));
    QString name;
    while (nextChild(&xml, chainSpace, &name)) {
        if (name != QLatin1String("hashlist")) {
            xml.skipCurrentElement();
            continue;
        }
        const int number = xml.attributes().value(QLatin1String("sequencenr")).toInt();
        MhlGeneration generation;
        QString part;
        while (nextChild(&xml, chainSpace, &part)) {
            if (part == QLatin1String("path"))
                generation.name = xml.readElementText();
            else if (part == QLatin1String("c4"))
                generation.c4 = xml.readElementText().simplified().remove(QLatin1Char(' ')).toLatin1();
            else
                xml.skipCurrentElement();
        }
        chain.generations.append(generation);
        if (xml.hasError())
            break;
        if (number != chain.generations.size())
            xml.raiseError(QStringLiteral("the generations are not numbered one after another"));
        else if (!fitsManifest(generation.name) || generation.name.contains(QLatin1Char('/')))
            xml.raiseError(QStringLiteral("a manifest that is not beside the chain"));
    }
    chain.problem = problemOf(&xml);
    if (chain.problem.isEmpty() && chain.generations.isEmpty())
        chain.problem = QStringLiteral("it is empty");
    return chain;
}

QByteArray toXml(const QVector<MhlGeneration> &generations)
{
    QByteArray content;
    QXmlStreamWriter xml(&content);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("ascmhldirectory"));
    xml.writeDefaultNamespace(chainSpace);
    int number = 0;
    for (const MhlGeneration &generation : generations) {
        xml.writeStartElement(QStringLiteral("hashlist"));
        xml.writeAttribute(QStringLiteral("sequencenr"), QString::number(++number));
        xml.writeTextElement(QStringLiteral("path"), generation.name);
        xml.writeTextElement(QStringLiteral("c4"), QString::fromLatin1(generation.c4));
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return content;
}

bool fitsManifest(const QString &path)
{
    // Reading would change a carriage return, and XML has no other control characters.
    const bool written = std::none_of(path.begin(), path.end(), [](QChar letter) {
        return letter < QLatin1Char(' ') || letter.unicode() >= 0xfffe;
    });
    const QStringList parts = path.split(QLatin1Char('/'));
    return written && path.isValidUtf16() && !parts.contains(QString()) &&
           !parts.contains(QStringLiteral(".")) && !parts.contains(QStringLiteral(".."));
}

MhlIgnore::MhlIgnore(const QStringList &patterns)
{
    for (QString text : patterns) {
        while (text.endsWith(QLatin1Char(' ')) && !text.endsWith(QLatin1String("\\ ")))
            text.chop(1);
        Pattern pattern;
        pattern.negated = text.startsWith(QLatin1Char('!'));
        if (pattern.negated)
            text.remove(0, 1);
        pattern.foldersOnly = text.endsWith(QLatin1Char('/'));
        if (pattern.foldersOnly)
            text.chop(1);
        pattern.expression =
            QRegularExpression(expressionOf(text), QRegularExpression::DotMatchesEverythingOption);
        if (!text.isEmpty() && pattern.expression.isValid())
            patterns_.append(pattern);
    }
}

bool MhlIgnore::matches(const QString &path) const
{
    // A file in a folder that is left out can't be included again.
    for (int end = path.indexOf(QLatin1Char('/'));; end = path.indexOf(QLatin1Char('/'), end + 1)) {
        const QString part = path.left(end);
        bool matched = false;
        for (const Pattern &pattern : patterns_) {
            if (pattern.negated == matched && (end >= 0 || !pattern.foldersOnly) &&
                pattern.expression.match(part).hasMatch())
                matched = !pattern.negated;
        }
        if (matched || end < 0)
            return matched;
    }
}
