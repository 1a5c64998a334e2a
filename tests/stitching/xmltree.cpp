#include "tests/stitching/xmltree.h"

#include <QXmlStreamReader>

#include <algorithm>

XmlNode *XmlNode::child(const QString &tag, int number)
{
    for (XmlNode &node : children) {
        if (node.kind == QLatin1String("element") && node.content == tag && --number == 0)
            return &node;
    }
    return nullptr;
}

XmlNode *XmlNode::descendant(const QString &path)
{
    XmlNode *node = this;
    const QStringList tags = path.split(QLatin1Char('/'));
    for (const QString &tag : tags) {
        if (node != nullptr)
            node = node->child(tag);
    }
    return node;
}

void XmlNode::removeDescendants(const QString &tag)
{
    const auto isUnwanted = [&tag](const XmlNode &node) {
        return node.kind == QLatin1String("element") && node.content == tag;
    };
    children.erase(std::remove_if(children.begin(), children.end(), isUnwanted), children.end());
    for (XmlNode &node : children)
        node.removeDescendants(tag);
}

XmlNode readXml(const QByteArray &text)
{
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    std::vector<XmlNode> open = {{QStringLiteral("document"), {}, {}, {}}};
    const auto add = [&open](const char *kind, const QString &content) {
        open.back().children.push_back({QString::fromLatin1(kind), content, {}, {}});
    };
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement: {
            XmlNode element = {QStringLiteral("element"), reader.qualifiedName().toString(), {}, {}};
            const QXmlStreamAttributes attributes = reader.attributes();
            for (const QXmlStreamAttribute &attribute : attributes)
                element.attributes.insert(attribute.qualifiedName().toString(), attribute.value().toString());
            open.push_back(element);
            break;
        }
        case QXmlStreamReader::EndElement: {
            const XmlNode element = open.back();
            open.pop_back();
            open.back().children.push_back(element);
            break;
        }
        case QXmlStreamReader::Characters:
            if (reader.isCDATA() || !reader.isWhitespace())
                add(reader.isCDATA() ? "cdata" : "text", reader.text().toString());
            break;
        case QXmlStreamReader::Comment:
            add("comment", reader.text().toString());
            break;
        case QXmlStreamReader::ProcessingInstruction:
            add("instruction",
                reader.processingInstructionTarget() + QLatin1Char(' ') + reader.processingInstructionData());
            break;
        case QXmlStreamReader::DTD:
            add("doctype", reader.text().toString().simplified());
            break;
        case QXmlStreamReader::StartDocument:
            if (!reader.documentVersion().isEmpty())
                add("instruction", QStringLiteral("xml ") + reader.documentVersion() + QLatin1Char(' ') +
                                       reader.documentEncoding());
            break;
        default:
            break;
        }
    }
    if (reader.hasError())
        open.front().children.push_back({QStringLiteral("error"), reader.errorString(), {}, {}});
    return open.front();
}

QStringList listed(const XmlNode &node)
{
    QStringList lines = {node.kind + QStringLiteral(": ") + node.content};
    for (auto entry = node.attributes.cbegin(); entry != node.attributes.cend(); ++entry)
        lines.append(QStringLiteral("  @%1=%2").arg(entry.key(), entry.value()));
    for (const XmlNode &child : node.children)
        lines.append(listed(child));
    lines.append(QStringLiteral("end of ") + node.content);
    return lines;
}
