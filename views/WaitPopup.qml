import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Keeps the operator from the window while a job runs; only the program closes it.
ModalPopup {
    id: root

    property alias text: message.text

    ColumnLayout {
        spacing: 16

        Label {
            text: "Please wait ..."
            font.bold: true
        }

        PopupText {
            id: message

            labelName: "waitText"
            followsEnd: true
        }
    }
}
