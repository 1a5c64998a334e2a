import QtQuick 2.15
import QtQuick.Controls.Material 2.15

/// Dots that light up one after another. Few frames are drawn: a job that is waited for may need the processor.
Row {
    id: root

    property bool running: false
    property int lit: 0

    spacing: 6

    Repeater {
        model: 5
        Rectangle {
            required property int index

            width: 8
            height: 8
            radius: 4
            color: index === root.lit ? Material.accentColor : Material.hintTextColor
        }
    }

    Timer {
        interval: 300
        repeat: true
        running: root.running
        onTriggered: root.lit = (root.lit + 1) % 5
    }
}
