import QtQuick 2.15
import QtQuick.Layouts 1.15

/// A button one column wide at the end of a row.
FlatButton {
    id: root

    required property PageRow row

    Layout.preferredWidth: root.row.columnWidth
    Accessible.name: root.row.label + " " + root.text
}
