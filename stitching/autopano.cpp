#include "stitching/autopano.h"

#include "app/paths.h"
#include "platform/newfile.h"
#include "stitching/pendingproject.h"
#include "stitching/projectxml.h"
#include "stitching/stitchangles.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>

#include <array>
#include <exception>
#include <optional>
#include <utility>

namespace {

constexpr int cameras = 3;
using CameraFiles = std::array<QString, cameras>;

const QString videoExtension = QStringLiteral(".MOV");

QString replaced(QString text, const QString &before, const QString &after)
{
    return text.replace(before, after);
}

/// A "/" in the project's name is part of the take's folder: the project lies there too.
QString bareFileName(const QString &file)
{
    return file.section(QLatin1Char('/'), -1);
}

/// The file names of the three cameras' copies of the video take `takeFile`, as the import names them.
CameraFiles cameraVideos(const QString &takeFile, const QString &name)
{
    CameraFiles files;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const QString suffix = QStringLiteral("_cam") + QString::number(i + 1) + videoExtension;
        files[i] = bareFileName(replaced(
            takeFile, videoExtension, name.isEmpty() ? suffix : (QStringLiteral("_%1") + suffix).arg(name)));
    }
    return files;
}

/// The same for the photo take `takeFile` with `extension`, which fills a placeholder here: a "%2" in the
/// project's name becomes the extension.
CameraFiles cameraPhotos(const QString &takeFile, const QString &extension, const QString &name)
{
    CameraFiles files;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const QString camera = QStringLiteral("_cam") + QString::number(i + 1);
        files[i] = bareFileName(
            replaced(takeFile, extension,
                     name.isEmpty()
                         ? camera + extension
                         : (QStringLiteral("_%1") + camera + QStringLiteral("%2")).arg(name).arg(extension)));
    }
    return files;
}

void setVideoFiles(const QDomElement &list, const CameraFiles &files, bool resetTime)
{
    QDomElement video = list.firstChildElement(QStringLiteral("video"));
    for (const QString &file : files) {
        video.setAttribute(QStringLiteral("file"), file);
        if (resetTime)
            video.setAttribute(QStringLiteral("dt"), QStringLiteral("0"));
        video = video.nextSiblingElement(QStringLiteral("video"));
    }
}

void setPictureFiles(const QDomElement &images, const CameraFiles &files)
{
    QDomElement image = images.firstChildElement(QStringLiteral("image"));
    for (const QString &file : files) {
        if (image.isNull())
            return;
        image.firstChildElement(QStringLiteral("def")).setAttribute(QStringLiteral("filename"), file);
        image = image.nextSiblingElement(QStringLiteral("image"));
    }
}

void setAngles(const QDomElement &images, const QVariantMap &settings)
{
    struct Angle
    {
        const char *attribute;
        const char *key;
    };
    constexpr std::array<Angle, 5> angles = {{
        {"yaw", "Yaw"},
        {"pitch", "Pitch"},
        {"roll", "Roll"},
        {"offset_x", "OffsetX"},
        {"offset_y", "OffsetY"},
    }};
    QDomElement image = images.firstChildElement(QStringLiteral("image"));
    for (int number = 1; number <= cameras && !image.isNull(); ++number) {
        QDomElement camera = image.firstChildElement(QStringLiteral("camera"));
        for (const Angle &angle : angles) {
            const QString key = QStringLiteral("Camera%1").arg(number) + QLatin1String(angle.key);
            camera.setAttribute(QLatin1String(angle.attribute), settings.value(key).toString());
        }
        image = image.nextSiblingElement(QStringLiteral("image"));
    }
}

/// The node after `node` in document order, below `top`; without the node's own subtree if `skipChildren`.
QDomNode following(QDomNode node, const QDomNode &top, bool skipChildren)
{
    if (!skipChildren && node.hasChildNodes())
        return node.firstChild();
    while (node != top) {
        if (!node.nextSibling().isNull())
            return node.nextSibling();
        node = node.parentNode();
    }
    return {};
}

// One pass: a live list of elements by name is counted anew after every removal.
void removeDescendants(const QDomElement &top, const QString &tagName)
{
    QDomNode node = following(top, top, false);
    while (!node.isNull()) {
        const bool unwanted = node.isElement() && node.nodeName() == tagName;
        const QDomNode next = following(node, top, unwanted);
        if (unwanted)
            node.parentNode().removeChild(node);
        node = next;
    }
}

/// The edits of the panorama description that both kinds of project share.
void editPano(const QDomElement &pano, const CameraFiles &pictures, const QVariantMap &settings)
{
    const QDomElement images = pano.firstChildElement(QStringLiteral("images"));
    setPictureFiles(images, pictures);
    if (settings.value(QStringLiteral("OverwriteAngles")).toBool())
        setAngles(images, settings);
}

