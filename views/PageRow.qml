import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// One row of a page: its label in the first column, its controls in the others.
RowLayout {
    id: root

    required property string label
    property alias labelAlignment: labelText.verticalAlignment
    /// How wide the label would like to be.
    readonly property real wantedLabelWidth: labelText.implicitWidth
    readonly property real columnWidth: parent ? (parent.width - 5 * spacing) / 6 : 0

    Layout.columnSpan: 6
    Layout.fillWidth: true
    spacing: 8

    Label {
        id: labelText

        Layout.preferredWidth: root.parent ? root.parent.labelWidth : 0
        Layout.fillHeight: true
        verticalAlignment: Text.AlignVCenter
        text: root.label
        elide: Text.ElideRight
    }
}
