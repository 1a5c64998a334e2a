import QtQuick 2.15
import QtQuick.Controls 2.15

/// What fills the window once it stands: the pages, the popups and the choosers. Says what was pressed to the
/// window, which keeps the state.
Item {
    id: root

    /// The root window.
    required property var window

    property alias pageIndex: pages.currentIndex
    property alias copyFilesPage: copyFilesPage
    property alias copyDataPage: copyDataPage
    property alias settingsPage: settingsPage
    property alias messagePopup: messagePopup
    property alias waitPopup: waitPopup
    /// Null until makeStitchPopup().
    readonly property StitchPopup stitchPopup: stitchLoader.item

    /// Its fields would double the time that the window takes to appear.
    function makeStitchPopup() {
        stitchLoader.active = true
    }

    SwipeView {
        id: pages

        anchors.fill: parent
        currentIndex: root.window.tabIndex
        // As a stop of its own it would hand the keyboard back to the control that had it last, over and over.
        activeFocusOnTab: false

        CopyFilesPage {
            id: copyFilesPage

            drives: root.window.driveModel
            templates: root.window.templateModel
            readyToCopyFiles: root.window.readyToCopyFiles()
            readyToEraseCards: root.window.readyToEraseCards()
            anglesText: root.window.settings["OverwriteAngles"] ? "Overwrite camera angles in template."
                                                                : "Use camera angles from template."
            onChooseSourceClicked: {
                sourceChooser.cardNumber = cardNumber
                sourceChooser.open()
            }
            onChooseDestinationClicked: {
                destinationChooser.forFiles = true
                destinationChooser.open()
            }
            onChooseTemplateClicked: templateChooser.open()
            onChangeAnglesClicked: root.window.changeAnglesClicked()
            onEraseCardsClicked: eraseCardsPopup.open()
            onRefreshCardsClicked: root.window.refreshDrives()
            onRefreshTemplatesClicked: root.window.loadTemplates()
            onCopyFilesClicked: root.window.copyFilesClicked()
            onFolderTyped: copyDataPage.folder = copyFilesPage.folder
            onProjectNameTyped: copyDataPage.projectName = copyFilesPage.projectName
        }

        CopyDataPage {
            id: copyDataPage

            devices: root.window.deviceModel
            connected: root.window.readyToReadSettings()
            readyToCopyData: root.window.readyToCopyData()
            readyToEraseMemory: root.window.readyToEraseMemory()
            onChooseDestinationClicked: {
                destinationChooser.forFiles = false
                destinationChooser.open()
            }
            onRefreshDevicesClicked: root.window.refreshDevices()
            onCopyDataClicked: root.window.copyDataClicked()
            onEraseMemoryClicked: eraseMemoryPopup.open()
        }

        SettingsPage {
            id: settingsPage

            devices: root.window.deviceModel
            connected: root.window.readyToReadSettings()
            readyToSave: root.window.readyToSaveCameraSettings()
            readyToReset: root.window.readyToResetCameraSettings()
            onRefreshDevicesClicked: root.window.refreshDevices()
            onConnectClicked: root.window.connectButtonClicked()
            onSaveClicked: root.window.saveCameraSettingsClicked()
            onResetClicked: root.window.resetCameraSettingsClicked()
        }
    }

    MessagePopup {
        id: messagePopup

        objectName: "messagePopup"
    }

    WaitPopup {
        id: waitPopup

        objectName: "waitPopup"
    }

    EraseCardsPopup {
        id: eraseCardsPopup

        objectName: "eraseCardsPopup"
        onAnswered: root.window.eraseCardsClicked(erase, createSyncConfig)
    }

    EraseMemoryPopup {
        id: eraseMemoryPopup

        objectName: "eraseMemoryPopup"
        onAnswered: root.window.eraseMemoryClicked(erase)
    }

    Loader {
        id: stitchLoader

        active: false
        sourceComponent: StitchPopup {
            objectName: "stitchPopup"
            onDownloadClicked: {
                root.window.settings["Serialnumber"] = serialnumber
                root.window.downloadStitchSettings()
            }
            onResetClicked: root.window.loadStitchSettings()
            onSaveClicked: root.window.saveStitchSettings()
        }
    }

    Chooser {
        id: sourceChooser

        property int cardNumber: 0

        objectName: "sourceChooser"
        title: "Choose a directory"
        startsIn: "desktop"
        selectFolder: true
        onChosen: root.window.addSource(sourceChooser.cardNumber, path)
    }

    Chooser {
        id: destinationChooser

        /// Opened from the page "Copy Files", which shares its folder with the other page.
        property bool forFiles: true

        objectName: "destinationChooser"
        title: "Choose the target directory"
        startsIn: "movies"
        selectFolder: true
        onChosen: {
            if (destinationChooser.forFiles)
                copyFilesPage.folder = path
            copyDataPage.folder = path
        }
    }

    Chooser {
        id: templateChooser

        objectName: "templateChooser"
        title: "Select a stitching template"
        startsIn: "movies"
        nameFilters: ["Autopano Project Template (*.kava)"]
        onChosen: root.window.addTemplate(path)
    }

    Chooser {
        id: firmwareChooser

        objectName: "firmwareChooser"
        title: "Please select the new firmware file"
        startsIn: "documents"
        nameFilters: ["Kelpora Firmware (*.hex)"]
        onChosen: appController.updateFirmware(root.window.getSelectedSettingsDeviceName(), path)
    }
}
