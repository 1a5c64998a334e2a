import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that imports three cards.
FormPage {
    id: root

    title: "Copy Files"

    required property CardState cards
    required property Calibration calibration

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

    Heading { text: "Source:" }
    ChoiceRow {
        id: card1Row

        label: "Card 1"
        comboName: "card1Combo"
        choices: root.cards.driveModel
        currentIndex: root.cards.card1Index
        onCurrentIndexChanged: root.cards.card1Index = currentIndex
        RowButton { text: "..."; row: card1Row; onClicked: root.chooseSourceClicked(1) }
    }
    ChoiceRow {
        id: card2Row

        label: "Card 2"
        comboName: "card2Combo"
        choices: root.cards.driveModel
        currentIndex: root.cards.card2Index
        onCurrentIndexChanged: root.cards.card2Index = currentIndex
        RowButton { text: "..."; row: card2Row; onClicked: root.chooseSourceClicked(2) }
    }
    ChoiceRow {
        id: card3Row

        label: "Card 3"
        comboName: "card3Combo"
        choices: root.cards.driveModel
        currentIndex: root.cards.card3Index
        onCurrentIndexChanged: root.cards.card3Index = currentIndex
        RowButton { text: "..."; row: card3Row; onClicked: root.chooseSourceClicked(3) }
    }
    HalfButton { objectName: "refreshCardsButton"; text: "Refresh Cards"; onClicked: root.refreshCardsClicked() }
    HalfButton {
        objectName: "eraseCardsButton"
        text: "Erase Cards"
        enabled: root.cards.readyToErase
        onClicked: root.eraseCardsClicked()
    }

    Heading { text: "Destination:" }
    TextRow {
        id: folderRow

        label: "Folder"
        fieldName: "destinationFilesText"
        text: root.cards.folder
        onTextChanged: root.cards.folder = text
        onTyped: root.folderTyped()
        RowButton { text: "..."; row: folderRow; onClicked: root.chooseDestinationClicked() }
    }
    TextRow {
        label: "Project Name"
        fieldName: "projectNameText"
        text: root.cards.projectName
        onTextChanged: root.cards.projectName = text
        onTyped: root.projectNameTyped()
    }

    Heading { text: "Stitching:" }
    PageRow {
        id: anglesRow

        label: "Camera Angles"
        Label {
            objectName: "cameraAnglesText"
            Layout.fillWidth: true
            text: root.calibration.settings["OverwriteAngles"] ? "Overwrite camera angles in template."
                                                               : "Use camera angles from template."
        }
        RowButton { text: "Change"; row: anglesRow; onClicked: root.changeAnglesClicked() }
    }
    ChoiceRow {
        id: templateRow

        label: "Template"
        comboName: "templateCombo"
        choices: root.cards.templateModel
        currentIndex: root.cards.templateIndex
        onCurrentIndexChanged: root.cards.templateIndex = currentIndex
        RowButton { text: "..."; row: templateRow; onClicked: root.chooseTemplateClicked() }
    }
    HalfButton { objectName: "refreshTemplatesButton"; text: "Refresh Templates"; onClicked: root.refreshTemplatesClicked() }
    HalfButton {
        objectName: "copyFilesButton"
        text: "Copy Files"
        enabled: root.cards.readyToCopy
        highlighted: true
        onClicked: root.copyFilesClicked()
    }

    Heading { text: "Progress:" }
    ProgressRow { objectName: "card1Progress"; label: "Card 1"; progress: root.cards.progress.rows[0] }
    ProgressRow { objectName: "card2Progress"; label: "Card 2"; progress: root.cards.progress.rows[1] }
    ProgressRow { objectName: "card3Progress"; label: "Card 3"; progress: root.cards.progress.rows[2] }
}
