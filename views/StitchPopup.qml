import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Edits the rig's angles, which are stored when they are saved; closes only by its buttons.
ModalPopup {
    id: root

    required property Calibration calibration

    signal downloadClicked()
    signal defaultsClicked()
    signal resetClicked()
    signal saveClicked()

    width: 500

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        spacing: 8

        Label {
            text: "Custom camera calibration settings"
            font.bold: true
        }

        RowLayout {
            spacing: 8

            Label { text: "Your Kelpora 360 serial: " }
            TextField {
                objectName: "serialnumber"
                focus: true
                Layout.fillWidth: true
                text: root.calibration.serialnumber
                onTextChanged: root.calibration.serialnumber = text
                selectByMouse: true
                Accessible.name: "Your Kelpora 360 serial"
            }
        }
        RowLayout {
            spacing: 8

            PopupButton { Layout.fillWidth: true; objectName: "downloadAnglesButton"; text: "Download"; onClicked: root.downloadClicked() }
            PopupButton { Layout.fillWidth: true; objectName: "defaultAnglesButton"; text: "Defaults"; onClicked: root.defaultsClicked() }
            PopupButton { Layout.fillWidth: true; objectName: "resetAnglesButton"; text: "Reset"; onClicked: root.resetClicked() }
        }

        AnglesRow { label: "Camera:"; texts: ["1", "2", "3"] }
        Repeater {
            model: [["Yaw: ", "Yaw"], ["Pitch: ", "Pitch"], ["Roll: ", "Roll"], ["Offset X: ", "OffsetX"], ["Offset Y: ", "OffsetY"]]
            AnglesRow {
                required property var modelData

                label: modelData[0]
                angle: modelData[1]
                calibration: root.calibration
            }
        }

        CheckBox {
            objectName: "radiansAngles"
            text: "Angles are in Radians"
            enabled: root.calibration.overwrite
            checked: root.calibration.radians
            onCheckedChanged: root.calibration.radians = checked
        }
        CheckBox {
            objectName: "overwriteAngles"
            text: "Overwrite camera angles in template"
            checked: root.calibration.overwrite
            onCheckedChanged: root.calibration.overwrite = checked
        }

        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8

            PopupButton {
                objectName: "saveAnglesButton"
                text: "Save"
                onClicked: {
                    root.saveClicked()
                    root.close()
                }
            }
            PopupButton {
                objectName: "cancelAnglesButton"
                text: "Cancel"
                onClicked: root.close()
            }
        }
    }
}
