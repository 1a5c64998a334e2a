import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

/// A button; Return and Enter press it like the space bar.
Button {
    id: root

    /// What it does can't be undone.
    property bool destructive: false

    readonly property bool filled: root.enabled && (root.highlighted || root.destructive)
    readonly property color fill: root.destructive ? Material.color(Material.Red, Material.Shade300) : Material.accentColor

    /// A key that is held down must not press what gets the keyboard next.
    function press(event) {
        if (!event.isAutoRepeat)
            root.clicked()
    }

    Keys.onReturnPressed: root.press(event)
    Keys.onEnterPressed: root.press(event)
    // The toolkit doesn't tell screen readers that a control is disabled.
    Accessible.description: root.enabled ? "" : "Disabled"

    contentItem: Text {
        text: root.text
        font: root.font
        color: root.filled ? "black" : root.enabled ? root.Material.foreground : root.Material.hintTextColor
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
    }

    background: ControlFrame {
        implicitWidth: 64
        // Marks the button that Return presses from the moment that a popup opens, not only after Tab.
        focused: root.activeFocus && root.focusReason !== Qt.MouseFocusReason
        hovered: root.hovered
        pressed: root.down

        Rectangle {
            anchors.fill: parent
            visible: root.filled
            radius: parent.radius
            color: root.down ? Qt.darker(root.fill, 1.25) : root.hovered ? Qt.lighter(root.fill, 1.1) : root.fill
        }
    }
}
