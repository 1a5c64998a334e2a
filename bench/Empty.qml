import QtQuick 2.15
import QtQuick.Controls 2.15

ApplicationWindow {
    title: "Empty"
    width: 700
    height: 920
    minimumWidth: 700
    maximumWidth: 700
    minimumHeight: 920
    maximumHeight: 920
    visible: true
}
