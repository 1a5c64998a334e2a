#include "stitching/templatelimits.h"

#include <QMap>
#include <QXmlDefaultHandler>
#include <QXmlInputSource>
#include <QXmlSimpleReader>

namespace {

/// The DOM is destroyed and written by recursion; a real project nests about ten levels.
constexpr int maxDepth = 1000;
constexpr int maxNodes = 200000;
/// Of a project in all: each line begins with a blank per level.
constexpr int maxIndentation = maxTemplateBytes;
/// The DOM finds the n-th attribute of an element by counting.
constexpr int maxAttributesOfElement = 300;
/// The reader goes through content models by recursion, and through all entities at each declaration.
constexpr int maxDoctypeCharacters = 4096;
constexpr int maxEntities = 100;
constexpr int maxEntityCharacters = 10000;
constexpr int maxExpandedCharacters = maxTemplateBytes;

/// Reads a text as QDomDocument::setContent() does, but only counts what it meets, and stops at a limit.
class LimitChecker : public QXmlInputSource, public QXmlDefaultHandler
{
public:
    explicit LimitChecker(const QString &text)
        : text_(text)
    {
        setData(text);
    }

    QString exceeded()
    {
        QXmlSimpleReader reader;
        reader.setFeature(QStringLiteral("http://xml.org/sax/features/namespaces"), false);
        reader.setFeature(QStringLiteral("http://xml.org/sax/features/namespace-prefixes"), true);
        reader.setContentHandler(this);
        reader.setLexicalHandler(this);
        reader.setDeclHandler(this);
        reader.parse(this);
        return exceeded_;
    }

    QChar next() override
    {
        if (inDoctype_ && ++doctypeCharacters_ > maxDoctypeCharacters)
            exceed(QStringLiteral("a document type of more than %1 characters"), maxDoctypeCharacters);
        return exceeded_.isEmpty() ? QXmlInputSource::next() : QChar(EndOfDocument);
    }

    bool startDTD(const QString & /*name*/, const QString & /*publicId*/,
                  const QString & /*systemId*/) override
    {
        inDoctype_ = true;
        return true;
    }

    bool endDTD() override
    {
        inDoctype_ = false;
        return entities_.isEmpty() || expandedSize(text_) <= maxExpandedCharacters ||
               exceed(QStringLiteral("entities that expand to more than %1 characters"),
                      maxExpandedCharacters);
    }

    bool internalEntityDecl(const QString &name, const QString &value) override
    {
        // The names of parameter entities are reported with their "%".
        entities_.insert((name.startsWith(QLatin1Char('%')) ? name : QLatin1Char('&') + name) +
                             QLatin1Char(';'),
                         {value, -1});
        if (entities_.size() > maxEntities)
            return exceed(QStringLiteral("more than %1 entities"), maxEntities);
        // An entity may refer to one that is declared later.
        for (Entity &entity : entities_)
            entity.expandedSize = -1;
        for (Entity &entity : entities_) {
            if (sizeOf(entity) > maxEntityCharacters)
                return exceed(QStringLiteral("an entity that expands to more than %1 characters"),
                              maxEntityCharacters);
        }
        return true;
    }

    bool startElement(const QString & /*uri*/, const QString & /*localName*/, const QString & /*name*/,
                      const QXmlAttributes &attributes) override
    {
        if (++depth_ > maxDepth)
            return exceed(QStringLiteral("elements nested deeper than %1"), maxDepth);
        if (attributes.count() > maxAttributesOfElement)
            return exceed(QStringLiteral("an element with more than %1 attributes"), maxAttributesOfElement);
        return addNodes(1 + attributes.count());
    }

    bool endElement(const QString & /*uri*/, const QString & /*localName*/, const QString & /*name*/) override
    {
        --depth_;
        return true;
    }

    bool characters(const QString & /*text*/) override { return addNodes(1); }
    bool startCDATA() override { return addNodes(1); }
    bool comment(const QString & /*text*/) override { return addNodes(1); }
    bool skippedEntity(const QString & /*name*/) override { return addNodes(1); }
    bool processingInstruction(const QString & /*target*/, const QString & /*data*/) override
    {
        return addNodes(1);
    }

private:
    struct Entity
    {
        QString value;
        qint64 expandedSize; ///< -1 while it is not known
    };

    bool exceed(const QString &limit, int value)
    {
        exceeded_ = limit.arg(value);
        return false;
    }

    bool addNodes(int count)
    {
        nodes_ += count;
        indentation_ += depth_;
        if (indentation_ > maxIndentation)
            return exceed(QStringLiteral("an indentation of more than %1 blanks"), maxIndentation);
        return nodes_ <= maxNodes ||
               exceed(QStringLiteral("more than %1 elements, attributes and texts"), maxNodes);
    }

    qint64 sizeOf(Entity &entity)
    {
        if (entity.expandedSize < 0) {
            // Entities in a circle end here. The reader refuses them.
            entity.expandedSize = 0;
            entity.expandedSize = expandedSize(entity.value);
        }
        return entity.expandedSize;
    }

    /// The length of `text` with its references replaced.
    qint64 expandedSize(const QString &text)
    {
        qint64 size = text.size();
        for (auto entity = entities_.begin(); entity != entities_.end(); ++entity) {
            const qint64 references = text.count(entity.key());
            if (references > 0)
                size += references * sizeOf(entity.value());
        }
        return size;
    }

    QString text_;
    QString exceeded_;
    QMap<QString, Entity> entities_; ///< by reference, such as "&name;" or "%name;"
    bool inDoctype_ = false;
    int doctypeCharacters_ = 0;
    int depth_ = 0;
    int nodes_ = 0;
    int indentation_ = 0;
};

} // namespace

QString exceededTemplateLimit(const QString &text)
{
    return LimitChecker(text).exceeded();
}
