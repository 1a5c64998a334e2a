#include "platform/terminal.h"

bool isErrorTerminal()
{
    return false;
}
