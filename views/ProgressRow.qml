import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A job's bar and, below it, the last thing that the job said.
PageRow {
    id: root

    /// Whether the job goes on; its end is shown whole, on several lines if need be.
    property bool running: false

    function show(from, to, value, text) {
        bar.from = from
        bar.to = to
        bar.value = value
        root.running = value < to
        message.text = text
    }

    Layout.preferredHeight: column.implicitHeight + 14

    ColumnLayout {
        id: column

        Layout.fillWidth: true
        spacing: 6

        ProgressBar {
            id: bar

            objectName: root.objectName + "Bar"
            Layout.fillWidth: true
            from: 0
            to: 3
            value: 0
            Accessible.name: root.label
        }

        Label {
            id: message

            objectName: root.objectName + "Text"
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
