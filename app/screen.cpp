#include "app/screen.h"

#include "app/paths.h"

AppScreen::AppScreen(double settingsFactor)
    : settingsScaleFactor(settingsFactor)
{
}

double AppScreen::init(int argc, char **argv)
{
    if (argc > 0 && argv[0] != nullptr)
        executablePath = QString::fromUtf8(argv[0]);
    applicationDirectory = getAppPath();
    scaleFactor = 1.0;
    return scaleFactor;
}
