import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A job's bar and, below it, the last thing that the job said.
PageRow {
    id: root

    required property ProgressState progress
    /// Whether the job goes on; its end is shown whole, on several lines if need be.
    readonly property bool running: progress.running

    Layout.preferredHeight: column.implicitHeight + 14

    ColumnLayout {
        id: column

        Layout.fillWidth: true
        spacing: 6

        ProgressBar {
            id: bar

            objectName: root.objectName + "Bar"
            Layout.fillWidth: true
            from: root.progress.from
            to: root.progress.to
            value: root.progress.value
            Accessible.name: root.label
        }

        Label {
            id: message

            objectName: root.objectName + "Text"
            text: root.progress.text
            Layout.fillWidth: true
            Layout.preferredWidth: 0
            Layout.preferredHeight: Math.max(Math.ceil(2 * metrics.lineSpacing), implicitHeight)
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
