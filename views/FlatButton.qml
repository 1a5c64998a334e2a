import QtQuick 2.15
import QtQuick.Controls 2.15

/// A button without the style's shadow, which is hardly seen on the dark page but has every frame draw several
/// times the button's area, and keeps it in memory.
Button {
    id: root

    Component.onCompleted: root.background.layer.enabled = false
}
