#include "tests/views/view.h"

#include <QFontDatabase>
#include <QProcess>
#include <QQmlProperty>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr double textContrast = 4.5;
constexpr double outlineContrast = 3;

double luminance(const QColor &color)
{
    const auto linear = [](double part) {
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

/// The contrast ratio that WCAG 2 defines: 1 to 21.
double contrast(const QColor &one, const QColor &other)
{
    const double lights[] = {luminance(one), luminance(other)};
    return (qMax(lights[0], lights[1]) + 0.05) / (qMin(lights[0], lights[1]) + 0.05);
}

QColor mostFrequentColor(const QImage &picture, const QRect &area)
{
    QHash<QRgb, int> counts;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            ++counts[picture.pixel(x, y)];
    }
    QRgb color = 0;
    for (auto entry = counts.cbegin(); entry != counts.cend(); ++entry) {
        if (entry.value() > counts.value(color))
            color = entry.key();
    }
    return color;
}

/// The highest contrast that a pixel of `area` has to `ground`.
double highestContrast(const QImage &picture, const QRect &area, const QColor &ground)
{
    double highest = 1;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            highest = qMax(highest, contrast(picture.pixelColor(x, y), ground));
    }
    return highest;
}

/// The smallest rectangle of `area` outside of which all is ground.
QRect ink(const QImage &picture, const QRect &area)
{
    const QColor ground = mostFrequentColor(picture, area);
    QRect found;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            if (contrast(picture.pixelColor(x, y), ground) > 2)
                found |= QRect(x, y, 1, 1);
        }
    }
    return found;
}

QRect placeOf(const QQuickItem *item)
{
    QRectF place = item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
    for (const QQuickItem *above = item->parentItem(); above != nullptr; above = above->parentItem()) {
        if (above->clip())
            place &= above->mapRectToScene(QRectF(0, 0, above->width(), above->height()));
    }
    return place.toRect() & QRect(0, 0, 700, 920);
}

QQuickItem *partOf(const QQuickItem *control, const char *name)
{
    return control->property(name).value<QQuickItem *>();
}

using Visitor = std::function<void(QQuickItem *)>;

/// Visits what is seen and can be used below `top`.
void visit(const QQuickItem *top, const Visitor &visitor)
{
    const QList<QQuickItem *> children = top->childItems();
    for (QQuickItem *child : children) {
        if (!child->isVisible() || qFuzzyIsNull(child->opacity()))
            continue;
        visitor(child);
        visit(child, visitor);
    }
}

QString nameOf(const QQuickItem *item)
{
    for (const char *name : {"text", "label", "displayText"}) {
        const QString text = item->property(name).toString();
        if (!text.isEmpty())
            return text;
    }
    return item->objectName();
}

/// A row of a page: its label and the first control beside it.
struct Row
{
    QString label;
    QRect labelPlace;
    QRect controlPlace;
    QString text; ///< of the control, if it is a field
    bool isBar = false;
    bool isText = false;
};

/// What the operator sees at one moment, and where.
struct Scene
{
    QString name;
    QImage picture;
    std::vector<std::pair<QString, QRect>> texts;    ///< of enabled controls and labels
    std::vector<std::pair<QString, QRect>> outlines; ///< of enabled controls
    QStringList cut;                                 ///< texts that lack room
    std::vector<Row> rows;
    QStringList faintFocus; ///< controls that don't show well enough that they have the keyboard
    int stops = 0;          ///< controls that get the keyboard by Tab
};

Row describeRow(const QQuickItem *row)
{
    const QQuickItem *control = row->childItems().at(1);
    Row found;
    found.isBar = control->inherits("QQuickColumnLayout");
    if (found.isBar)
        control = control->childItems().first();
    found.isText = control->inherits("QQuickText");
    found.label = row->property("label").toString();
    found.labelPlace = placeOf(row->childItems().first());
    found.controlPlace = placeOf(control);
    if (control->inherits("QQuickTextInput"))
        found.text = control->property("text").toString();
    return found;
}

