import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Asks before the controller's data log is erased; closes only by its buttons.
Popup {
    id: root

    signal answered(bool erase)

    x: 100
    y: 100
    modal: true
    focus: true
    closePolicy: Popup.NoAutoClose
    onAboutToShow: eraseBox.checked = true

    ColumnLayout {
        spacing: 16

        Label { text: "Please check all that apply:" }

        CheckBox {
            id: eraseBox

            objectName: "eraseMemoryBox"
            text: "Erase memory. This can't be undone."
            checked: true
        }

        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8

            Button {
                objectName: "eraseMemoryConfirmButton"
                text: "Erase"
                onClicked: {
                    root.answered(eraseBox.checked)
                    root.close()
                }
            }
            Button {
                objectName: "eraseMemoryCancelButton"
                text: "Cancel"
                focus: true
                onClicked: {
                    root.answered(false)
                    root.close()
                }
            }
        }
    }
}
