import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A job's bar and, below it, the last thing that the job said.
PageRow {
    id: root

    function show(from, to, value, text) {
        bar.from = from
        bar.to = to
        bar.value = value
        message.text = text
    }

    Layout.preferredHeight: 60

    ColumnLayout {
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
            Layout.preferredHeight: 36
            // What went wrong must be readable to its end.
            wrapMode: Text.Wrap
            elide: Text.ElideRight
            maximumLineCount: 2
            textFormat: Text.PlainText
            Accessible.description: root.label
        }
    }
}
