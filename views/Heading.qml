import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15

/// The title of a group of rows.
Label {
    id: root

    Layout.columnSpan: 6
    Layout.fillWidth: true
    Layout.topMargin: 8
    color: Material.accentColor
    font.bold: true
    Accessible.role: Accessible.Heading
    Accessible.name: root.text
}
