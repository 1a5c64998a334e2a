import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15

/// A job's bar and, below it, the last thing that the job said.
PageRow {
    id: root

    required property ProgressState progress
    /// Whether the job goes on; its end is shown whole, on several lines if need be.
    readonly property bool running: progress.running
    readonly property bool failed: message.text.startsWith("Error")
    readonly property bool warned: message.text.startsWith("Warning")
    readonly property color alarmColor: Material.color(root.failed ? Material.Red : Material.Amber, Material.Shade200)

    Layout.topMargin: 6
    labelAlignment: Text.AlignTop

    ColumnLayout {
        id: column

        Layout.fillWidth: true
        spacing: 2

        ProgressBar {
            id: bar

            objectName: root.objectName + "Bar"
            Layout.fillWidth: true
            // Stands beside the middle of the row's label.
            Layout.preferredHeight: Math.ceil(metrics.lineSpacing)
            from: root.progress.from
            to: root.progress.to
            value: root.progress.value
            Accessible.name: root.label

            background: Rectangle {
                y: (bar.height - height) / 2
                implicitWidth: 200
                implicitHeight: 8
                height: 8
                radius: 4
                color: "transparent"
                border.color: bar.Material.color(Material.Grey, Material.Shade500)
            }
            contentItem: Item {
                Rectangle {
                    y: (parent.height - height) / 2
                    width: bar.visualPosition * parent.width
                    height: 8
                    radius: 4
                    color: root.failed || root.warned ? root.alarmColor : bar.Material.accentColor
                }
            }
        }

        Label {
            id: message

            objectName: root.objectName + "Text"
            text: root.progress.text
            Layout.fillWidth: true
            Layout.preferredWidth: 0
            Layout.preferredHeight: Math.max(Math.ceil(2 * metrics.lineSpacing), implicitHeight)
            color: root.failed || root.warned ? root.alarmColor : Material.foreground
            wrapMode: root.running ? Text.NoWrap : Text.Wrap
            elide: root.running ? Text.ElideMiddle : Text.ElideRight
            maximumLineCount: root.running ? 1 : 4
            textFormat: Text.PlainText
            Accessible.description: root.label
        }
    }

    FontMetrics {
        id: metrics

        font: message.font
    }
}