/// Removes what no project keeps of its template, and most of what a real one holds.
void removeFindings(const QDomElement &pano)
{
    removeDescendants(pano, QStringLiteral("thumbnail"));
    removeDescendants(pano, QStringLiteral("match"));
}

QDomElement panoOf(const QDomDocument &document)
{
    return document.firstChildElement(QStringLiteral("kava")).firstChildElement(QStringLiteral("pano"));
}

void setEncodingRules(QDomElement rules)
{
    rules.setAttribute(QStringLiteral("presets"), QStringLiteral("4;"));
    rules.setAttribute(QStringLiteral("quality"), QStringLiteral("1;"));
    rules.setAttribute(QStringLiteral("profile"), QStringLiteral("2;"));
    rules.setAttribute(QStringLiteral("framerateMode"), QStringLiteral("0;"));
    rules.setAttribute(QStringLiteral("vbitrate"), QStringLiteral("100000000"));
    rules.setAttribute(QStringLiteral("abitrate"), QStringLiteral("160000"));
}

/// Logs what came of writing `path`; another card's worker may have been first, which is as good. A line that
/// it is written only if `tellDone`. False if the disk could not take it.
bool logWritten(int card, const QString &path, Publish result, bool tellDone = true)
{
    if (result == Publish::NotOnDisk)
        qWarning().noquote() << QStringLiteral("Card %1: the disk could not take %2.").arg(card).arg(path);
    else if (result == Publish::Done && tellDone)
        qInfo().noquote() << QStringLiteral("Card %1: wrote template file %2.").arg(card).arg(path);
    return result != Publish::NotOnDisk;
}

/// Adds the project to the templates folder unless it holds a template of that name.
void supplyTemplate(int card, const QString &projectPath, const QString &folderTemplate)
{
    if (QFileInfo::exists(folderTemplate))
        return;
    QFile project(projectPath);
    if (project.open(QIODevice::ReadOnly)) {
        const QByteArray text = project.readAll();
        if (project.error() == QFileDevice::NoError)
            logWritten(card, folderTemplate, writeNewFile(folderTemplate, text), false);
    }
    qInfo().noquote() << QStringLiteral("Card %1: copied template file %2.").arg(card).arg(folderTemplate);
}

bool writeVideoProject(int card, const QString &templatePath, const QString &videoPath, const QString &name,
                       const Autopano::SettingsSource &settings,
                       const std::function<ProjectTemplate()> &readTemplate)
{
    const QString suffix =
        name.isEmpty() ? QStringLiteral("_autopano.kava") : QStringLiteral("_%1_autopano.kava").arg(name);
    const QString kavaPath = replaced(videoPath, videoExtension, suffix);
    if (QFileInfo::exists(kavaPath))
        return true;

    const ProjectTemplate projectTemplate = readTemplate();
    if (projectTemplate.aboveLimit)
        return logWritten(card, kavaPath, writeNewFile(kavaPath, {}), false);
    const QDomDocument &document = projectTemplate.document;
    const QString base = QFileInfo(videoPath).fileName();
    CameraFiles files = cameraVideos(base, name);

    const QDomElement kava = document.firstChildElement(QStringLiteral("kava"));
    setVideoFiles(kava.firstChildElement(QStringLiteral("videos")), files, true);
    setVideoFiles(kava.firstChildElement(QStringLiteral("stabilization")), files, false);
    setVideoFiles(kava.firstChildElement(QStringLiteral("exposure")), files, false);

    const QDomElement pano = kava.firstChildElement(QStringLiteral("pano"));
    if (!pano.isNull()) {
        for (QString &file : files)
            file += QStringLiteral(".jpg");
        removeFindings(pano);
        editPano(pano, files, stitchSettingsToRadians(settings()));
    }
    kava.firstChildElement(QStringLiteral("output"))
        .setAttribute(QStringLiteral("file"),
                      replaced(base, videoExtension, QStringLiteral("_rendered.kava")));
    setEncodingRules(kava.firstChildElement(QStringLiteral("encodingrules")));
    const bool onDisk = logWritten(card, kavaPath, writeNewFile(kavaPath, toXml(document)));

    const QString folderTemplate =
        QDir(getTemplateDir()).absoluteFilePath(QFileInfo(templatePath).fileName());
    supplyTemplate(card, kavaPath, folderTemplate);

    const QString gigaTemplate = replaced(folderTemplate, QStringLiteral(".kava"), QStringLiteral(".pano"));
    if (!QFileInfo::exists(gigaTemplate))
        logWritten(card, gigaTemplate, writeNewFile(gigaTemplate, toPanoXml(pano)));
    return onDisk;
}

QString photoExtension(const QString &photoPath)
{
    return photoPath.endsWith(QStringLiteral(".DNG")) ? QStringLiteral(".DNG") : QStringLiteral(".JPG");
}

