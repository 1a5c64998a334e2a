#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <vector>

/// A document as plain nodes, read without the DOM that the program uses; blank text is left out.
struct XmlNode
{
    QString kind;    ///< "document", "element", "text", "cdata", "comment", "instruction" or "doctype"
    QString content; ///< the element's tag, or the text
    QMap<QString, QString> attributes;
    std::vector<XmlNode> children;

    /// The `number`-th (from 1) child element of that tag; null if there is none.
    XmlNode *child(const QString &tag, int number = 1);
    /// The same along "a/b/c", each the first of its tag.
    XmlNode *descendant(const QString &path);
    void removeDescendants(const QString &tag);
};

/// What stands in a well-formed document; an error shows as a text node that no document can hold.
XmlNode readXml(const QByteArray &text);

/// One line per node, attribute and end of element, in document order.
QStringList listed(const XmlNode &node);
