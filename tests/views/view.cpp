#include "tests/views/view.h"

#include <QJsonObject>
#include <QQmlContext>
#include <QtTest>

void ScriptedController::append(QVariantList *entries, const QString &key, const QString &value)
{
    entries->append(QJsonObject{{QStringLiteral("key"), key}, {QStringLiteral("value"), value}});
}

View::View(ScriptedController *controller)
{
    engine_.rootContext()->setContextProperty(QStringLiteral("appController"), controller);
    engine_.load(QUrl(QStringLiteral("qrc:/views/Main.qml")));
    const QList<QObject *> roots = engine_.rootObjects();
    window_ = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
    if (window_ == nullptr)
        return;
    // Keys go to an active window only.
    window_->requestActivate();
    shown_ = QTest::qWaitForWindowExposed(window_) && QTest::qWaitForWindowActive(window_) &&
             QTest::qWaitFor([this] { return window_->property("ready").toBool(); });
}

QObject *View::object(const QString &objectName) const
{
    auto *found = window_->findChild<QObject *>(objectName);
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

QVariant View::call(const char *function) const
{
    QVariant result;
    if (!QMetaObject::invokeMethod(window_, function, Q_RETURN_ARG(QVariant, result)))
        qFatal("The window has no function %s", function);
    return result;
}

void View::updateCardProgress(const QVariant &card, const QVariant &from, const QVariant &to,
                              const QVariant &value, const QVariant &text) const
{
    if (!QMetaObject::invokeMethod(window_, "updateCardProgress", Q_ARG(QVariant, card),
                                   Q_ARG(QVariant, from), Q_ARG(QVariant, to), Q_ARG(QVariant, value),
                                   Q_ARG(QVariant, text)))
        qFatal("The window has no function updateCardProgress with five arguments");
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
