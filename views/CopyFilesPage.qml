import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that imports three cards.
Page {
    id: root

    /// Models with the roles "key" and "text".
    required property var drives
    required property var templates
    required property bool readyToCopyFiles
    required property string anglesText

    property alias card1Index: card1Row.currentIndex
    property alias card2Index: card2Row.currentIndex
    property alias card3Index: card3Row.currentIndex
    property alias templateIndex: templateCombo.currentIndex
    property alias folder: destinationFilesText.text
    property alias projectName: projectNameText.text

    readonly property real columnWidth: (root.availableWidth - 5 * grid.columnSpacing) / 6

    signal refreshCardsClicked()
    signal refreshTemplatesClicked()
    signal copyFilesClicked()

    /// Shows the progress of card 1, 2 or 3; other numbers are ignored.
    function showProgress(cardNumber, from, to, value, text) {
        const rows = [card1Progress, card2Progress, card3Progress]
        if (cardNumber >= 1 && cardNumber <= rows.length)
            rows[cardNumber - 1].show(from, to, value, text)
    }

    // The window gives the page its size; rows that asked for theirs would go round in a circle.
    implicitWidth: 0
    padding: 20
    topPadding: 12
    bottomPadding: 0

    GridLayout {
        id: grid

        anchors.left: parent.left
        anchors.right: parent.right
        columns: 6
        columnSpacing: 8
        rowSpacing: 4

        Heading { text: "Source:" }

        DriveRow { id: card1Row; label: "Card 1"; comboName: "card1Combo"; drives: root.drives; columnWidth: root.columnWidth; gap: grid.columnSpacing }
        DriveRow { id: card2Row; label: "Card 2"; comboName: "card2Combo"; drives: root.drives; columnWidth: root.columnWidth; gap: grid.columnSpacing }
        DriveRow { id: card3Row; label: "Card 3"; comboName: "card3Combo"; drives: root.drives; columnWidth: root.columnWidth; gap: grid.columnSpacing }

        Button {
            objectName: "refreshCardsButton"
            Layout.columnSpan: 3
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: "Refresh Cards"
            onClicked: root.refreshCardsClicked()
        }
        Button {
            objectName: "eraseCardsButton"
            Layout.columnSpan: 3
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: "Erase Cards"
            enabled: false
        }

        Heading { text: "Destination:" }

        PageRow {
            label: "Folder"
            columnWidth: root.columnWidth
            gap: grid.columnSpacing

            TextField {
                id: destinationFilesText

                objectName: "destinationFilesText"
                Layout.fillWidth: true
                selectByMouse: true
                Accessible.name: "Folder"
            }
            Button {
                Layout.preferredWidth: root.columnWidth
                text: "..."
                enabled: false
                Accessible.name: "Folder ..."
            }
        }
        PageRow {
            label: "Project Name"
            columnWidth: root.columnWidth
            gap: grid.columnSpacing

            TextField {
                id: projectNameText

                objectName: "projectNameText"
                Layout.fillWidth: true
                selectByMouse: true
                Accessible.name: "Project Name"
            }
        }

        Heading { text: "Stitching:" }

        PageRow {
            label: "Camera Angles"
            columnWidth: root.columnWidth
            gap: grid.columnSpacing

            Label {
                objectName: "cameraAnglesText"
                Layout.fillWidth: true
                text: root.anglesText
            }
            Button {
                Layout.preferredWidth: root.columnWidth
                text: "Change"
                enabled: false
                Accessible.name: "Camera Angles Change"
            }
        }
        PageRow {
            label: "Template"
            columnWidth: root.columnWidth
            gap: grid.columnSpacing

            ChoiceBox {
                id: templateCombo

                objectName: "templateCombo"
                Layout.fillWidth: true
                model: root.templates
                Accessible.name: "Template"
            }
            Button {
                Layout.preferredWidth: root.columnWidth
                text: "..."
                enabled: false
                Accessible.name: "Template ..."
            }
        }
        Button {
            objectName: "refreshTemplatesButton"
            Layout.columnSpan: 3
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: "Refresh Templates"
            onClicked: root.refreshTemplatesClicked()
        }
        Button {
            objectName: "copyFilesButton"
            Layout.columnSpan: 3
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: "Copy Files"
            enabled: root.readyToCopyFiles
            highlighted: true
            onClicked: root.copyFilesClicked()
        }

        Heading { text: "Progress:" }

        ProgressRow { id: card1Progress; objectName: "card1Progress"; label: "Card 1"; columnWidth: root.columnWidth; gap: grid.columnSpacing }
        ProgressRow { id: card2Progress; objectName: "card2Progress"; label: "Card 2"; columnWidth: root.columnWidth; gap: grid.columnSpacing }
        ProgressRow { id: card3Progress; objectName: "card3Progress"; label: "Card 3"; columnWidth: root.columnWidth; gap: grid.columnSpacing }
    }
}
