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

    name: title.text
    width: 500

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        spacing: 8

        Label {
            id: title

            text: "Custom camera calibration settings"
            font.bold: true
        }

        RowLayout {
            spacing: 8

            Label { text: "Your Kelpora 360 serial: " }
            LineField {
                objectName: "serialnumber"
                focus: true
                Layout.fillWidth: true
                text: root.calibration.serialnumber
                onTextChanged: root.calibration.serialnumber = text
                Accessible.name: "Your Kelpora 360 serial"
            }
        }
        RowLayout {
            spacing: 8

            FlatButton { Layout.fillWidth: true; objectName: "downloadAnglesButton"; text: "Download"; onClicked: root.downloadClicked() }
            FlatButton { Layout.fillWidth: true; objectName: "defaultAnglesButton"; text: "Defaults"; onClicked: root.defaultsClicked() }
            FlatButton { Layout.fillWidth: true; objectName: "resetAnglesButton"; text: "Reset"; onClicked: root.resetClicked() }
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

        TickBox {
            objectName: "radiansAngles"
            text: "Angles are in Radians"
            enabled: root.calibration.overwrite
            checked: root.calibration.radians
            onCheckedChanged: root.calibration.radians = checked
        }
        TickBox {
            objectName: "overwriteAngles"
            text: "Overwrite camera angles in template"
            checked: root.calibration.overwrite
            onCheckedChanged: root.calibration.overwrite = checked
        }

        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8

            FlatButton {
                objectName: "saveAnglesButton"
                text: "Save"
                onClicked: {
                    root.saveClicked()
                    root.close()
                }
            }
            FlatButton {
                objectName: "cancelAnglesButton"
                text: "Cancel"
                onClicked: root.close()
            }
        }
    }
}
