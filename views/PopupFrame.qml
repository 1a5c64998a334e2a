import QtQuick 2.15
import QtQuick.Controls.Material 2.15

/// What stands behind a popup or an open list.
Rectangle {
    radius: 3
    color: Material.dialogColor
    border.color: Material.color(Material.Grey, Material.Shade500)
}