void describe(QQuickItem *top, Scene *scene)
{
    visit(top, [scene](QQuickItem *item) {
        const QRect place = placeOf(item);
        if (place.isEmpty())
            return;
        if (item->inherits("QQuickRowLayout") && item->property("columnWidth").isValid())
            scene->rows.push_back(describeRow(item));
        const bool isInput = item->inherits("QQuickTextInput");
        if ((isInput || item->inherits("QQuickText")) && !item->property("text").toString().isEmpty()) {
            const auto inset = isInput ? 8 : 0;
            if (item->isEnabled())
                scene->texts.emplace_back(nameOf(item), place.adjusted(inset, inset, -inset, -inset));
            const QRectF whole = item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
            // A field scrolls; a label must have room for its text.
            if (!isInput && (item->property("truncated").toBool() ||
                             item->property("contentWidth").toDouble() > item->width() + 0.5 ||
                             item->property("contentHeight").toDouble() > item->height() + 0.5 ||
                             whole.right() > 700 || whole.left() < 0))
                scene->cut.append(nameOf(item));
        }
        if (!item->isEnabled() || item->inherits("QQuickTabButton"))
            return;
        const bool isBox = item->inherits("QQuickCheckBox");
        if (isBox || item->inherits("QQuickProgressBar") || item->inherits("QQuickSlider") || isInput ||
            item->inherits("QQuickComboBox") || item->inherits("QQuickButton"))
            scene->outlines.emplace_back(nameOf(item),
                                         placeOf(partOf(item, isBox ? "indicator" : "background")));
        if (item->inherits("QQuickScrollBar"))
            scene->outlines.emplace_back(QStringLiteral("scroll bar"), placeOf(partOf(item, "contentItem")));
    });
}

/// Presses Tab until it comes round; tells what looks too much alike with and without the keyboard. What
/// differs must be at least a line along two sides of a small control.
void walk(const View &view, Scene *scene)
{
    constexpr int leastPixels = 60;
    constexpr int mostStops = 100;
    const QQuickItem *first = nullptr;
    for (; scene->stops < mostStops; ++scene->stops) {
        QTest::keyClick(view.window(), Qt::Key_Tab);
        QQuickItem *focused = view.window()->activeFocusItem();
        if (focused == nullptr) {
            scene->faintFocus.append(QStringLiteral("nothing, after %1 stops").arg(scene->stops));
            return;
        }
        if (focused == first || !focused->activeFocusOnTab()) {
            // The next picture shows no outline of the keyboard's place.
            focused->setFocus(false);
            return;
        }
        if (first == nullptr)
            first = focused;
        const QImage with = view.window()->grabWindow();
        focused->setFocus(false);
        const QImage without = view.window()->grabWindow();
        focused->forceActiveFocus(Qt::TabFocusReason);
        const QRect area = placeOf(focused).adjusted(-6, -6, 6, 6) & with.rect();
        int differing = 0;
        for (int y = area.top(); y <= area.bottom(); ++y) {
            for (int x = area.left(); x <= area.right(); ++x) {
                if (contrast(with.pixelColor(x, y), without.pixelColor(x, y)) >= outlineContrast)
                    ++differing;
            }
        }
        if (differing < leastPixels)
            scene->faintFocus.append(QStringLiteral("%1 (%2 pixels)").arg(nameOf(focused)).arg(differing));
    }
    scene->faintFocus.append(QStringLiteral("Tab has not come round after %1 stops").arg(mostStops));
}

class Photographer
{
    Q_DISABLE_COPY(Photographer)

public:
    explicit Photographer(const QString &font = {});

    std::vector<Scene> scenes;
    View *view() { return view_.get(); }

private:
    void take(const char *name, QQuickItem *top);
    void takePopup(const char *name, const QString &popup);

