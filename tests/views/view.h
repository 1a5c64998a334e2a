#pragma once

#include "app/limitednetwork.h"

#include <QObject>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStringList>
#include <QVariant>

#include <memory>

/// What the controller of a test answers, and what it was asked.
struct Script
{
    QVariantList drives;
    QVariantList templates;
    QVariantList devices;
    QVariantMap settings;
    QString moviesLocation;
    QString version = QStringLiteral("1.8.0");

    QStringList asked;          ///< what it was asked at the start and after, "setPort" too
    QStringList ports;          ///< every port that it was given
    QList<QVariantMap> updates; ///< every map that it was to store
    QList<QStringList> flashed; ///< port and image of every firmware update
};

/// Stands in for the controller: answers with what a test puts into it.
class ScriptedController : public QObject, public Script
{
    Q_OBJECT

public:
    /// Forgets everything.
    void clear() { static_cast<Script &>(*this) = {}; }
    /// Appends an entry as the controller gives it, a JSON object.
    static void append(QVariantList *entries, const QString &key, const QString &value);
    void addDevice(const QString &name, const QString &serial, const QString &manufacturer);

public slots:
    QVariantList getDrives() { return told("getDrives", drives); }
    QVariantList getTemplates() { return told("getTemplates", templates); }
    QVariantMap getSettings() { return told("getSettings", settings); }
    QVariant getMoviesLocation() { return told("getMoviesLocation", moviesLocation); }
    QVariant getVersion() { return version; }
    QVariantList getDevices() { return told("getDevices", devices); }
    void setPort(const QVariant &port) { ports.append(told("setPort", port).toString()); }
    void updateSettings(const QVariantMap &changed);
    void updateFirmware(const QString &port, const QString &filePath) { flashed.append({port, filePath}); }

private:
    template <typename Value>
    Value told(const char *what, const Value &value)
    {
        asked.append(QString::fromLatin1(what));
        return value;
    }
};

/// Counts a window's frames. They are told from the thread that draws, where a QSignalSpy would be changed
/// while it is read.
class FrameCounter : public QObject
{
    Q_OBJECT

public:
    explicit FrameCounter(QQuickWindow *window);

    /// Those that this thread has heard of.
    [[nodiscard]] int count() const { return count_; }

private:
    int count_ = 0;
};

/// The program's window, shown on the test's screen.
class View
{
    Q_DISABLE_COPY(View)

public:
    enum class State {
        Loaded, ///< before its first frame
        Ready,
    };

    /// `controller` must outlive the view.
    explicit View(ScriptedController *controller, State state = State::Ready);

    /// False if the document could not be loaded or shown.
    [[nodiscard]] bool isShown() const { return shown_; }
    [[nodiscard]] QQuickWindow *window() const { return window_; }

    /// The object of that name; a test without it has nothing to test, so it aborts.
    [[nodiscard]] QObject *object(const QString &objectName) const;
    [[nodiscard]] QQuickItem *item(const QString &objectName) const;
    [[nodiscard]] QVariant property(const QString &objectName, const char *name) const;

    /// Calls a function of the window as a signal of the controller does.
    template <typename... Arguments>
    QVariant call(const char *function, const Arguments &...arguments) const
    {
        QVariant result;
        if (!QMetaObject::invokeMethod(window_, function, Q_RETURN_ARG(QVariant, result),
                                       Q_ARG(QVariant, QVariant(arguments))...))
            qFatal("The window has no function %s", function);
        return result;
    }
    [[nodiscard]] bool flag(const char *name) const { return window_->property(name).toBool(); }
    /// Raises a flag of the window; none for "".
    void raise(const QString &name) const;
    void set(const QString &objectName, const char *name, const QVariant &value) const;

    /// Clicks into the middle of a control.
    void click(const QString &objectName) const;
    void click(const QQuickItem *target) const;

    /// Presses Tab `stops` times; the name, or else the text, of what had the keyboard before each.
    [[nodiscard]] QStringList tabThrough(int stops) const;

    /// Brings page 0, 1 or 2 to the front. False if it doesn't come to rest there.
    [[nodiscard]] bool showPage(int index) const;
    [[nodiscard]] QQuickItem *page(int index) const;
    /// The button at the end of the row `label` of a page.
    [[nodiscard]] QQuickItem *rowButton(int pageIndex, const QString &label) const;
    [[nodiscard]] bool isOpen(const QString &popup) const { return property(popup, "opened").toBool(); }
    [[nodiscard]] QQuickItem *contentOf(const QString &popup) const;
    /// False if Escape or a press outside closes a popup.
    [[nodiscard]] bool staysOpen(const QString &popup) const;
    /// True if a popup is modal and stands where all of them do.
    [[nodiscard]] bool isModalInPlace(const QString &popup) const;

private:
    [[nodiscard]] bool isLaidOut() const;

    LimitedNetwork network_;
    QQmlApplicationEngine engine_;
    QQuickWindow *window_ = nullptr;
    bool shown_ = false;
};

/// A test of the window. Each of its functions, and each of their rows, starts with a fresh controller.
class ViewTest : public QObject
{
    Q_OBJECT

protected:
    /// Gives the controller what most of the functions need.
    virtual void equip() {}
    /// Shows a new window in place of the one before. A test without it has nothing to test, so it aborts.
    const View &show(View::State state = View::State::Ready);
    void destroyWindow() { view_.reset(); }

    ScriptedController controller;

protected slots:
    void init();
    void cleanup();

private:
    std::unique_ptr<View> view_;
};

const QStringList cardCombos = {QStringLiteral("card1Combo"), QStringLiteral("card2Combo"),
                                QStringLiteral("card3Combo")};
[[nodiscard]] QList<int> chosenCards(const View &view);
void chooseCards(const View &view, const QList<int> &cards);

/// The labels and buttons below `top` in their order, as the operator reads them. What a drop-down shows
/// of its choice isn't among them.
[[nodiscard]] QList<QQuickItem *> textItems(QQuickItem *top);
[[nodiscard]] QStringList texts(const QList<QQuickItem *> &items);
/// The parts of a text between its bars.
[[nodiscard]] QStringList split(const char *joined);
/// The entries that a drop-down offers.
[[nodiscard]] QStringList offered(QObject *dropDown);
