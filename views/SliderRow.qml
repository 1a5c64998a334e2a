import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15

/// A row with a slider and its value.
PageRow {
    id: root

    required property string sliderName
    required property string unit
    required property int decimals
    property alias from: slider.from
    property alias to: slider.to
    property alias stepSize: slider.stepSize
    property alias snapMode: slider.snapMode
    property alias value: slider.value

    Slider {
        id: slider

        // Screen readers look for the range under these names.
        readonly property real minimumValue: slider.from
        readonly property real maximumValue: slider.to

        objectName: root.sliderName
        Layout.fillWidth: true
        leftPadding: 0
        rightPadding: 0
        Accessible.name: root.label

        background: Rectangle {
            y: (slider.height - height) / 2
            implicitWidth: 200
            implicitHeight: 48
            height: 4
            radius: 2
            color: slider.Material.color(Material.Grey, Material.Shade500)

            Rectangle {
                width: slider.handle.x + slider.handle.width / 2
                height: parent.height
                radius: 2
                color: slider.Material.accentColor
            }
        }
        handle: Rectangle {
            x: slider.visualPosition * (slider.availableWidth - width)
            y: (slider.height - height) / 2
            implicitWidth: 16
            implicitHeight: 16
            radius: 8
            color: slider.pressed ? Qt.darker(slider.Material.accentColor, 1.25)
                                  : slider.hovered ? Qt.darker(slider.Material.accentColor, 1.1) : slider.Material.accentColor

            FocusOutline {
                radius: 12
                visible: slider.visualFocus
            }
        }
    }

    Label {
        objectName: root.sliderName + "Text"
        Layout.preferredWidth: root.columnWidth
        text: slider.value.toFixed(root.decimals) + " " + root.unit
        horizontalAlignment: Text.AlignRight
    }
}
