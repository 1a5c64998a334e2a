#include "stitching/projectxml.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTextStream>
#include <QXmlStreamReader>

namespace {

/// The DOM is destroyed, and written below, by recursion; a real project nests about ten levels.
constexpr int deepestNesting = 1000;

enum class Verdict {
    Harmless,
    Harmful,
    Unknown, ///< the reader stopped at something that the DOM may take
};

/// Walks the text with a reader that keeps to the rules.
Verdict strictVerdict(const QString &text)
{
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > deepestNesting)
                return Verdict::Harmful;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::DTD:
            if (!reader.entityDeclarations().isEmpty())
                return Verdict::Harmful;
            break;
        default:
            break;
        }
    }
    return reader.hasError() ? Verdict::Unknown : Verdict::Harmless;
}

/// The first index after `end`, searched from `from` on; the text's end if there is none.
int skipPast(const QString &text, const char *end, int from)
{
    const QLatin1String mark(end);
    const int found = text.indexOf(mark, from);
    return found < 0 ? text.size() : found + mark.size();
}

/// The index of the ">" that closes the tag from `from` on; the text's end if none does.
int tagEnd(const QString &text, int from)
{
    QChar quote;
    for (int at = from; at < text.size(); ++at) {
        const QChar character = text.at(at);
        if (!quote.isNull()) {
            if (character == quote)
                quote = QChar();
        } else if (character == '"' || character == '\'') {
            quote = character;
        } else if (character == '>') {
            return at;
        }
    }
    return text.size();
}

/// Whether a text without a document type nests no deeper than allowed; the rest is left to the DOM.
bool isShallow(const QString &text)
{
    int depth = 0;
    for (int at = text.indexOf('<'); at >= 0 && at < text.size(); at = text.indexOf('<', at)) {
        const QStringRef rest = text.midRef(at, 9);
        if (rest.startsWith(QLatin1String("<!--"))) {
            at = skipPast(text, "-->", at + 4);
        } else if (rest == QLatin1String("<![CDATA[")) {
            at = skipPast(text, "]]>", at);
        } else if (rest.startsWith(QLatin1String("<?"))) {
            at = skipPast(text, "?>", at);
        } else if (rest.startsWith(QLatin1String("</"))) {
            --depth;
            at += 2;
        } else {
            const int end = tagEnd(text, at);
            const bool empty = end < text.size() && text.at(end - 1) == '/';
            if (!empty && ++depth > deepestNesting)
                return false;
            at = end;
        }
    }
    return true;
}

/// Whether the text can become a DOM without exhausting memory or stack: entity declarations may expand
/// without bound, and nothing that writes projects declares any. Whether the text is XML is the DOM's to say,
/// which takes more than the rules allow.
bool isHarmless(const QString &text)
{
    const Verdict verdict = strictVerdict(text);
    if (verdict != Verdict::Unknown)
        return verdict == Verdict::Harmless;
    return !text.contains(QLatin1String("<!DOCTYPE")) && isShallow(text);
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
