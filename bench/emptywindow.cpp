#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QUrl>

/// An empty window of the program's size in the program's style: the least that a Qt Quick program costs.
int main(int argc, char *argv[])
{
    const QGuiApplication app(argc, argv);
    QQmlApplicationEngine engine;
    engine.load(QUrl(QStringLiteral("qrc:/Empty.qml")));
    return engine.rootObjects().isEmpty() ? 1 : QGuiApplication::exec();
}
