#include "cli/output.h"

#include "cli/command.h"

#include <QJsonDocument>

#include <cstdio>

namespace {

void print(std::FILE *stream, const QByteArray &text)
{
    std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stream);
}

} // namespace

void Output::line(const QString &text) const
{
    if (!json_)
        print(stdout, (text + QLatin1Char('\n')).toUtf8());
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
    print(stderr, QStringLiteral("kelpora360-cli: %1\n").arg(text).toUtf8());
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
