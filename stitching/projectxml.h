#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QString>

/// The XML of template projects: read safely, written the same way in every run.

/// A template file's bytes.
struct TemplateFile
{
    QByteArray content; ///< empty if it can't be read; of a file above maxTemplateBytes only the beginning
    QString problem;    ///< why it can't be read
};

/// What was read from a template.
struct ProjectTemplate
{
    QDomDocument document; ///< empty if there is a problem
    QString problem;       ///< why it can't be used, in words for the log
    bool aboveLimit = false;
};

[[nodiscard]] TemplateFile readTemplateFile(const QString &path);

/// All that QDomDocument takes for XML is a template, up to the limits of templatelimits.h.
[[nodiscard]] ProjectTemplate parseTemplate(const TemplateFile &file);

/// The document as UTF-8 text, indented by one space per level, each element's attributes in the order of
/// their names. Empty for an empty document. Throws std::runtime_error if it holds characters that no XML can
/// express.
[[nodiscard]] QByteArray toXml(const QDomDocument &document);

/// `pano` (may be null) as a document of its own under an XML declaration, written like toXml().
[[nodiscard]] QByteArray toPanoXml(const QDomElement &pano);
