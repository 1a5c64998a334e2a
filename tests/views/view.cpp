#include "tests/views/view.h"

#include <QJsonObject>
#include <QQmlContext>
#include <QtTest>

namespace {

QQuickItem *itemBelow(const QQuickItem *top, const QString &objectName)
{
    const QList<QQuickItem *> children = top->childItems();
    for (QQuickItem *child : children) {
        QQuickItem *found = child->objectName() == objectName ? child : itemBelow(child, objectName);
        if (found != nullptr)
            return found;
    }
    return nullptr;
}

/// What a repeater makes has a visual parent only.
QQuickItem *repeatedItem(const QObject *window, const QString &objectName)
{
    const QList<QQuickItem *> items = window->findChildren<QQuickItem *>();
    for (const QQuickItem *item : items) {
        QQuickItem *found = itemBelow(item, objectName);
        if (found != nullptr)
            return found;
    }
    return nullptr;
}

} // namespace

void ScriptedController::append(QVariantList *entries, const QString &key, const QString &value)
{
    entries->append(QJsonObject{{QStringLiteral("key"), key}, {QStringLiteral("value"), value}});
}

void ScriptedController::addDevice(const QString &name, const QString &serial, const QString &manufacturer)
{
    devices.append(QJsonObject{{QStringLiteral("name"), name},
                               {QStringLiteral("serial"), serial},
                               {QStringLiteral("manufacturer"), manufacturer}});
}

void ScriptedController::updateSettings(const QVariantMap &changed)
{
    updates.append(changed);
    for (auto entry = changed.cbegin(); entry != changed.cend(); ++entry)
        settings.insert(entry.key(), entry.value());
}

FrameCounter::FrameCounter(QQuickWindow *window)
{
    connect(window, &QQuickWindow::frameSwapped, this, [this] { ++count_; });
}

View::View(ScriptedController *controller, State state)
{
    engine_.setNetworkAccessManagerFactory(&network_);
    engine_.rootContext()->setContextProperty(QStringLiteral("appController"), controller);
    engine_.load(QUrl(QStringLiteral("qrc:/views/Main.qml")));
    const QList<QObject *> roots = engine_.rootObjects();
    window_ = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
    if (window_ == nullptr || state == State::Loaded)
        return;
    // Keys go to an active window only.
    window_->requestActivate();
    shown_ = QTest::qWaitForWindowExposed(window_) && QTest::qWaitForWindowActive(window_) &&
             QTest::qWaitFor([this] { return flag("ready"); }) && isLaidOut();
}

/// The pages get their place with the second frame that has them.
bool View::isLaidOut() const
{
    const FrameCounter frames(window_);
    return QTest::qWaitFor([&] {
        window_->update();
        return frames.count() >= 2;
    });
}

QObject *View::object(const QString &objectName) const
{
    auto *found = window_->findChild<QObject *>(objectName);
    if (found == nullptr)
        found = repeatedItem(window_, objectName);
    if (found == nullptr)
        qFatal("The window has no %s", qPrintable(objectName));
    return found;
}

QQuickItem *View::item(const QString &objectName) const
{
    auto *found = qobject_cast<QQuickItem *>(object(objectName));
    if (found == nullptr)
        qFatal("%s is no item", qPrintable(objectName));
    return found;
}

QVariant View::property(const QString &objectName, const char *name) const
{
    return object(objectName)->property(name);
}

void View::raise(const QString &name) const
{
    if (!name.isEmpty() && !window_->setProperty(name.toLatin1().constData(), true))
        qFatal("The window has no flag %s", qPrintable(name));
}

void View::set(const QString &objectName, const char *name, const QVariant &value) const
{
    if (!object(objectName)->setProperty(name, value))
        qFatal("%s has no %s", qPrintable(objectName), name);
}

void View::click(const QString &objectName) const
{
    click(item(objectName));
}

void View::click(const QQuickItem *target) const
{
    const QPointF middle = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
    QTest::mouseClick(window_, Qt::LeftButton, Qt::NoModifier, middle.toPoint());
}