    ScriptedController controller_;
    std::unique_ptr<View> view_;
    bool walks_;
};

Photographer::Photographer(const QString &font)
    : walks_(font.isEmpty())
{
    for (const char *number : {"1", "2", "3"})
        ScriptedController::append(&controller_.drives, QStringLiteral("/media/KELPORA360_%1").arg(number),
                                   QStringLiteral("KELPORA360_%1").arg(number));
    ScriptedController::append(&controller_.templates, QStringLiteral("/templates/Rig.kava"),
                               QStringLiteral("Rig"));
    controller_.addDevice(QStringLiteral("ttyUSB0"), QStringLiteral("KELPORA1"), QStringLiteral("maker"));
    controller_.moviesLocation = QStringLiteral("Folder");
    for (const char *key : {"Serialnumber", "RadiansAngles", "OverwriteAngles"})
        controller_.settings.insert(QString::fromLatin1(key), QStringLiteral("1"));
    for (const char *camera : {"Camera1", "Camera2", "Camera3"}) {
        for (const char *key : {"Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"})
            controller_.settings.insert(QLatin1String(camera) + QLatin1String(key), QStringLiteral("-120.5"));
    }
    view_ = std::make_unique<View>(&controller_);
    if (!view_->isShown())
        return;
    QQuickItem *all = view_->window()->contentItem();
    if (!font.isEmpty())
        QQmlProperty::write(view_->window(), QStringLiteral("font.family"), font);
    for (const char *field : {"projectNameText", "projectNameDataText"})
        view_->object(QLatin1String(field))->setProperty("text", "Project Name");
    take("the page Copy Files", all);
    takePopup("the question before cards are erased", QStringLiteral("eraseCardsPopup"));
    view_->click(view_->rowButton(0, QStringLiteral("Camera Angles")));
    take("the angles", view_->contentOf(QStringLiteral("stitchPopup"))->parentItem());
    QMetaObject::invokeMethod(view_->object(QStringLiteral("stitchPopup")), "close");
    for (const char *popup : {"messagePopup", "waitPopup"}) {
        view_->object(QLatin1String(popup))
            ->setProperty("text", QStringLiteral("Reading ... done.\n").repeated(60));
        takePopup(popup, QLatin1String(popup));
    }
    view_->call("updateCardProgress", 1, 0, 3, 2, QStringLiteral("Copying 2/3 videos"));
    view_->call("updateCardProgress", 2, 0, 3, 3, QStringLiteral("Error: not a card"));
    view_->call("updateCardProgress", 3, 0, 3, 3, QStringLiteral("Warning: some photos were not copied"));
    take("reports", all);
    view_->call("updateCardProgress", 1, 0, 3, 3, QStringLiteral("Copied 3/3 videos"));
    take("the end of an import", all);

    if (!view_->showPage(1))
        return;
    take("the page Copy Data", all);
    takePopup("the question before the memory is erased", QStringLiteral("eraseMemoryPopup"));
    if (!view_->showPage(2))
        return;
    take("the page Settings", all);
    view_->call("updateCameraSettings", "1.24", "50 %", "Date/Time", 1, 10.0, 120.0, 360.0, 30);
    take("settings that were read", all);
    auto *list = view_->property(QStringLiteral("e1FirmwareCombo"), "popup").value<QObject *>();
    QMetaObject::invokeMethod(list, "open");
    walks_ = false;
    take("an open list", list->property("contentItem").value<QQuickItem *>()->parentItem());
    QMetaObject::invokeMethod(list, "close");
}

void Photographer::take(const char *name, QQuickItem *top)
{
    // The strip below the tabs moves to its place for a quarter of a second, and longer on a busy machine.
    QTest::qWait(350);
    Scene scene;
    scene.name = QString::fromLatin1(name);
    QImage picture = view_->window()->grabWindow();
    for (int i = 0; i < 30 && scene.picture != picture; ++i) {
        scene.picture = picture;
        QTest::qWait(70);
        picture = view_->window()->grabWindow();
    }
    describe(top, &scene);
    if (walks_)
        walk(*view_, &scene);
    scenes.push_back(scene);
}

