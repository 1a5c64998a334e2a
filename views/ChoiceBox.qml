import QtQuick 2.15
import QtQuick.Controls 2.15

/// A drop-down whose shown entry, a path as a rule, is cut in the middle when it is too long.
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
    // As in FlatButton.
    Component.onCompleted: root.background.layer.enabled = false
}
