import QtQuick 2.15
import QtQuick.Controls 2.15

/// Asks before the controller's data log is erased.
QuestionPopup {
    id: root

    signal answered(bool erase)

    name: "Erase Memory"
    onAccepted: root.answered(eraseBox.checked)
    onRejected: root.answered(false)

    TickBox {
        id: eraseBox

        objectName: "eraseMemoryBox"
        text: "Erase memory. This can't be undone."
    }
}
