import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// One row of a page: its label in the first of the six columns, its controls in the others.
RowLayout {
    id: root

    required property string label
    /// Width of one column and of the gap between two, as the page has them.
    required property real columnWidth
    required property real gap

    Layout.columnSpan: 6
    Layout.fillWidth: true
    spacing: root.gap

    Label {
        Layout.preferredWidth: root.columnWidth
        Layout.alignment: Qt.AlignVCenter
        text: root.label
        elide: Text.ElideRight
    }
}
