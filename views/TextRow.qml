import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A row with one line of text to edit; more controls may follow it.
PageRow {
    id: root

    required property string fieldName
    property alias text: field.text
    property alias placeholder: field.placeholderText

    /// A key was released in the field.
    signal typed()

    LineField {
        id: field

        objectName: root.fieldName
        Layout.fillWidth: true
        Accessible.name: root.label
        Keys.onReleased: root.typed()
    }
}
