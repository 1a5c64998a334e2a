import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// Asks what to do with the cards; closes only by its buttons.
QuestionPopup {
    id: root

    signal answered(bool erase, bool createSyncConfig)

    name: "Erase Cards"
    onAccepted: root.answered(eraseBox.checked, syncBox.checked)

    TickBox {
        id: eraseBox

        objectName: "eraseCardsBox"
        text: "Erase cards. This can't be undone."
    }

    TickBox {
        id: syncBox

        objectName: "syncConfigBox"
        text: "Write sync configuration files"
    }
}
