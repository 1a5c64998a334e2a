import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

/// One line of text to edit.
TextField {
    id: root

    topInset: 6
    bottomInset: 6
    topPadding: 6
    bottomPadding: 6
    leftPadding: 12
    rightPadding: 12
    selectByMouse: true
    // As high as what the other controls show.
    font.pixelSize: 14
    selectedTextColor: "black"
    placeholderTextColor: Material.color(Material.Grey, Material.Shade500)
    // As in FlatButton.
    Accessible.description: root.enabled ? "" : "Disabled"
    background: ControlFrame {
        focused: root.activeFocus
        hovered: root.hovered
    }
}
