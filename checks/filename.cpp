#include "checks/filename.h"

#include <string>

namespace {

QString escaped(unsigned char byte)
{
    return QStringLiteral("\\x%1").arg(byte, 2, 16, QLatin1Char('0'));
}

} // namespace

QString shown(const std::filesystem::path &path)
{
    const std::string bytes = path.u8string();
    // Alone, or at the beginning, U+FEFF would be taken for a byte order mark.
    const bool valid = QString::fromStdString('/' + bytes).toStdString() == '/' + bytes;
    constexpr unsigned char firstPrintable = 0x20;
    constexpr unsigned char del = 0x7f;
    QString text;
    std::string printable;
    const auto flush = [&] {
        text += QString::fromStdString(printable);
        printable.clear();
    };
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= firstPrintable && byte != del && (byte < del || valid)) {
            printable += character;
            continue;
        }
        flush();
        text += escaped(byte);
    }
    flush();
    return text;
}

std::filesystem::path pathOf(const QString &path)
{
    return std::filesystem::u8path(path.toStdString());
}
