#pragma once

#include "platform/stopflag.h"

#include <QMap>
#include <QString>
#include <QVariant>

#include <deque>
#include <functional>
#include <memory>

class PendingProject;

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

    /// As createKava() and createPano(). A photo's project gets its name later, by finish() at the latest.
    /// False if the destination's disk could not take a project, this one or an earlier one, which has no
    /// name then.
    bool writeKava(int card, const QString &templatePath, const QString &videoPath, const QString &name,
                   const SettingsSource &settings);
    bool writePano(int card, const QString &templatePath, const QString &photoPath, const QString &name,
                   const SettingsSource &settings);

    /// Waits until all projects are on disk and have their names; returns as writePano(). Gives up on the
    /// rest when `stop` is raised. Those that are not finished are removed with the object.
    bool finish(const StopFlag &stop = StopFlag());

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
    struct Pending
    {
        int card = 0;
        std::unique_ptr<PendingProject> project;
        bool hasTemplate = true; ///< false if it stays empty
    };
    bool publishOldest(const StopFlag &stop);

    std::unique_ptr<TemplateReader> templates_;
    std::deque<Pending> pending_;
};