QStringList View::tabThrough(int stops) const
{
    QStringList reached;
    for (int i = 0; i < stops; ++i) {
        const QQuickItem *focused = window_->activeFocusItem();
        reached.append(focused->objectName().isEmpty() ? focused->property("text").toString()
                                                       : focused->objectName());
        QTest::keyClick(window_, Qt::Key_Tab);
    }
    return reached;
}

bool View::showPage(int index) const
{
    const QQuickItem *front = page(index);
    QQuickItem *pages = front->parentItem();
    while (!pages->inherits("QQuickSwipeView"))
        pages = pages->parentItem();
    pages->setProperty("currentIndex", index);
    return QTest::qWaitFor([&] { return qFuzzyIsNull(front->mapToScene(QPointF(0, 0)).x()); });
}

QQuickItem *View::page(int index) const
{
    static const QStringList known = {QStringLiteral("card1Combo"), QStringLiteral("devicesComboData"),
                                      QStringLiteral("devicesComboSettings")};
    QQuickItem *found = item(known.at(index));
    while (!found->inherits("QQuickPane"))
        found = found->parentItem();
    return found;
}

QQuickItem *View::rowButton(int pageIndex, const QString &label) const
{
    const QList<QQuickItem *> items = textItems(page(pageIndex));
    for (QQuickItem *button : items) {
        const auto *row = button->property("row").value<QObject *>();
        if (row != nullptr && row->property("label").toString() == label)
            return button;
    }
    qFatal("No button in the row %s", qPrintable(label));
}

QQuickItem *View::contentOf(const QString &popup) const
{
    return property(popup, "contentItem").value<QQuickItem *>();
}

bool View::staysOpen(const QString &popup) const
{
    QTest::keyClick(window_, Qt::Key_Escape);
    QTest::mouseClick(window_, Qt::LeftButton, Qt::NoModifier, {20, 880});
    // "opened" falls at once when a popup begins to close.
    QTest::qWait(50);
    return isOpen(popup);
}

bool View::isModalInPlace(const QString &popup) const
{
    return property(popup, "modal").toBool() && property(popup, "x") == 100 && property(popup, "y") == 100;
}

const View &ViewTest::show(View::State state)
{
    view_.reset();
    view_ = std::make_unique<View>(&controller, state);
    if (state == View::State::Ready ? !view_->isShown() : view_->window() == nullptr)
        qFatal("There is no window");
    return *view_;
}

void ViewTest::init()
{
    controller.clear();
    equip();
}

void ViewTest::cleanup()
{
    view_.reset();
}

QList<int> chosenCards(const View &view)
{
    QList<int> chosen;
    for (const QString &combo : cardCombos)
        chosen.append(view.property(combo, "currentIndex").toInt());
    return chosen;
}

void chooseCards(const View &view, const QList<int> &cards)
{
    for (int i = 0; i < cardCombos.size(); ++i)
        view.object(cardCombos.at(i))->setProperty("currentIndex", cards.at(i));
}

QList<QQuickItem *> textItems(QQuickItem *top)
{
    QList<QQuickItem *> found;
    const QList<QQuickItem *> children = top->childItems();
    for (QQuickItem *child : children) {
        if (child->inherits("QQuickLabel") || child->inherits("QQuickAbstractButton"))
            found.append(child);
        else if (!child->inherits("QQuickComboBox"))
            found += textItems(child);
    }
    return found;
}

QStringList texts(const QList<QQuickItem *> &items)
{
    QStringList shown;
    for (const QQuickItem *item : items)
        shown.append(item->property("text").toString());
    return shown;
}

QStringList split(const char *joined)
{
    return QString::fromUtf8(joined).split(QLatin1Char('|'));
}

QStringList offered(QObject *dropDown)
{
    QStringList shown;
    for (int i = 0; i < dropDown->property("count").toInt(); ++i) {
        QString text;
        QMetaObject::invokeMethod(dropDown, "textAt", Q_RETURN_ARG(QString, text), Q_ARG(int, i));
        shown.append(text);
    }
    return shown;
}