void Photographer::takePopup(const char *name, const QString &popup)
{
    QMetaObject::invokeMethod(view_->object(popup), "open");
    static_cast<void>(QTest::qWaitFor([&] { return view_->isOpen(popup); }));
    take(name, view_->contentOf(popup)->parentItem());
    QMetaObject::invokeMethod(view_->object(popup), "close");
    static_cast<void>(QTest::qWaitFor([&] { return !view_->property(popup, "visible").toBool(); }));
}

} // namespace

class TestLooks : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void textsCanBeRead_data() { scenes(); }
    void textsCanBeRead();
    void outlinesAreSeen_data() { scenes(); }
    void outlinesAreSeen();
    void theKeyboardsPlaceIsSeen_data() { scenes(); }
    void theKeyboardsPlaceIsSeen();
    void nothingIsCut_data() { scenes(); }
    void nothingIsCut();
    void controlsBeginAtOneEdge_data() { pages(); }
    void controlsBeginAtOneEdge();
    void labelsStandBesideTheirControls_data() { pages(); }
    void labelsStandBesideTheirControls();
    void reportsHaveTheColorOfTheirKind();
    void eraseLooksUnlikeCancel();
    void theWaitMoves();
    void otherRenderersDrawTheSame();

private:
    void scenes() const;
    void pages() const;
    [[nodiscard]] const Scene &scene(const QString &name) const;

    std::unique_ptr<Photographer> photographer_;
    std::vector<Scene> otherFont_;
};

void TestLooks::initTestCase()
{
    // Wider than the style's own font, and what a system without that takes.
    const QString dejaVu = QStringLiteral("DejaVu Sans");
    QVERIFY(QFontDatabase().families().contains(dejaVu));
    otherFont_ = Photographer(dejaVu).scenes;
    photographer_ = std::make_unique<Photographer>();
    QCOMPARE(photographer_->scenes.size(), std::size_t(12));
    QCOMPARE(otherFont_.size(), photographer_->scenes.size());
}

void TestLooks::scenes() const
{
    QTest::addColumn<QString>("name");
    for (const Scene &taken : photographer_->scenes)
        QTest::newRow(qPrintable(taken.name)) << taken.name;
}

void TestLooks::pages() const
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"the page Copy Files", "the page Copy Data", "settings that were read"})
        QTest::newRow(name) << name;
}

const Scene &TestLooks::scene(const QString &name) const
{
    for (const Scene &taken : photographer_->scenes) {
        if (taken.name == name)
            return taken;
    }
    qFatal("There is no picture of %s", qPrintable(name));
}

void TestLooks::textsCanBeRead()
{
    QFETCH(QString, name);
    const Scene &taken = scene(name);
    QVERIFY(!taken.texts.empty());
    QStringList faint;
    for (const auto &[text, place] : taken.texts) {
        const double seen = highestContrast(taken.picture, place, mostFrequentColor(taken.picture, place));
        if (seen < textContrast)
            faint.append(QStringLiteral("%1: %2").arg(text).arg(seen));
    }
    QCOMPARE(faint.join(QLatin1String(", ")), QString());
}

void TestLooks::outlinesAreSeen()
{
    QFETCH(QString, name);
    const Scene &taken = scene(name);
    QStringList faint;
    for (const auto &[control, place] : taken.outlines) {
        const QPoint middle = place.center();
        // From outside to inside, in the middle of each side.
        const std::pair<QPoint, QPoint> sides[] = {{{middle.x(), place.top() - 3}, {0, 1}},
                                                   {{middle.x(), place.bottom() + 3}, {0, -1}},
                                                   {{place.left() - 3, middle.y()}, {1, 0}},
                                                   {{place.right() + 3, middle.y()}, {-1, 0}}};
        for (const auto &[outside, step] : sides) {
            double seen = 1;
            for (int i = 1; i <= 6; ++i)
                seen = qMax(seen, contrast(taken.picture.pixelColor(outside),
                                           taken.picture.pixelColor(outside + i * step)));
            if (seen < outlineContrast)
                faint.append(QStringLiteral("%1: %2").arg(control).arg(seen));
        }
    }
    QCOMPARE(faint.join(QLatin1String(", ")), QString());
}

