#include "platform/openfile.h"

bool hasName(const QFile &file)
{
    return QFile::exists(file.fileName());
}
