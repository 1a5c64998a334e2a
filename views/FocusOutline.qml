import QtQuick 2.15
import QtQuick.Controls.Material 2.15

/// A bright line around what has the keyboard, apart from its own edge so that it is seen on any of its colours.
Rectangle {
    anchors.fill: parent
    anchors.margins: -4
    radius: 6
    color: "transparent"
    border.width: 2
    border.color: Material.foreground
}
