import QtQuick 2.15
import QtQuick.Controls 2.15

/// The window's content: pages, popups and choosers. Shows the window's state and passes presses on to it.
Item {
    id: root

    required property CardState cards
    required property ControllerState controller
    required property Calibration calibration
    required property MessageState message
    /// Kept on the same page as the swipe view.
    required property TabBar tabs

    SwipeView {
        id: pages

        anchors.fill: parent
        currentIndex: root.tabs.currentIndex
        onCurrentIndexChanged: root.tabs.currentIndex = currentIndex
        // As a stop of its own it would hand the keyboard back to the control that had it last, over and over.
        activeFocusOnTab: false

        CopyFilesPage {
            cards: root.cards
            calibration: root.calibration
            onChooseSourceClicked: choosers.chooseSource(cardNumber)
            onChooseDestinationClicked: choosers.chooseDestination(true)
            onChooseTemplateClicked: choosers.chooseTemplate()
            onChangeAnglesClicked: {
                root.calibration.load()
                stitchLoader.active = true
                stitchLoader.item.open()
            }
            onEraseCardsClicked: eraseCardsPopup.open()
            onRefreshCardsClicked: root.cards.refreshDrives()
            onRefreshTemplatesClicked: root.cards.loadTemplates()
            onCopyFilesClicked: root.cards.copy()
            onFolderTyped: root.controller.folder = root.cards.folder
            onProjectNameTyped: root.controller.projectName = root.cards.projectName
        }

        CopyDataPage {
            controller: root.controller
            onChooseDestinationClicked: choosers.chooseDestination(false)
            onRefreshDevicesClicked: root.controller.refreshDevices()
            onCopyDataClicked: root.controller.copyData()
            onEraseMemoryClicked: eraseMemoryPopup.open()
        }

        SettingsPage {
            controller: root.controller
            onRefreshDevicesClicked: root.controller.refreshDevices()
            onConnectClicked: root.controller.readSettings()
            onSaveClicked: root.controller.saveSettings()
            onResetClicked: root.controller.resetSettings()
        }
    }

    MessagePopup {
        id: messagePopup

        objectName: "messagePopup"
        // Above the wait popup, which may open later.
        z: 1
        text: root.message.text
        visible: root.message.open
        onVisibleChanged: root.message.open = visible
    }

    WaitPopup {
        objectName: "waitPopup"
        visible: root.controller.waiting
        onVisibleChanged: root.controller.waiting = visible
        text: root.controller.waitText
        onTextChanged: root.controller.waitText = text
        onOpened: {
            // The message above has the keyboard.
            if (messagePopup.visible)
                messagePopup.forceActiveFocus()
        }
    }

    EraseCardsPopup {
        id: eraseCardsPopup

        objectName: "eraseCardsPopup"
        onAnswered: root.cards.erase(erase, createSyncConfig)
    }

    EraseMemoryPopup {
        id: eraseMemoryPopup

        objectName: "eraseMemoryPopup"
        onAnswered: root.controller.eraseMemory(erase)
    }

    /// Its fields would double the time that the window takes to appear.
    Loader {
        id: stitchLoader

        active: false
        sourceComponent: StitchPopup {
            objectName: "stitchPopup"
            calibration: root.calibration
            onDownloadClicked: root.calibration.downloadTyped()
            onDefaultsClicked: root.calibration.fillDefaults()
            onResetClicked: root.calibration.load()
            onSaveClicked: root.calibration.save()
        }
    }

    Choosers {
        id: choosers

        cards: root.cards
        controller: root.controller
    }
}
