import QtQuick 2.15
import QtQuick.Controls 2.15

/// The window. What the operator chose and what jobs reported is kept in its state objects; the pages show it.
ApplicationWindow {
    id: root

    /// Whether the first frame is on the screen, and whether the pages are loaded.
    property bool firstFrameShown: false
    readonly property bool ready: contentLoader.status === Loader.Ready
    /// The desktop session is ending: closing is never refused.
    property bool sessionEnding: false
    /// The operator was told that closing again stops the controller's job.
    property bool closingAnnounced: false
    readonly property string closingText: "A job with the controller is running. Closing the window again stops it."

    property alias cardOneCopying: cards.card1Running
    property alias cardTwoCopying: cards.card2Running
    property alias cardThreeCopying: cards.card3Running
    property alias dataCopying: controller.running
    property alias drives: cards.drives
    property alias devices: controller.devices
    property alias templates: cards.templates
    property alias settings: calibration.settings

    signal copyFiles(string dir1, string dir2, string dir3, string targetDir, string templatePath, string projectName)
    signal copyData(string port, string targetDir, string projectName)
    signal eraseCards(string dir1, string dir2, string dir3, bool eraseCards, bool createSyncConfig)
    signal readCameraSettings(string port)
    signal saveCameraSettings(string port, string date, int recLedOn, double loggingInterval, double timelapseInterval, double timelapseTimeout, int e1FirmwareVersion)
    signal resetCameraSettings(string port)
    signal eraseMemory(string port)
    signal exitApp()

    function readyToExit() { return !cards.running && !controller.running }
    function readyToCopyFiles() { return cards.readyToCopy }
    function readyToEraseCards() { return cards.readyToErase }
    function readyToCopyData() { return controller.readyToCopyData }
    function readyToEraseMemory() { return controller.readyForData }
    function readyToReadSettings() { return controller.readyForSettings }
    function readyToUpdateFirmware() { return controller.readyForSettings }
    function readyToSaveCameraSettings() { return controller.readyForSettings }
    function readyToResetCameraSettings() { return controller.readyForSettings }

    function refreshDrives() { cards.refreshDrives() }
    function refreshDevices() { controller.refreshDevices() }
    function loadTemplates() { cards.loadTemplates() }
    function refreshDestination() {
        cards.folder = appController.getMoviesLocation()
        controller.folder = cards.folder
    }
    function loadStitchSettings() { calibration.load() }
    function saveStitchSettings() { calibration.save() }
    function downloadStitchSettings() { calibration.download() }
    function getSelectedSettingsDeviceName() { return controller.selectSettingsDevice() }
    function getSelectedDataDeviceName() { return controller.selectDataDevice() }
    function getSelectedE1Firmware() { return controller.settings.selectedE1Firmware() }
    function setE1Firmware(generation) { controller.settings.setE1Firmware(generation) }

    function copyFilesClicked() { cards.copy() }
    function eraseCardsClicked(erase, createSyncConfig) { cards.erase(erase, createSyncConfig) }
    function copyDataClicked() { controller.copyData() }
    function eraseMemoryClicked(checked) { controller.eraseMemory(checked) }
    function connectButtonClicked() { controller.readSettings() }
    function saveCameraSettingsClicked() { controller.saveSettings() }
    function resetCameraSettingsClicked() { controller.resetSettings() }

    function updateCardProgress(cardNumber, from, to, value, text) {
        cards.report(cardNumber, from, to, value, text)
    }
    function updateDataProgress(from, to, value, text) {
        controller.report(controller.dataProgress, from, to, value, text)
    }
    function updateCameraSettingsProgress(from, to, value, text) {
        controller.report(controller.settingsProgress, from, to, value, text)
    }
    function updateFirmwareProgress(from, to, value, text) {
        controller.report(controller.settingsProgress, from, to, value, text)
    }
    function updateCameraSettings(firmware, battery, date, recLedOn, loggingInterval, timelapseInterval, timelapseTimeout, e1FirmwareVersion) {
        controller.takeSettings(firmware, battery, date, recLedOn, loggingInterval, timelapseInterval, timelapseTimeout,
                                e1FirmwareVersion)
    }

    CardState {
        id: cards

        onCopyRequested: root.copyFiles(dir1, dir2, dir3, targetDir, templatePath, projectName)
        onEraseRequested: root.eraseCards(dir1, dir2, dir3, eraseCards, createSyncConfig)
    }

    ControllerState {
        id: controller

        onRunningChanged: {
            root.closingAnnounced = false
            root.sessionEnding = false
            message.withdraw(root.closingText)
        }
        onCopyDataRequested: root.copyData(port, targetDir, projectName)
        onEraseMemoryRequested: root.eraseMemory(port)
        onReadSettingsRequested: root.readCameraSettings(port)
        onSaveSettingsRequested: root.saveCameraSettings(port, date, recLedOn, loggingInterval, timelapseInterval,
                                                         timelapseTimeout, e1FirmwareVersion)
        onResetSettingsRequested: root.resetCameraSettings(port)
    }

    Calibration {
        id: calibration

        objectName: "calibration"
        onMessageReceived: message.show(text)
    }

    MessageState { id: message }

    title: "Kelpora 360"
    width: 700
    height: 920
    minimumWidth: 700
    maximumWidth: 700
    minimumHeight: 920
    maximumHeight: 920
    visible: true
    // Texts stand as they are written; the style would set buttons in capitals.
    font.capitalization: Font.MixedCase

    header: TabBar {
        id: tabBar

        visible: root.firstFrameShown

        PageTab { text: "Copy Files" }
        PageTab { text: "Copy Data" }
        PageTab { text: "Settings" }
    }

    Loader {
        id: contentLoader

        anchors.fill: parent
        focus: true
        // While no control has the keyboard, Tab would go to the footer first.
        Keys.onTabPressed: nextItemInFocusChain().forceActiveFocus(Qt.TabFocusReason)
    }

    footer: WindowFooter {
        visible: root.firstFrameShown
        version: appController.getVersion()
        exitEnabled: root.readyToExit()
        onExitClicked: root.close()
    }

    Connections {
        target: root
        enabled: !root.firstFrameShown
        // Made while the first frame is still being drawn, the pages would take the processors that it needs.
        function onFrameSwapped() { root.firstFrameShown = true }
    }

    // The pages and popups come after the first frame: the operator sees at once that the program starts. Nothing
    // before names their types, which would be loaded with the window.
    onFirstFrameShownChanged: contentLoader.setSource("WindowContent.qml", { "cards": cards, "controller": controller,
                                                                             "calibration": calibration,
                                                                             "message": message, "tabs": tabBar })

    onClosing: {
        if (!controller.running || root.closingAnnounced || root.sessionEnding)
            return
        close.accepted = false
        root.closingAnnounced = true
        message.show(root.closingText)
    }

    Component.onCompleted: {
        root.refreshDrives()
        root.refreshDevices()
        root.loadTemplates()
        root.refreshDestination()
        root.loadStitchSettings()
        root.getSelectedSettingsDeviceName()
    }
}
