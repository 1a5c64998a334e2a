import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Keeps the operator from the window while a job runs; only the program closes it.
ModalPopup {
    id: root

    property alias text: message.text

    name: title.text

    ColumnLayout {
        spacing: 16

        RowLayout {
            spacing: 16

            Label {
                id: title

                Layout.fillWidth: true
                text: "Please wait ..."
                font.bold: true
            }
            BusyDots { running: root.visible }
        }

        PopupText {
            id: message

            labelName: "waitText"
            followsEnd: true
        }
    }
}
