import QtQuick 2.15
import QtQuick.Layouts 1.15
import "../views"

/// What is to be checked, and the button that does it.
FormPage {
    id: root

    title: "Check"

    required property CheckState check
    /// Whether the keyboard is at the button "Check".
    readonly property bool keyboardAtCheck: checkButton.visualFocus

    /// The "..." button of card 1, 2 or 3.
    signal chooseSourceClicked(int cardNumber)
    signal chooseFolderClicked()
    signal refreshCardsClicked()
    signal checkClicked()
    signal stopClicked()

    Heading { text: "Cards:" }
    ChoiceRow {
        id: card1Row

        enabled: !root.check.running
        label: "Card 1"
        comboName: "card1Combo"
        choices: root.check.driveModel
        currentIndex: root.check.card1Index
        onCurrentIndexChanged: root.check.card1Index = currentIndex
        RowButton { text: "..."; row: card1Row; onClicked: root.chooseSourceClicked(1) }
    }
    ChoiceRow {
        id: card2Row

        enabled: !root.check.running
        label: "Card 2"
        comboName: "card2Combo"
        choices: root.check.driveModel
        currentIndex: root.check.card2Index
        onCurrentIndexChanged: root.check.card2Index = currentIndex
        RowButton { text: "..."; row: card2Row; onClicked: root.chooseSourceClicked(2) }
    }
    ChoiceRow {
        id: card3Row

        enabled: !root.check.running
        label: "Card 3"
        comboName: "card3Combo"
        choices: root.check.driveModel
        currentIndex: root.check.card3Index
        onCurrentIndexChanged: root.check.card3Index = currentIndex
        RowButton { text: "..."; row: card3Row; onClicked: root.chooseSourceClicked(3) }
    }

    Heading { text: "Copies:" }
    TextRow {
        id: folderRow

        enabled: !root.check.running
        label: "Folder"
        fieldName: "folderText"
        text: root.check.folder
        onTextChanged: root.check.folder = text
        RowButton { text: "..."; row: folderRow; onClicked: root.chooseFolderClicked() }
    }
    TickBox {
        objectName: "sealBox"
        Layout.columnSpan: 2
        Layout.fillWidth: true
        Layout.preferredWidth: 1
        enabled: !root.check.running
        text: "Seal the folder"
        checked: root.check.seal
        onCheckedChanged: root.check.seal = checked
    }
    FlatButton {
        objectName: "refreshCardsButton"
        Layout.columnSpan: 2
        Layout.fillWidth: true
        Layout.preferredWidth: 1
        text: "Refresh Cards"
        enabled: !root.check.running
        onClicked: root.refreshCardsClicked()
    }
    FlatButton {
        id: checkButton

        objectName: "checkButton"
        Layout.columnSpan: 2
        Layout.fillWidth: true
        Layout.preferredWidth: 1
        text: root.check.running ? "Stop" : "Check"
        enabled: root.check.ready
        highlighted: !root.check.running
        onClicked: root.check.running ? root.stopClicked() : root.checkClicked()
    }
}
