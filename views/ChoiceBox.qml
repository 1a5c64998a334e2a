import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

/// A drop-down whose entries, paths as a rule, stand as they are and are cut in the middle when they are too long.
ComboBox {
    id: root

    textRole: "text"
    // The name is the row's label; without this a screen reader would never tell what is chosen.
    Accessible.description: root.displayText
    contentItem: Label {
        leftPadding: 12
        verticalAlignment: Text.AlignVCenter
        text: root.displayText
        elide: Text.ElideMiddle
        textFormat: Text.PlainText
        Accessible.ignored: true
    }
    delegate: MenuItem {
        id: entry

        readonly property string value: root.textRole ? model[root.textRole] : modelData

        width: ListView.view.width
        highlighted: root.highlightedIndex === index
        hoverEnabled: root.hoverEnabled
        // As its text, an "&" would be taken for the mark of a shortcut.
        Accessible.name: entry.value
        contentItem: Label {
            text: entry.value
            elide: Text.ElideMiddle
            textFormat: Text.PlainText
            verticalAlignment: Text.AlignVCenter
            color: root.currentIndex === index ? entry.Material.accent : entry.Material.foreground
            Accessible.ignored: true
        }
    }
    // As in FlatButton.
    Component.onCompleted: root.background.layer.enabled = false
}
