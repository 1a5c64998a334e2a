#include "platform/openfile.h"

bool isInPlace(const QFile &file)
{
    Q_UNUSED(file)
    return false;
}
