#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>

/// Writes a take's stitching projects: the user's template project with the take's three files, and the
/// rig's angles if the settings say so. A project that exists is never touched, and none is ever there
/// half-written.
///
/// The static functions serve single takes. An object is for the takes of one import, on one thread: it
/// parses the template once, and asks for the settings only when it writes a project.
class Autopano
{
    Q_DISABLE_COPY(Autopano)

public:
    using SettingsSource = std::function<QMap<QString, QVariant>()>;

    Autopano();
    ~Autopano();

    /// As createKava() and createPano(). False if the destination's disk could not take the project, which
    /// has no name then.
    bool writeKava(int card, const QString &templatePath, const QString &videoPath, const QString &name,
                   const SettingsSource &settings);
    bool writePano(int card, const QString &templatePath, const QString &photoPath, const QString &name,
                   const SettingsSource &settings);

    /// Writes the ".kava" project of the video take `videoPath` (the take's path in the destination, ending
    /// in ".MOV") beside its videos. `card` (1 to 3) only names the caller in the log; `name` is the project
    /// name or empty; `settings` is the settings map. Also supplies the templates folder with the project
    /// if it has no template of that name, and with a ".pano" template cut from it. A template that can't be
    /// used gives empty projects and a warning in the log. Failures to write are silent, but for what a
    /// disk refuses late; exceptions are logged, none is thrown.
    static void createKava(int card, const QString &templatePath, const QString &videoPath,
                           const QString &name, const QMap<QString, QVariant> &settings);

    /// Writes the ".pano" project of the photo take `photoPath`, ending in ".JPG" or ".DNG", cut out of the
    /// same ".kava" template. Arguments and failures as for createKava().
    static void createPano(int card, const QString &templatePath, const QString &photoPath,
                           const QString &name, const QMap<QString, QVariant> &settings);

private:
    class TemplateReader;
    std::unique_ptr<TemplateReader> templates_;
};
