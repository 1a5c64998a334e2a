import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// One angle of the three cameras: a label and a field, or a fixed text, for each.
RowLayout {
    id: root

    required property string label
    /// The angle's part of the settings keys; empty for the row of fixed texts.
    property string angle: ""
    property var texts: []
    /// Holds the fields' values; null for the row of fixed texts.
    property Calibration calibration: null

    spacing: 8

    Label {
        Layout.preferredWidth: 90
        text: root.label
    }

    Repeater {
        model: 3
        Loader {
            id: cell

            required property int index

            Layout.fillWidth: true
            Layout.preferredWidth: 1
            sourceComponent: root.angle === "" ? heading : field

            Component {
                id: heading

                Label { text: root.texts[cell.index] }
            }
            Component {
                id: field

                LineField {
                    readonly property string key: "Camera" + (cell.index + 1) + root.angle

                    objectName: "camera" + (cell.index + 1) + root.angle
                    enabled: root.calibration.overwrite
                    text: root.calibration.angles[key]
                    onTextChanged: root.calibration.angles[key] = text
                    color: enabled ? Qt.rgba(1, 1, 1, 1) : "grey"
                    Accessible.name: root.label + (cell.index + 1)
                }
            }
        }
    }
}
