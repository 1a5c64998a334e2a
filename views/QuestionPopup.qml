import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Asks before something is erased: boxes to check, "Erase" and "Cancel". Closes only by its buttons.
ModalPopup {
    id: root

    default property alias boxes: boxColumn.data

    /// False once an answer was given: the buttons can still be pressed while the popup fades away.
    property bool asking: false

    signal accepted()
    signal rejected()

    function answer(give) {
        if (!root.asking)
            return
        root.asking = false
        give()
        root.close()
    }

    onAboutToShow: root.asking = true

    ColumnLayout {
        spacing: 16

        Label { text: "Please check all that apply:" }

        ColumnLayout {
            id: boxColumn

            spacing: 0
        }

        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8

            PopupButton {
                objectName: root.objectName + "EraseButton"
                text: "Erase"
                onClicked: root.answer(root.accepted)
            }
            PopupButton {
                objectName: root.objectName + "CancelButton"
                text: "Cancel"
                focus: true
                onClicked: root.answer(root.rejected)
            }
        }
    }
}
