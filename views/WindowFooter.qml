import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The foot of a window: the version and the way out.
Pane {
    id: root

    required property string version
    property alias exitEnabled: exitButton.enabled

    signal exitClicked()

    leftPadding: 20
    rightPadding: 20
    topPadding: 0
    bottomPadding: 4

    RowLayout {
        anchors.left: parent.left
        anchors.right: parent.right

        Label {
            objectName: "versionText"
            Layout.fillWidth: true
            text: "Version " + root.version
        }
        FlatButton {
            id: exitButton

            objectName: "exitButton"
            text: "Exit"
            onClicked: root.exitClicked()
        }
    }
}
