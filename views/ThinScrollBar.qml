import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

/// A scroll bar that is seen as long as there is something to scroll.
ScrollBar {
    id: root

    policy: root.size < 1 ? ScrollBar.AlwaysOn : ScrollBar.AlwaysOff
    padding: 2
    contentItem: Rectangle {
        implicitWidth: 6
        radius: 3
        color: root.Material.color(Material.Grey, root.pressed ? Material.Shade200 : Material.Shade400)
    }
    background: Item {}
}
