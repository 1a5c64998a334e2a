import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// One row of a page: its label in the first of the six columns, its controls in the others.
RowLayout {
    id: root

    required property string label
    readonly property real columnWidth: parent ? (parent.width - 5 * spacing) / 6 : 0

    Layout.columnSpan: 6
    Layout.fillWidth: true
    spacing: 8

    Label {
        Layout.preferredWidth: root.columnWidth
        Layout.alignment: Qt.AlignVCenter
        text: root.label
        elide: Text.ElideRight
    }
}
