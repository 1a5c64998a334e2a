import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15

/// Some words of a verdict in large letters on the colour that goes with it.
Rectangle {
    id: root

    /// What screen readers say that it is about.
    required property string label
    /// "safe", "danger", "caution" or "none".
    required property string tone
    required property string text
    /// What is told below in small letters; cut where it is too long.
    required property string details
    required property int pixelSize
    property int detailLines: 3

    implicitHeight: column.implicitHeight + 16
    radius: 3
    color: {
        switch (root.tone) {
        case "safe":
            return Material.color(Material.Green, Material.Shade200)
        case "danger":
            return Material.color(Material.Red, Material.Shade200)
        case "none":
            return Material.color(Material.Grey, Material.Shade500)
        default:
            return Material.color(Material.Amber, Material.Shade200)
        }
    }

    ColumnLayout {
        id: column

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        anchors.margins: 10
        spacing: 0

        Label {
            id: message

            objectName: root.objectName + "Text"
            Layout.fillWidth: true
            text: root.text
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: "black"
            font.pixelSize: root.pixelSize
            font.bold: true
            Accessible.description: root.label
        }
        Label {
            objectName: root.objectName + "Details"
            Layout.fillWidth: true
            visible: text !== ""
            text: root.details
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            elide: Text.ElideRight
            maximumLineCount: root.detailLines
            Accessible.description: root.label + " details"
            color: "black"
        }
    }
}
