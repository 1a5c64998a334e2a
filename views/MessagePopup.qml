import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Tells the operator something; closes on "Ok", Escape or a press outside.
ModalPopup {
    id: root

    property alias text: message.text

    name: title.text
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside

    ColumnLayout {
        spacing: 16

        Label {
            id: title

            text: "Info"
            font.bold: true
        }

        PopupText {
            id: message

            labelName: "messageText"
        }

        FlatButton {
            Layout.alignment: Qt.AlignRight
            text: "Ok"
            focus: true
            onClicked: root.close()
        }
    }
}
