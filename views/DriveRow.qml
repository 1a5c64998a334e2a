import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A card's row: the drop-down of volumes and the button for a folder that isn't one.
PageRow {
    id: root

    required property var drives
    required property string comboName
    property alias currentIndex: combo.currentIndex

    ChoiceBox {
        id: combo

        objectName: root.comboName
        Layout.fillWidth: true
        model: root.drives
        Accessible.name: root.label
    }

    Button {
        Layout.preferredWidth: root.columnWidth
        text: "..."
        enabled: false
        Accessible.name: root.label + " ..."
    }
}
