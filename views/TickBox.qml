import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

/// A check box that begins at its left edge.
CheckBox {
    id: root

    leftPadding: 0
    // As in FlatButton.
    Accessible.description: root.enabled ? "" : "Disabled"
    indicator: ControlFrame {
        y: (root.height - height) / 2
        implicitWidth: 18
        implicitHeight: 18
        focused: root.visualFocus
        hovered: root.hovered
        pressed: root.down

        Rectangle {
            anchors.fill: parent
            visible: root.checked
            radius: parent.radius
            color: root.enabled ? root.Material.accentColor : root.Material.hintTextColor

            // The tick: two bars that stand on a corner.
            Item {
                anchors.centerIn: parent
                anchors.verticalCenterOffset: -1
                width: 6
                height: 11
                rotation: 45

                Rectangle { anchors.right: parent.right; width: 2; height: parent.height; color: "black"; antialiasing: true }
                Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 2; color: "black"; antialiasing: true }
            }
        }
    }
}
