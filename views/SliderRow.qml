import QtQuick 2.15
import QtQuick.Controls 2.15
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

        objectName: root.sliderName
        Layout.fillWidth: true
        Accessible.name: root.label
    }

    Label {
        objectName: root.sliderName + "Text"
        Layout.preferredWidth: root.columnWidth
        text: slider.value.toFixed(root.decimals) + " " + root.unit
        horizontalAlignment: Text.AlignRight
    }
}
