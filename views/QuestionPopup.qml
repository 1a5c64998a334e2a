import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Asks before something is erased: boxes to check, "Erase" and "Cancel". Closes only by its buttons.
ModalPopup {
    id: root

    default property alias boxes: boxColumn.data

    signal accepted()
    signal rejected()

    // Every question begins with all boxes checked, whatever was answered before.
    onAboutToShow: {
        for (let i = 0; i < boxColumn.children.length; ++i)
            boxColumn.children[i].checked = true
    }

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

            FlatButton {
                objectName: root.objectName + "EraseButton"
                text: "Erase"
                destructive: true
                onClicked: {
                    root.accepted()
                    root.close()
                }
            }
            FlatButton {
                objectName: root.objectName + "CancelButton"
                text: "Cancel"
                focus: true
                onClicked: {
                    root.rejected()
                    root.close()
                }
            }
        }
    }
}
