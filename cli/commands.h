#pragma once

#include "cli/command.h"

#include <QVector>

/// Every command, in the order in which the help lists them.
[[nodiscard]] const QVector<Command> &commands();

Exit listDrives(const Call &call);
Exit import(const Call &call);
Exit verify(const Call &call);
Exit listPorts(const Call &call);
Exit readSettings(const Call &call);
Exit diagnose(const Call &call);
Exit auditFolder(const Call &call);
Exit checkTakes(const Call &call);
