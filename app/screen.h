#pragma once

#include <QString>

/// Scale factors and screen measurements as start-up sees them, before the GUI application exists.
///
/// No screen is measured: the measurements keep their initial values and are logged as such. Heights are
/// in pixels, the physical height in millimetres. The display's scale comes from Qt's own handling.
class AppScreen
{
public:
    AppScreen() = default;
    /// `settingsFactor`: the factor that the settings file asks for; logged, never applied.
    explicit AppScreen(double settingsFactor);

    /// Records the executable's path (`argv[0]`, if there is one) and the application folder, fixes the
    /// effective scale factor at 1.0 and returns it.
    double init(int argc, char **argv);

    double scaleFactor = 1.0;
    double settingsScaleFactor = 0.0;
    double calculatedScaleFactor = 0.0;
    int sizeHeight = 0;
    double physicalSizeHeight = 0.0;
    double physicalDpi = 0.0;
    double logicalDpi = 0.0;
    int geometryHeight = 0;
    int availableSizeHeight = 0;
    int availableGeometryHeight = 0;
    int availableVirtualGeometryHeight = 0;
    int availableVirtualSizeHeight = 0;
    int virtualGeometryHeight = 0;
    int virtualSizeHeight = 0;
    QString applicationDirectory;
    QString executablePath;
};