void TestLooks::theKeyboardsPlaceIsSeen()
{
    QFETCH(QString, name);
    const Scene &taken = scene(name);
    QCOMPARE(taken.faintFocus.join(QLatin1String(", ")), QString());
    if (name != QLatin1String("waitPopup") && name != QLatin1String("an open list"))
        QVERIFY(taken.stops > 0);
}

void TestLooks::nothingIsCut()
{
    QFETCH(QString, name);
    QCOMPARE(scene(name).cut.join(QLatin1String(", ")), QString());
    for (const Scene &taken : otherFont_) {
        if (taken.name == name)
            QCOMPARE(taken.cut.join(QLatin1String(", ")), QString());
    }
}

void TestLooks::controlsBeginAtOneEdge()
{
    QFETCH(QString, name);
    const Scene &taken = scene(name);
    QStringList edges;
    for (const Row &row : taken.rows) {
        const QRect place = row.controlPlace;
        const QRect strip(place.left() - 12, place.top(), 40, place.height());
        const int edge = ink(taken.picture, strip).left();
        // Letters begin a little beside their own edge.
        const int tolerance = row.isText ? 2 : 0;
        if (qAbs(edge - taken.rows.front().controlPlace.left()) > tolerance)
            edges.append(QStringLiteral("%1: %2").arg(row.label).arg(edge));
    }
    QVERIFY(taken.rows.size() > 3);
    QCOMPARE(edges.join(QLatin1String(", ")), QString());
}

void TestLooks::labelsStandBesideTheirControls()
{
    QFETCH(QString, name);
    const Scene &taken = scene(name);
    int compared = 0;
    for (const Row &row : taken.rows) {
        const QRect label = ink(taken.picture, row.labelPlace);
        const QRect control = ink(taken.picture, row.controlPlace.adjusted(8, 8, -8, -8));
        if (row.isBar) {
            const QRect bar = ink(taken.picture, row.controlPlace);
            QVERIFY2(qAbs(label.center().y() - bar.center().y()) <= 2, qPrintable(row.label));
        } else if (row.text == row.label) {
            // The same letters at the same height stand on the same baseline.
            QCOMPARE(control.top(), label.top());
            QCOMPARE(control.bottom(), label.bottom());
        } else {
            continue;
        }
        ++compared;
    }
    QVERIFY(compared >= 2);
}

void TestLooks::reportsHaveTheColorOfTheirKind()
{
    const View &view = *photographer_->view();
    const Scene &running = scene(QStringLiteral("reports"));
    const Scene &ended = scene(QStringLiteral("the end of an import"));
    // Letters have edges of many shades.
    const auto rounded = [](const QColor &color) {
        const auto part = [](int value) { return (value + 16) / 32; };
        return QStringLiteral("%1 %2 %3")
            .arg(part(color.red()))
            .arg(part(color.green()))
            .arg(part(color.blue()));
    };
    const auto colors = [&view, &rounded](const Scene &taken, int card) {
        const QRect bar = placeOf(view.item(QStringLiteral("card%1ProgressBar").arg(card)));
        const QRect text = placeOf(view.item(QStringLiteral("card%1ProgressText").arg(card)));
        const QColor ground = mostFrequentColor(taken.picture, text);
        QColor brightest = ground;
        for (int y = text.top(); y <= text.bottom(); ++y) {
            for (int x = text.left(); x <= text.right(); ++x) {
                if (contrast(taken.picture.pixelColor(x, y), ground) > contrast(brightest, ground))
                    brightest = taken.picture.pixelColor(x, y);
            }
        }
        return QStringList{rounded(taken.picture.pixelColor(bar.left() + 20, bar.center().y())),
                           rounded(brightest)};
    };
    QVERIFY(view.showPage(0));
    const QStringList success = colors(ended, 1);
    const QStringList error = colors(ended, 2);
    const QStringList warning = colors(ended, 3);
    QCOMPARE(colors(running, 1), success);
    for (int part = 0; part < 2; ++part)
        QCOMPARE(QSet<QString>({success.at(part), error.at(part), warning.at(part)}).size(), 3);
}

