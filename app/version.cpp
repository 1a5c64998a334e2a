#include "app/version.h"

const QString app_name = QStringLiteral("Kelpora 360");
const QString app_version = QStringLiteral(KELPORA_VERSION);
