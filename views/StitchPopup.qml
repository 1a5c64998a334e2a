import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Edits the rig's angles. The fields are the popup's own until they are saved; closes only by its buttons.
ModalPopup {
    id: root

    readonly property var angles: ["Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"]
    signal downloadClicked(string serialnumber)
    signal resetClicked()
    signal saveClicked()

    /// The field of one camera (1 to 3) and one of `angles`.
    function field(camera, angle) {
        return fields.itemAt(root.angles.indexOf(angle)).fieldOf(camera)
    }

    /// Calls `visit(key, field)` for each of the fifteen fields with its key in the settings.
    function forEachField(visit) {
        for (let camera = 1; camera <= 3; ++camera) {
            for (const angle of root.angles)
                visit("Camera" + camera + angle, root.field(camera, angle))
        }
    }

    /// Fills the fields from the settings map.
    function show(settings) {
        serialnumberText.text = settings["Serialnumber"]
        radiansBox.checked = settings["RadiansAngles"] === "1"
        overwriteBox.checked = settings["OverwriteAngles"] === "1"
        root.forEachField((key, field) => field.text = settings[key])
    }

    /// Fills the fields from the calibration of the rig `serial`; what it lacks, or has in another form than a number
    /// or a text, stays. Angles never stand beside another rig's serial, which may have been typed meanwhile.
    function showCalibration(data, serial) {
        serialnumberText.text = serial
        const radians = data["RadiansAngles"]
        if (radians !== undefined)
            radiansBox.checked = !!radians && !["0", "false"].includes(String(radians).toLowerCase())
        root.forEachField((key, field) => {
            if (["number", "string"].includes(typeof data[key]))
                field.text = String(data[key])
        })
    }

    /// Writes the fields into the settings map.
    function store(settings) {
        settings["Serialnumber"] = serialnumberText.text
        settings["RadiansAngles"] = radiansBox.checked ? "1" : "0"
        settings["OverwriteAngles"] = overwriteBox.checked ? "1" : "0"
        root.forEachField((key, field) => settings[key] = field.text)
    }

    function fillDefaults() {
        const defaults = { "Pitch": ["0", "0", "0"], "Roll": ["-90", "-90", "-90"], "Yaw": ["0", "120", "-120"],
                           "OffsetX": ["-20", "-20", "-20"], "OffsetY": ["0", "0", "0"] }
        for (const angle of root.angles)
            defaults[angle].forEach((value, index) => root.field(index + 1, angle).text = value)
    }

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
                id: serialnumberText

                objectName: "serialnumber"
                focus: true
                Layout.fillWidth: true
                selectByMouse: true
                Accessible.name: "Your Kelpora 360 serial"
            }
        }
        RowLayout {
            spacing: 8

            PopupButton { Layout.fillWidth: true; objectName: "downloadAnglesButton"; text: "Download"; onClicked: root.downloadClicked(serialnumberText.text) }
            PopupButton { Layout.fillWidth: true; objectName: "defaultAnglesButton"; text: "Defaults"; onClicked: root.fillDefaults() }
            PopupButton { Layout.fillWidth: true; objectName: "resetAnglesButton"; text: "Reset"; onClicked: root.resetClicked() }
        }

        AnglesRow { label: "Camera:"; texts: ["1", "2", "3"] }
        Repeater {
            id: fields

            model: [["Yaw: ", "Yaw"], ["Pitch: ", "Pitch"], ["Roll: ", "Roll"], ["Offset X: ", "OffsetX"], ["Offset Y: ", "OffsetY"]]
            AnglesRow {
                required property var modelData

                label: modelData[0]
                angle: modelData[1]
                editable: overwriteBox.checked
            }
        }

        CheckBox {
            id: radiansBox

            objectName: "radiansAngles"
            text: "Angles are in Radians"
            enabled: overwriteBox.checked
        }
        CheckBox {
            id: overwriteBox

            objectName: "overwriteAngles"
            text: "Overwrite camera angles in template"
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
