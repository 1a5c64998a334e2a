#include "cli/output.h"

#include "cli/command.h"

#include <QJsonDocument>

#include <cstdio>

namespace {

void print(std::FILE *stream, const QByteArray &text)
{
    std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stream);
}

/// `text`, which may hold names of files, without what would move a terminal's cursor or turn its direction.
void printLine(std::FILE *stream, const QString &text)
{
    QString line;
    for (const QChar character : text) {
        if (character.category() != QChar::Other_Control && character.category() != QChar::Other_Format) {
            line += character;
            continue;
        }
        for (const char byte : QString(character).toUtf8())
            line += QStringLiteral("\\x%1").arg(static_cast<unsigned char>(byte), 2, 16, QLatin1Char('0'));
    }
    print(stream, (line + QLatin1Char('\n')).toUtf8());
}

} // namespace

void Output::line(const QString &text) const
{
    if (!json_)
        printLine(stdout, text);
}

void Output::set(const QString &key, const QJsonValue &value)
{
    object_.insert(key, value);
}

void Output::complain(const QString &text)
{
    set(QStringLiteral("error"), text);
    warn(text);
}

void Output::warn(const QString &text)
{
    printLine(stderr, QStringLiteral("kelpora360-cli: ") + text);
}

int Output::finish(Exit exit)
{
    if (json_) {
        set(QStringLiteral("exit"), static_cast<int>(exit));
        print(stdout, QJsonDocument(object_).toJson(QJsonDocument::Indented));
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        warn(QStringLiteral("the result could not be written."));
        return static_cast<int>(exit == Exit::Good ? Exit::NotChecked : exit);
    }
    return static_cast<int>(exit);
}
