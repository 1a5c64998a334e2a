#include "platform/portholder.h"

QString portHolder(const QString & /*device*/)
{
    return {};
}
