import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// What to do while no controller is there. Keeps its place when it is empty, so that nothing jumps.
Label {
    required property bool ready

    objectName: "hintText"
    Layout.columnSpan: 6
    Layout.fillWidth: true
    Layout.preferredWidth: 1
    Layout.preferredHeight: 40
    wrapMode: Text.Wrap
    verticalAlignment: Text.AlignVCenter
    text: ready ? "" : "Please connect the camera with a Micro-USB cable and tap the record button twice."
}
