import QtQuick 2.15
import QtQuick.Controls 2.15

/// What a job or a service says, shown as it is written; scrolls where it is longer than the window.
Flickable {
    id: root

    required property string labelName
    property string text: ""
    /// Shows the last lines rather than the first ones.
    property bool followsEnd: false

    function follow() {
        contentY = root.followsEnd ? Math.max(0, contentHeight - height) : 0
    }

    implicitWidth: 400
    implicitHeight: Math.min(label.implicitHeight, 560)
    contentWidth: width
    contentHeight: label.implicitHeight
    clip: true
    interactive: contentHeight > height
    onContentHeightChanged: root.follow()
    onHeightChanged: root.follow()

    ScrollBar.vertical: ThinScrollBar {}

    Label {
        id: label

        objectName: root.labelName
        width: root.width
        text: root.text
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
    }
}