QString photoProjectPath(const QString &photoPath, const QString &name)
{
    const QString extension = photoExtension(photoPath);
    const QString suffix = name.isEmpty() ? QStringLiteral("_giga%1.pano").arg(extension)
                                          : QStringLiteral("_%1_giga%2.pano").arg(name).arg(extension);
    return replaced(photoPath, extension, suffix);
}

QByteArray photoProject(const QDomDocument &photoTemplate, const QString &photoPath, const QString &name,
                        const Autopano::SettingsSource &settings)
{
    // A copy: the template serves the next photo too.
    const QDomElement pano = panoOf(photoTemplate).cloneNode().toElement();
    if (!pano.isNull())
        editPano(pano, cameraPhotos(QFileInfo(photoPath).fileName(), photoExtension(photoPath), name),
                 stitchSettingsToRadians(settings()));
    return toPanoXml(pano);
}

} // namespace

/// Reads the templates of one import.
class Autopano::TemplateReader
{
public:
    ProjectTemplate read(const QString &path) { return parse(path, readTemplateFile(path)); }

    /// The template without findings, parsed anew only if the file has changed: the photos of a card are
    /// many.
    ProjectTemplate readForPhoto(const QString &path)
    {
        // Compared byte by byte: a time stamp may miss that the template was changed.
        const TemplateFile file = readTemplateFile(path);
        if (!parsed_ || file.content != content_) {
            parsed_ = parse(path, file);
            removeFindings(panoOf(parsed_->document));
            content_ = file.content;
        }
        return *parsed_;
    }

private:
    ProjectTemplate parse(const QString &path, const TemplateFile &file)
    {
        ProjectTemplate result = parseTemplate(file);
        const QString warning = QStringLiteral("The template %1 can't be used, its projects stay empty: %2.")
                                    .arg(path, result.problem);
        if (!result.problem.isEmpty() && warning != lastWarning_) {
            qWarning().noquote() << warning;
            lastWarning_ = warning;
        }
        return result;
    }

    std::optional<ProjectTemplate> parsed_;
    QByteArray content_;
    QString lastWarning_;
};

Autopano::Autopano()
    : templates_(std::make_unique<TemplateReader>())
{
}

Autopano::~Autopano() = default;

bool Autopano::writeKava(int card, const QString &templatePath, const QString &videoPath, const QString &name,
                         const SettingsSource &settings)
{
    try {
        return writeVideoProject(card, templatePath, videoPath, name, settings,
                                 [&] { return templates_->read(templatePath); });
    } catch (const std::exception &error) {
        qWarning() << "Error creating kava template:" << error.what();
        return true;
    }
}

bool Autopano::writePano(int card, const QString &templatePath, const QString &photoPath, const QString &name,
                         const SettingsSource &settings)
{
    // Waiting for the disk after each one would take longer than its photos.
    constexpr std::size_t mostPending = 16;
    try {
        auto project = std::make_unique<PendingProject>(photoProjectPath(photoPath, name));
        if (!project->isClaimed() || QFileInfo::exists(project->path()))
            return true;
        const ProjectTemplate photoTemplate = templates_->readForPhoto(templatePath);
        const QByteArray text = photoTemplate.aboveLimit
                                    ? toPanoXml({})
                                    : photoProject(photoTemplate.document, photoPath, name, settings);
        if (project->write(text))
            pending_.push_back({card, std::move(project), !photoTemplate.aboveLimit});
    } catch (const std::exception &error) {
        qInfo("%s", error.what());
    }
    return pending_.size() < mostPending || publishOldest(StopFlag());
}

/// False if the disk could not take it.
bool Autopano::publishOldest(const StopFlag &stop)
{
    const Pending oldest = std::move(pending_.front());
    pending_.pop_front();
    const Publish result = oldest.project->publish(stop);
    return stop.isRaised() || logWritten(oldest.card, oldest.project->path(), result, oldest.hasTemplate);
}

bool Autopano::finish(const StopFlag &stop)
{
    bool onDisk = true;
    while (!pending_.empty())
        onDisk = publishOldest(stop) && onDisk;
    return onDisk;
}

void Autopano::createKava(int card, const QString &templatePath, const QString &videoPath,
                          const QString &name, const QMap<QString, QVariant> &settings)
{
    static_cast<void>(
        Autopano().writeKava(card, templatePath, videoPath, name, [&settings] { return settings; }));
}

void Autopano::createPano(int card, const QString &templatePath, const QString &photoPath,
                          const QString &name, const QMap<QString, QVariant> &settings)
{
    Autopano autopano;
    static_cast<void>(
        autopano.writePano(card, templatePath, photoPath, name, [&settings] { return settings; }));
    static_cast<void>(autopano.finish());
}
