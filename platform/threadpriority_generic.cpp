#include "platform/threadpriority.h"

#include <QThread>

void lowerThreadPriority()
{
    QThread::currentThread()->setPriority(QThread::LowPriority);
}
