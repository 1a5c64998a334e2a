import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that imports three cards.
FormPage {
    id: root

    /// Models with the roles "key" and "text".
    required property var drives
    required property var templates
    required property bool readyToCopyFiles
    required property bool readyToEraseCards
    required property string anglesText

    property alias card1Index: card1Row.currentIndex
    property alias card2Index: card2Row.currentIndex
    property alias card3Index: card3Row.currentIndex
    property alias templateIndex: templateRow.currentIndex
    property alias folder: folderRow.text
    property alias projectName: projectRow.text

    /// The "..." button of card 1, 2 or 3.
    signal chooseSourceClicked(int cardNumber)
    signal chooseDestinationClicked()
    signal chooseTemplateClicked()
    signal changeAnglesClicked()
    signal eraseCardsClicked()
    signal refreshCardsClicked()
    signal refreshTemplatesClicked()
    signal copyFilesClicked()
    signal folderTyped()
    signal projectNameTyped()

    /// Shows the progress of card 1, 2 or 3; other numbers are ignored.
    function showProgress(cardNumber, from, to, value, text) {
        if (cardNumber >= 1 && cardNumber <= pace.rows.length)
            pace.show(cardNumber - 1, from, to, value, text)
    }

    ProgressPace {
        id: pace

        rows: [card1Progress, card2Progress, card3Progress]
    }

    Heading { text: "Source:" }
    ChoiceRow {
        id: card1Row

        label: "Card 1"
        comboName: "card1Combo"
        choices: root.drives
        RowButton { text: "..."; row: card1Row; onClicked: root.chooseSourceClicked(1) }
    }
    ChoiceRow {
        id: card2Row

        label: "Card 2"
        comboName: "card2Combo"
        choices: root.drives
        RowButton { text: "..."; row: card2Row; onClicked: root.chooseSourceClicked(2) }
    }
    ChoiceRow {
        id: card3Row

        label: "Card 3"
        comboName: "card3Combo"
        choices: root.drives
        RowButton { text: "..."; row: card3Row; onClicked: root.chooseSourceClicked(3) }
    }
    HalfButton { objectName: "refreshCardsButton"; text: "Refresh Cards"; onClicked: root.refreshCardsClicked() }
    HalfButton {
        objectName: "eraseCardsButton"
        text: "Erase Cards"
        enabled: root.readyToEraseCards
        onClicked: root.eraseCardsClicked()
    }

    Heading { text: "Destination:" }
    TextRow {
        id: folderRow

        label: "Folder"
        fieldName: "destinationFilesText"
        onTyped: root.folderTyped()
        RowButton { text: "..."; row: folderRow; onClicked: root.chooseDestinationClicked() }
    }
    TextRow {
        id: projectRow

        label: "Project Name"
        fieldName: "projectNameText"
        onTyped: root.projectNameTyped()
    }

    Heading { text: "Stitching:" }
    PageRow {
        id: anglesRow

        label: "Camera Angles"
        Label {
            objectName: "cameraAnglesText"
            Layout.fillWidth: true
            text: root.anglesText
        }
        RowButton { text: "Change"; row: anglesRow; onClicked: root.changeAnglesClicked() }
    }
    ChoiceRow {
        id: templateRow

        label: "Template"
        comboName: "templateCombo"
        choices: root.templates
        RowButton { text: "..."; row: templateRow; onClicked: root.chooseTemplateClicked() }
    }
    HalfButton { objectName: "refreshTemplatesButton"; text: "Refresh Templates"; onClicked: root.refreshTemplatesClicked() }
    HalfButton {
        objectName: "copyFilesButton"
        text: "Copy Files"
        enabled: root.readyToCopyFiles
        highlighted: true
        onClicked: root.copyFilesClicked()
    }

    Heading { text: "Progress:" }
    ProgressRow { id: card1Progress; objectName: "card1Progress"; label: "Card 1" }
    ProgressRow { id: card2Progress; objectName: "card2Progress"; label: "Card 2" }
    ProgressRow { id: card3Progress; objectName: "card3Progress"; label: "Card 3" }
}
