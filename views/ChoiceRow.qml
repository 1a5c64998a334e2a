import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A row with a drop-down; more controls may follow it.
PageRow {
    id: root

    required property ListModel choices
    required property string comboName
    property alias currentIndex: combo.currentIndex

    ChoiceBox {
        id: combo

        objectName: root.comboName
        Layout.fillWidth: true
        model: root.choices
        // Nothing is chosen for the operator but what is recognised.
        currentIndex: -1
        Accessible.name: root.label
    }
}
