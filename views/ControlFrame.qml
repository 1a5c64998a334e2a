import QtQuick 2.15
import QtQuick.Controls.Material 2.15

/// What stands behind a control: plain rectangles. The style's own backgrounds are layers with shadows and ripples,
/// which every renderer pays for and the software renderer leaves out.
Rectangle {
    id: root

    /// Whether the control has the keyboard.
    property bool focused: false
    property bool hovered: false
    property bool pressed: false

    implicitHeight: 36
    radius: 3
    color: root.pressed ? "#33ffffff" : root.hovered ? "#1affffff" : "transparent"
    border.color: root.enabled ? Material.color(Material.Grey, Material.Shade500) : Material.hintTextColor

    FocusOutline { visible: root.focused }
}
