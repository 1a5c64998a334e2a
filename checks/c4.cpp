#include "checks/c4.h"

#include <QCryptographicHash>

#include <algorithm>

QByteArray c4Of(const QByteArray &content)
{
    constexpr int digits = 88;
    static const char alphabet[] = "123456789ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz";
    constexpr unsigned base = sizeof(alphabet) - 1;

    // Long division of the hash by the base gives the digits from the last to the first.
    QByteArray number = QCryptographicHash::hash(content, QCryptographicHash::Sha512);
    QByteArray id(digits, alphabet[0]);
    for (int digit = digits - 1; digit >= 0; --digit) {
        unsigned rest = 0;
        for (char &byte : number) {
            const unsigned value = rest * 256 + static_cast<unsigned char>(byte);
            byte = static_cast<char>(value / base);
            rest = value % base;
        }
        id[digit] = alphabet[rest];
    }
    return "c4" + id;
}
