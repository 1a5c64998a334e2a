#include "platform/terminal.h"

#include <unistd.h>

bool isErrorTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}
