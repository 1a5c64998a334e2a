import QtQuick 2.15
import QtQuick.Window 2.15
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
    background: ControlFrame {
        focused: root.visualFocus
        hovered: root.hovered
        pressed: root.pressed
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
            color: entry.highlighted ? "black" : root.currentIndex === index ? entry.Material.accent : entry.Material.foreground
            Accessible.ignored: true
        }
        background: Rectangle {
            implicitHeight: entry.Material.menuItemHeight
            color: entry.highlighted ? entry.Material.accent : "transparent"
        }
    }
    popup: Popup {
        id: list

        width: root.width
        height: Math.min(implicitHeight, root.Window.height - topMargin - bottomMargin)
        margins: 12
        padding: 1
        enter: null
        exit: null
        background: PopupFrame {}
        contentItem: ListView {
            implicitHeight: contentHeight
            clip: true
            model: root.delegateModel
            currentIndex: root.highlightedIndex
            highlightMoveDuration: 0
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ThinScrollBar {}
        }
    }
}
