import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

ApplicationWindow {
    id: root

    /// The pages and popups come after the window's first frame, or when they are first needed: the operator sees at
    /// once that the program starts. Nothing here names their types, which would be loaded before it too.
    readonly property var content: contentLoader.item
    readonly property var copyFilesPage: root.content ? root.content.copyFilesPage : null
    readonly property var copyDataPage: root.content ? root.content.copyDataPage : null
    readonly property var settingsPage: root.content ? root.content.settingsPage : null
    readonly property bool ready: root.copyFilesPage && root.copyDataPage && root.settingsPage ? true : false
    property bool framed: false
    readonly property int tabIndex: tabBar.currentIndex
    property string moviesLocation: ""

    property bool cardOneCopying: false
    property bool cardTwoCopying: false
    property bool cardThreeCopying: false
    property bool dataCopying: false
    readonly property ListModel driveModel: ListModel {}
    readonly property ListModel deviceModel: ListModel {}
    readonly property ListModel templateModel: ListModel {}
    property var drives: []
    property var devices: []
    property var templates: []
    property var settings: ({})
    /// In characters; a calibration has less than a thousand.
    readonly property int longestAnswer: 1000000
    /// Where calibrations come from unless the settings name another service.
    readonly property string calibrationUrl: "https://calibration.kelpora.example"

    signal copyFiles(string dir1, string dir2, string dir3, string targetDir, string templatePath, string projectName)
    signal copyData(string port, string targetDir, string projectName)
    signal eraseCards(string dir1, string dir2, string dir3, bool eraseCards, bool createSyncConfig)
    signal readCameraSettings(string port)
    signal saveCameraSettings(string port, string date, int recLedOn, double loggingInterval, double timelapseInterval, double timelapseTimeout, int e1FirmwareVersion)
    signal resetCameraSettings(string port)
    signal eraseMemory(string port)
    signal exitApp()

    /// Makes the pages, if they aren't yet.
    function makeContent() {
        if (contentLoader.status === Loader.Null)
            contentLoader.setSource("WindowContent.qml", { "window": root })
    }

    function readyToExit() {
        return !root.cardCopying() && !root.dataCopying
    }

    function readyToCopyFiles() {
        return root.ready && !root.cardCopying() && root.copyFilesPage.card1Index >= 0 && root.copyFilesPage.card2Index >= 0
            && root.copyFilesPage.card3Index >= 0 && root.copyFilesPage.folder !== ""
    }

    function readyToEraseCards() {
        return root.ready && !root.cardCopying() && (root.copyFilesPage.card1Index >= 0 || root.copyFilesPage.card2Index >= 0
                                                     || root.copyFilesPage.card3Index >= 0)
    }

    function readyToCopyData() {
        return root.readyToEraseMemory() && root.copyDataPage.folder !== ""
    }

    function readyToEraseMemory() {
        return root.ready && !root.dataCopying && root.copyDataPage.deviceIndex >= 0
    }

    function readyToReadSettings() {
        return root.ready && !root.dataCopying && root.settingsPage.deviceIndex >= 0
    }

    function readyToUpdateFirmware() {
        return root.readyToReadSettings()
    }

    function readyToSaveCameraSettings() {
        return root.readyToReadSettings()
    }

    function readyToResetCameraSettings() {
        return root.readyToReadSettings()
    }

    function cardCopying() {
        return root.cardOneCopying || root.cardTwoCopying || root.cardThreeCopying
    }

    /// The key of an entry of `drives` or `templates`; "" where nothing is chosen.
    function keyAt(entries, index) {
        return index >= 0 && index < entries.length ? entries[index].key : ""
    }

    function refreshDrives() {
        root.driveModel.clear()
        root.drives = appController.getDrives()
        for (const drive of root.drives)
            root.driveModel.append({ "key": drive.key, "text": drive.value + " (" + drive.key + ")" })
        if (root.ready)
            root.preselectDrives()
    }

    function preselectDrives() {
        const ends = (drive, digit) => drive.key.endsWith(digit) || drive.value.endsWith(digit)
        root.drives.forEach((drive, index) => {
            if (!drive.key.includes("360") && !drive.value.includes("360"))
                return
            if (ends(drive, "1"))
                root.copyFilesPage.card1Index = index
            else if (ends(drive, "2"))
                root.copyFilesPage.card2Index = index
            else if (ends(drive, "3"))
                root.copyFilesPage.card3Index = index
        })
    }

    function refreshDevices() {
        root.devices = appController.getDevices()
        root.deviceModel.clear()
        for (const device of root.devices)
            root.deviceModel.append({ "key": device.name, "text": device.serial + " (" + device.manufacturer + ")" })

        if (root.ready)
            root.preselectDevice()
    }

    /// The index of the first device that may be the controller; -1 if none may.
    function likelyDevice() {
        for (const mark of ["KELPORA", "FTDI"]) {
            const index = root.devices.findIndex(device => device.serial.includes(mark))
            if (index >= 0)
                return index
        }
        return -1
    }

    function preselectDevice() {
        const index = root.likelyDevice()
        if (index < 0)
            return
        root.copyDataPage.deviceIndex = index
        root.settingsPage.deviceIndex = index
    }

    /// The name of the device chosen at `index`, which becomes the controller's port; "" where none is chosen.
    function selectDevice(index) {
        if (index < 0 || index >= root.devices.length)
            return ""
        appController.setPort(root.devices[index].name)
        return root.devices[index].name
    }

    function getSelectedSettingsDeviceName() {
        return root.selectDevice(root.ready ? root.settingsPage.deviceIndex : root.likelyDevice())
    }

    function getSelectedDataDeviceName() {
        root.makeContent()
        return root.selectDevice(root.copyDataPage.deviceIndex)
    }

    function getSelectedE1Firmware() {
        root.makeContent()
        const generation = [26, 29, 30][root.settingsPage.e1FirmwareIndex]
        return generation === undefined ? 29 : generation
    }

    function setE1Firmware(generation) {
        root.makeContent()
        const index = [26, 29, 30].indexOf(generation)
        if (index >= 0)
            root.settingsPage.e1FirmwareIndex = index
    }

    function loadTemplates() {
        root.templateModel.clear()
        root.templates = appController.getTemplates()
        for (const entry of root.templates)
            root.templateModel.append({ "key": entry.key, "text": entry.value })
        if (root.ready)
            root.preselectTemplate()
    }

    function preselectTemplate() {
        if (root.templateModel.count > 0)
            root.copyFilesPage.templateIndex = 0
    }

    function refreshDestination() {
        root.moviesLocation = appController.getMoviesLocation()
        if (root.ready)
            root.showDestination()
    }

    function showDestination() {
        root.copyFilesPage.folder = root.moviesLocation
        root.copyDataPage.folder = root.moviesLocation
    }

    function loadStitchSettings() {
        root.settings = appController.getSettings()
        if (root.content && root.content.stitchPopup)
            root.content.stitchPopup.show(root.settings)
    }

    /// The popup of the settings, which is made when it is first needed.
    function stitchPopup() {
        root.makeContent()
        if (!root.content.stitchPopup) {
            root.content.makeStitchPopup()
            root.content.stitchPopup.show(root.settings)
        }
        return root.content.stitchPopup
    }

    function saveStitchSettings() {
        root.stitchPopup().store(root.settings)
        appController.updateSettings(root.settings)
        root.loadStitchSettings()
    }

    function changeAnglesClicked() {
        const popup = root.stitchPopup()
        root.loadStitchSettings()
        popup.open()
    }

    function downloadStitchSettings() {
        const serial = root.settings["Serialnumber"]
        if (!serial)
            return
        console.info("Downloading settings for " + serial)
        const request = new XMLHttpRequest()
        request.onreadystatechange = () => {
            const tooLong = request.responseText.length > root.longestAnswer
            if (request.readyState === XMLHttpRequest.DONE)
                root.takeStitchSettings(tooLong ? "" : request.responseText, serial)
            else if (tooLong)
                request.abort()
        }
        const service = root.settings["CalibrationUrl"] || root.calibrationUrl
        request.open("GET", service + "/api/v1/kelpora360/calibration/" + encodeURIComponent(serial))
        request.send()
    }

    /// Takes the calibration service's answer on the rig `serial`: what it sends is saved at once, what it says is
    /// shown.
    function takeStitchSettings(text, serial) {
        console.info("Response: " + text)
        let response
        try {
            response = JSON.parse(text)
        } catch (error) {
            console.warn("The calibration service's answer can't be read: " + error.message)
            return
        }
        if (response === null || typeof response !== "object") {
            console.warn("The calibration service's answer is no object.")
            return
        }
        const data = response.data
        if (response.success === true && data !== null && typeof data === "object") {
            root.stitchPopup().showCalibration(data, serial)
            root.saveStitchSettings()
        } else if (response.success === true) {
            console.warn("The calibration service's answer holds no calibration.")
        }
        root.makeContent()
        root.content.messagePopup.text = response.message === undefined || response.message === null ? "" : String(response.message)
        root.content.messagePopup.open()
    }

    /// Puts a folder chosen by hand at the top of every card's list; the card that asked for it selects it, the
    /// others keep their choice.
    function addSource(cardNumber, path) {
        root.makeContent()
        const chosen = [root.copyFilesPage.card1Index, root.copyFilesPage.card2Index, root.copyFilesPage.card3Index]
            .map((index, card) => card + 1 === cardNumber ? 0 : index + 1)
        root.drives = [{ "key": path, "value": path }].concat(root.drives)
        root.driveModel.insert(0, { "key": path, "text": path + " (" + path + ")" })
        root.copyFilesPage.card1Index = chosen[0]
        root.copyFilesPage.card2Index = chosen[1]
        root.copyFilesPage.card3Index = chosen[2]
    }

    function addTemplate(path) {
        root.makeContent()
        root.templates = [{ "key": path, "value": path }].concat(root.templates)
        root.templateModel.insert(0, { "key": path, "text": path })
        root.copyFilesPage.templateIndex = 0
    }

    function copyFilesClicked() {
        root.makeContent()
        if (!root.readyToCopyFiles())
            return
        root.cardOneCopying = true
        root.cardTwoCopying = true
        root.cardThreeCopying = true
        root.copyFiles(root.keyAt(root.drives, root.copyFilesPage.card1Index),
                       root.keyAt(root.drives, root.copyFilesPage.card2Index),
                       root.keyAt(root.drives, root.copyFilesPage.card3Index),
                       root.copyFilesPage.folder,
                       root.keyAt(root.templates, root.copyFilesPage.templateIndex),
                       root.copyFilesPage.projectName)
    }

    function eraseCardsClicked(erase, createSyncConfig) {
        root.makeContent()
        if (!root.readyToEraseCards())
            return
        root.eraseCards(root.keyAt(root.drives, root.copyFilesPage.card1Index),
                        root.keyAt(root.drives, root.copyFilesPage.card2Index),
                        root.keyAt(root.drives, root.copyFilesPage.card3Index),
                        erase, createSyncConfig)
    }

    function copyDataClicked() {
        root.makeContent()
        if (!root.readyToCopyData())
            return
        root.dataCopying = true
        root.copyData(root.getSelectedDataDeviceName(), root.copyDataPage.folder, root.copyDataPage.projectName)
    }

    function eraseMemoryClicked(checked) {
        root.makeContent()
        if (!root.readyToEraseMemory() || !checked)
            return
        root.dataCopying = true
        root.eraseMemory(root.getSelectedDataDeviceName())
    }

    function connectButtonClicked() {
        if (root.beginSettingsJob())
            root.readCameraSettings(root.getSelectedSettingsDeviceName())
    }

    function saveCameraSettingsClicked() {
        if (root.beginSettingsJob())
            root.saveCameraSettings(root.getSelectedSettingsDeviceName(), root.settingsPage.date, root.settingsPage.recLedOn ? 1 : 0,
                                    root.settingsPage.videoInterval, root.settingsPage.photoInterval, root.settingsPage.photoTimeout,
                                    root.getSelectedE1Firmware())
    }

    function resetCameraSettingsClicked() {
        if (root.beginSettingsJob())
            root.resetCameraSettings(root.getSelectedSettingsDeviceName())
    }

    /// Takes the controller for a job of the settings page; false while another has it.
    function beginSettingsJob() {
        root.makeContent()
        if (root.dataCopying)
            return false
        root.dataCopying = true
        root.content.waitPopup.text = ""
        root.content.waitPopup.open()
        return true
    }

    /// Shows a controller job's progress on `page`, and in the wait popup while the job runs.
    function showControllerProgress(page, from, to, value, text) {
        page.showProgress(from, to, value, text)
        root.dataCopying = value < to
        root.content.waitPopup.text = ""
        if (root.dataCopying) {
            root.content.waitPopup.open()
            root.content.waitPopup.text = text
        } else {
            root.content.waitPopup.close()
        }
    }

    function updateDataProgress(from, to, value, text) {
        root.makeContent()
        root.showControllerProgress(root.copyDataPage, from, to, value, text)
    }

    function updateCameraSettingsProgress(from, to, value, text) {
        root.makeContent()
        root.showControllerProgress(root.settingsPage, from, to, value, text)
    }

    function updateFirmwareProgress(from, to, value, text) {
        root.makeContent()
        root.showControllerProgress(root.settingsPage, from, to, value, text)
    }

    function updateCameraSettings(firmware, battery, date, recLedOn, loggingInterval, timelapseInterval, timelapseTimeout, e1FirmwareVersion) {
        root.makeContent()
        root.dataCopying = false
        root.settingsPage.firmware = firmware
        root.settingsPage.battery = battery
        root.settingsPage.date = date
        root.settingsPage.recLedOn = recLedOn === 1
        root.settingsPage.videoInterval = loggingInterval
        root.settingsPage.photoInterval = timelapseInterval
        root.settingsPage.photoTimeout = timelapseTimeout
        root.setE1Firmware(e1FirmwareVersion)
        root.content.waitPopup.close()
    }

    function updateCardProgress(cardNumber, from, to, value, text) {
        root.makeContent()
        root.copyFilesPage.showProgress(cardNumber, from, to, value, text)
        if (cardNumber === 1)
            root.cardOneCopying = value < to
        else if (cardNumber === 2)
            root.cardTwoCopying = value < to
        else if (cardNumber === 3)
            root.cardThreeCopying = value < to
    }

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

        visible: root.framed
        currentIndex: root.content ? root.content.pageIndex : 0

        TabButton { text: "Copy Files" }
        TabButton { text: "Copy Data" }
        TabButton { text: "Settings" }
    }

    Loader {
        id: contentLoader

        anchors.fill: parent
    }

    footer: Pane {
        visible: root.framed
        leftPadding: 20
        rightPadding: 20
        topPadding: 0
        bottomPadding: 4

        RowLayout {
            anchors.left: parent.left
            anchors.right: parent.right

            Label {
                objectName: "versionText"
                Layout.fillWidth: true
                text: "Version " + appController.getVersion()
            }
            FlatButton {
                objectName: "exitButton"
                text: "Exit"
                enabled: root.readyToExit()
                onClicked: root.close()
            }
        }
    }

    Connections {
        target: root
        enabled: !root.framed
        // Made while the first frame is still being drawn, the pages would take the processors that it needs.
        function onFrameSwapped() { root.framed = true }
    }

    onFramedChanged: root.makeContent()

    onReadyChanged: {
        if (!root.ready)
            return
        root.preselectDrives()
        root.preselectDevice()
        root.preselectTemplate()
        root.showDestination()
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
