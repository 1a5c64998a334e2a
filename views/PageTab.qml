import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

/// The tab of a page.
TabButton {
    id: root

    Keys.onReturnPressed: root.checked = true
    Keys.onEnterPressed: root.checked = true

    background: ControlFrame {
        implicitHeight: root.Material.touchTarget
        radius: 0
        border.width: 0
        hovered: root.hovered
        pressed: root.down

        FocusOutline {
            anchors.margins: 4
            visible: root.visualFocus
        }
    }
}
