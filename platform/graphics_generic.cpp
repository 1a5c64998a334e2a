#include "platform/graphics.h"

bool hasGraphicsProcessor()
{
    return true;
}
