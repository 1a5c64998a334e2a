#include "stitching/projectxml.h"

#include "stitching/templatelimits.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QTextStream>
#include <QXmlStreamWriter>

#include <algorithm>
#include <stdexcept>

namespace {

/// QXmlStreamWriter drops control characters, and writes a carriage return of a text so that it is read as a
/// line feed. They pass it as these noncharacters and become character references afterwards.
constexpr ushort firstStandIn = 0xFDD0;
constexpr ushort lastStandIn = 0xFDEF;

const QString plainDeclaration = QStringLiteral("version='1.0' encoding='UTF-8'");

bool needsStandIn(QChar character)
{
    const ushort code = character.unicode();
    return code < ' ' && code != '\n' && code != '\t';
}

/// Writes the nodes of a DOM, but for the order of attributes: the DOM keeps them in a hash whose order
/// changes from process to process.
class XmlWriter
{
    Q_DISABLE_COPY(XmlWriter)

public:
    XmlWriter()
    {
        writer_.setAutoFormatting(true);
        writer_.setAutoFormattingIndent(1);
    }

    void writeDocument(const QDomDocument &document)
    {
        bool afterDoctype = false;
        for (QDomNode node = document.firstChild(); !node.isNull(); node = node.nextSibling()) {
            const bool declaration =
                node.isProcessingInstruction() && node.nodeName() == QLatin1String("xml");
            if (!afterDoctype && !declaration) {
                writeDoctype(document.doctype());
                afterDoctype = true;
            }
            writeNode(node);
        }
    }

    void writeDeclaration(const QString &data)
    {
        // The DOM has put each value into single quotes, also one that holds such a quote.
        static const QRegularExpression readable(QStringLiteral("\\A( ?\\w+='[^']*')*\\z"));
        writer_.writeProcessingInstruction(QStringLiteral("xml"),
                                           readable.match(data).hasMatch() ? data : plainDeclaration);
    }

    void writeNode(const QDomNode &node)
    {
        if (node.isElement())
            writeElement(node.toElement());
        else if (node.isCDATASection())
            writer_.writeCDATA(checked(node.nodeValue()));
        else if (node.isText())
            writer_.writeCharacters(withStandIns(node.nodeValue()));
        else if (node.isComment())
            writer_.writeComment(checked(node.nodeValue()));
        else if (node.isProcessingInstruction() && node.nodeName() == QLatin1String("xml"))
            writeDeclaration(checked(node.nodeValue()));
        else if (node.isProcessingInstruction())
            writer_.writeProcessingInstruction(node.nodeName(), checked(node.nodeValue()));
        else if (node.isEntityReference())
            writer_.writeEntityReference(node.nodeName());
    }

    QByteArray finish()
    {
        writer_.writeEndDocument();
        for (ushort code = 0; hasStandIns_ && code < ' '; ++code)
            text_.replace(QString(QChar(firstStandIn + code)).toUtf8(),
                          "&#" + QByteArray::number(code) + ';');
        // The writer begins every line with its line feed, the first one too.
        return text_.startsWith('\n') ? text_.mid(1) : text_;
    }

private:
    static QString checked(const QString &text)
    {
        const bool expressible =
            text.isValidUtf16() && std::none_of(text.cbegin(), text.cend(), [](QChar character) {
                const ushort code = character.unicode();
                return (code >= firstStandIn && code <= lastStandIn) || code >= 0xFFFE;
            });
        if (!expressible)
            throw std::runtime_error("The template holds a character that can't be written.");
        return text;
    }

    QString withStandIns(const QString &text)
    {
        QString result = checked(text);
        if (std::any_of(text.cbegin(), text.cend(), needsStandIn)) {
            hasStandIns_ = true;
            for (QChar &character : result) {
                if (needsStandIn(character))
                    character = QChar(firstStandIn + character.unicode());
            }
        }
        return result;
    }

    void writeElement(const QDomElement &element)
    {
        writer_.writeStartElement(element.tagName());
        QMap<QString, QString> sorted;
        const QDomNamedNodeMap attributes = element.attributes();
        for (int i = 0; i < attributes.count(); ++i) {
            const QDomNode attribute = attributes.item(i);
            sorted.insert(attribute.nodeName(), attribute.nodeValue());
        }
        for (auto attribute = sorted.cbegin(); attribute != sorted.cend(); ++attribute)
            writer_.writeAttribute(attribute.key(), withStandIns(attribute.value()));
        for (QDomNode child = element.firstChild(); !child.isNull(); child = child.nextSibling())
            writeNode(child);
        writer_.writeEndElement();
    }

    void writeDoctype(const QDomDocumentType &doctype)
    {
        QString text;
        QTextStream stream(&text);
        doctype.save(stream, 1);
        stream.flush();
        if (!text.isEmpty())
            writer_.writeDTD(checked(text.trimmed()));
    }

    QByteArray text_;
    QXmlStreamWriter writer_{&text_};
    bool hasStandIns_ = false;
};

} // namespace

TemplateFile readTemplateFile(const QString &path)
{
    const QFileInfo info(path);
    // Opening a pipe would wait for its other end.
    if (!info.isFile())
        return {{},
                info.exists() ? QStringLiteral("it is not a file") : QStringLiteral("there is no such file")};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {{}, file.errorString()};
    // read() reserves what it may take at most, for every photo.
    return {file.size() > maxTemplateBytes ? file.read(maxTemplateBytes + 1) : file.readAll(), {}};
}

ProjectTemplate parseTemplate(const TemplateFile &file)
{
    if (!file.problem.isEmpty())
        return {{}, file.problem};
    if (file.content.size() > maxTemplateBytes)
        return {{}, QStringLiteral("more than %1 bytes").arg(maxTemplateBytes), true};
    const QString text = QString::fromUtf8(file.content);
    const QString limit = exceededTemplateLimit(text);
    if (!limit.isEmpty())
        return {{}, limit, true};
    QDomDocument document;
    QString error;
    int line = 0;
    int column = 0;
    // A failed setContent() leaves what it had parsed so far in the document.
    if (!document.setContent(text, false, &error, &line, &column))
        return {{}, QStringLiteral("line %1, column %2: %3").arg(line).arg(column).arg(error)};
    return {document, {}};
}

QByteArray toXml(const QDomDocument &document)
{
    if (!document.hasChildNodes())
        return {};
    XmlWriter writer;
    writer.writeDocument(document);
    return writer.finish();
}

QByteArray toPanoXml(const QDomElement &pano)
{
    XmlWriter writer;
    writer.writeDeclaration(plainDeclaration);
    if (!pano.isNull())
        writer.writeNode(pano);
    return writer.finish();
}
