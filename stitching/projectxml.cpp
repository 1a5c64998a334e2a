#include "stitching/projectxml.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTextStream>
#include <QXmlStreamReader>

namespace {

/// The DOM is destroyed, and written below, by recursion; a real project nests about ten levels.
constexpr int deepestNesting = 1000;

/// Whether the text can become a DOM without exhausting memory or stack: entity declarations may expand
/// without bound, and nothing that writes projects declares any.
bool isHarmless(const QString &text)
{
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > deepestNesting)
                return false;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::DTD:
            if (!reader.entityDeclarations().isEmpty())
                return false;
            break;
        default:
            break;
        }
    }
    return !reader.hasError();
}

enum class Place {
    Text,
    Attribute,
};

/// `text` as QDomNode::save() escapes it, whose time grows with the square of what there is to escape.
QString escaped(const QString &text, Place place)
{
    QString result;
    result.reserve(text.size());
    for (const QChar character : text) {
        const ushort code = character.unicode();
        if (code == '<')
            result += QLatin1String("&lt;");
        else if (code == '&')
            result += QLatin1String("&amp;");
        else if (code == '>' && result.endsWith(QLatin1String("]]")))
            result += QLatin1String("&gt;");
        else if (place == Place::Attribute && code == '"')
            result += QLatin1String("&quot;");
        else if (code == '\r' || (place == Place::Attribute && (code == '\n' || code == '\t')))
            result += QStringLiteral("&#x%1;").arg(code, 0, 16);
        else
            result += character;
    }
    return result;
}

/// Writes nodes in the layout of QDomDocument::toString(1), but for the order of attributes: the DOM keeps
/// them in a hash whose order changes from process to process.
class XmlWriter
{
public:
    explicit XmlWriter(QByteArray *target)
        : stream_(target, QIODevice::WriteOnly)
    {
        stream_.setCodec("UTF-8");
    }

    void writeDocument(const QDomDocument &document)
    {
        bool afterDoctype = false;
        for (QDomNode node = document.firstChild(); !node.isNull(); node = node.nextSibling()) {
            const bool declaration =
                node.isProcessingInstruction() && node.nodeName() == QLatin1String("xml");
            if (!afterDoctype && !declaration) {
                save(document.doctype());
                afterDoctype = true;
            }
            writeNode(node, 0);
        }
    }

    void writeNode(const QDomNode &node, int depth)
    {
        if (node.isElement() || node.isComment()) {
            if (!isText(node.previousSibling()))
                indent(depth);
            if (node.isElement())
                writeElement(node.toElement(), depth);
            else
                stream_ << "<!--" << node.nodeValue() << "-->";
            if (!isText(node.nextSibling()))
                stream_ << '\n';
        } else if (node.isText() && !node.isCDATASection()) {
            stream_ << escaped(node.nodeValue(), Place::Text);
        } else {
            save(node);
        }
    }

    /// The element as if it had no siblings.
    void writeElementAlone(const QDomElement &element)
    {
        writeElement(element, 0);
        stream_ << '\n';
    }

    void writeText(const char *text) { stream_ << text; }

private:
    static bool isText(const QDomNode &node) { return node.isText(); }

    void indent(int depth) { stream_ << QString(depth, QLatin1Char(' ')); }

    void save(const QDomNode &node) { node.save(stream_, 1, QDomNode::EncodingFromTextStream); }

    void writeElement(const QDomElement &element, int depth)
    {
        stream_ << '<' << element.tagName();
        QMap<QString, QDomNode> attributes;
        const QDomNamedNodeMap unordered = element.attributes();
        for (int i = 0; i < unordered.count(); ++i)
            attributes.insert(unordered.item(i).nodeName(), unordered.item(i));
        for (const QDomNode &attribute : qAsConst(attributes))
            stream_ << ' ' << attribute.nodeName() << "=\""
                    << escaped(attribute.nodeValue(), Place::Attribute) << '"';
        if (!element.hasChildNodes()) {
            stream_ << "/>";
            return;
        }
        stream_ << '>';
        if (!isText(element.firstChild()))
            stream_ << '\n';
        for (QDomNode child = element.firstChild(); !child.isNull(); child = child.nextSibling())
            writeNode(child, depth + 1);
        if (!isText(element.lastChild()))
            indent(depth);
        stream_ << "</" << element.tagName() << '>';
    }

    QTextStream stream_;
};

} // namespace

QDomDocument readTemplate(const QString &path)
{
    return parseTemplate(readTemplateContent(path));
}

QByteArray readTemplateContent(const QString &path)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QDomDocument parseTemplate(const QByteArray &content)
{
    const QString text = QString::fromUtf8(content);
    QDomDocument document;
    // A failed setContent() leaves what it had parsed so far in the document.
    if (!isHarmless(text) || !document.setContent(text, false))
        return {};
    return document;
}

QByteArray toXml(const QDomDocument &document)
{
    QByteArray text;
    XmlWriter(&text).writeDocument(document);
    return text;
}

QByteArray toPanoXml(const QDomElement &pano)
{
    QByteArray text;
    {
        XmlWriter writer(&text);
        writer.writeText("<?xml version='1.0' encoding='UTF-8'?>\n");
        if (!pano.isNull())
            writer.writeElementAlone(pano);
    }
    return text;
}
