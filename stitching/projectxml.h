#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QString>

/// The XML of template projects: read safely, written the same way in every run.

/// The template file `path` as a document. A file that can't be read, is no XML to QDomDocument, declares
/// entities or nests elements deeper than any real project gives an empty document.
[[nodiscard]] QDomDocument readTemplate(const QString &path);

/// The two halves of readTemplate(): the bytes, empty if they can't be read, and the document that they hold.
[[nodiscard]] QByteArray readTemplateContent(const QString &path);
[[nodiscard]] QDomDocument parseTemplate(const QByteArray &content);

/// The document as UTF-8 text, indented by one space per level, each element's attributes in the order of
/// their names. Empty for an empty document.
[[nodiscard]] QByteArray toXml(const QDomDocument &document);

/// `pano` (may be null) as a document of its own under an XML declaration, written like toXml().
[[nodiscard]] QByteArray toPanoXml(const QDomElement &pano);