void TestLooks::eraseLooksUnlikeCancel()
{
    for (const char *name :
         {"the question before cards are erased", "the question before the memory is erased"}) {
        const Scene &taken = scene(QLatin1String(name));
        QHash<QString, QColor> fills;
        for (const auto &[control, place] : taken.outlines)
            fills.insert(control, mostFrequentColor(taken.picture, place));
        const QColor erase = fills.value(QStringLiteral("Erase"));
        QVERIFY(contrast(erase, fills.value(QStringLiteral("Cancel"))) >= outlineContrast);
        QVERIFY(erase.red() > 1.5 * erase.green());
    }
}

void TestLooks::theWaitMoves()
{
    const View &view = *photographer_->view();
    QMetaObject::invokeMethod(view.object(QStringLiteral("waitPopup")), "open");
    QTest::qWait(200);
    const FrameCounter frames(view.window());
    QElapsedTimer time;
    time.start();
    QSet<QByteArray> pictures;
    for (int i = 0; i < 10; ++i) {
        QTest::qWait(100);
        const QImage picture = view.window()->grabWindow();
        pictures.insert(
            QByteArray(reinterpret_cast<const char *>(picture.constBits()), int(picture.sizeInBytes())));
    }
    QVERIFY(pictures.size() >= 3);
    // Each frame costs processor time that the job may need.
    QVERIFY(frames.count() <= 2 + time.elapsed() / 250);
    QMetaObject::invokeMethod(view.object(QStringLiteral("waitPopup")), "close");
}

void TestLooks::otherRenderersDrawTheSame()
{
    const QTemporaryDir folder;
    QProcess other;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString renderer = QStringLiteral("QT_QUICK_BACKEND");
    if (environment.value(renderer) == QLatin1String("software"))
        environment.remove(renderer);
    else
        environment.insert(renderer, QStringLiteral("software"));
    other.setProcessEnvironment(environment);
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--save"), folder.path()});
    QVERIFY(other.waitForFinished(120000));
    QCOMPARE(other.exitCode(), 0);
    for (std::size_t i = 0; i < photographer_->scenes.size(); ++i) {
        const Scene &taken = photographer_->scenes[i];
        const QImage theirs(folder.filePath(QStringLiteral("%1.png").arg(i)));
        QCOMPARE(theirs.size(), taken.picture.size());
        // Letters differ by their edges; in small pictures only what is there or not makes a difference.
        const QSize size(70, 92);
        const QImage a = taken.picture.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        const QImage b = theirs.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        int furthest = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x)
                furthest = qMax(furthest, qAbs(qGray(a.pixel(x, y)) - qGray(b.pixel(x, y))));
        }
        QVERIFY2(furthest <= 24, qPrintable(QStringLiteral("%1: %2").arg(taken.name).arg(furthest)));
    }
}

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QLatin1String("--save")) {
        const std::vector<Scene> scenes = Photographer().scenes;
        bool saved = true;
        for (std::size_t i = 0; i < scenes.size(); ++i)
            saved =
                scenes[i].picture.save(QStringLiteral("%1/%2.png").arg(arguments.value(2)).arg(i)) && saved;
        return saved ? 0 : 1;
    }
    TestLooks test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_looks.moc"
