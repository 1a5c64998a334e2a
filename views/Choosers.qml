import QtQuick 2.15

/// The dialogs for folders and files.
Item {
    id: root

    required property CardState cards
    required property ControllerState controller

    /// Chooses a folder in place of card 1, 2 or 3.
    function chooseSource(cardNumber) {
        sourceChooser.cardNumber = cardNumber
        sourceChooser.open()
    }

    /// Chooses the folder of the page "Copy Data", and with `forFiles` that of "Copy Files" too.
    function chooseDestination(forFiles) {
        destinationChooser.forFiles = forFiles
        destinationChooser.open()
    }

    function chooseTemplate() {
        templateChooser.open()
    }

    Chooser {
        id: sourceChooser

        property int cardNumber: 0

        objectName: "sourceChooser"
        title: "Choose a directory"
        startsIn: "desktop"
        selectFolder: true
        onChosen: root.cards.addSource(sourceChooser.cardNumber, path)
    }

    Chooser {
        id: destinationChooser

        property bool forFiles: true

        objectName: "destinationChooser"
        title: "Choose the target directory"
        startsIn: "movies"
        selectFolder: true
        onChosen: {
            if (destinationChooser.forFiles)
                root.cards.folder = path
            root.controller.folder = path
        }
    }

    Chooser {
        id: templateChooser

        objectName: "templateChooser"
        title: "Select a stitching template"
        startsIn: "movies"
        nameFilters: ["Autopano Project Template (*.kava)"]
        onChosen: root.cards.addTemplate(path)
    }

    Chooser {
        id: firmwareChooser

        objectName: "firmwareChooser"
        title: "Please select the new firmware file"
        startsIn: "documents"
        nameFilters: ["Kelpora Firmware (*.hex)"]
        onChosen: appController.updateFirmware(root.controller.selectSettingsDevice(), path)
    }
}
