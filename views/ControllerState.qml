import QtQuick 2.15

/// The controller: what the operator chose on the pages "Copy Data" and "Settings", whether it has a job, and what the
/// job reported.
QtObject {
    id: root

    /// Objects with "name", "serial" and "manufacturer".
    property var devices: []
    /// What the drop-downs offer, with the roles "key" and "text".
    readonly property ListModel deviceModel: ListModel {}

    /// Positions in `devices`, one for each page; -1 where nothing is chosen.
    property int dataDeviceIndex: -1
    property int settingsDeviceIndex: -1
    property string folder: ""
    property string projectName: ""

    readonly property CameraSettings settings: CameraSettings {}

    property bool running: false
    readonly property ProgressState dataProgress: ProgressState {}
    readonly property ProgressState settingsProgress: ProgressState {}
    /// Whether the wait popup is open, and its text.
    property bool waiting: false
    property string waitText: ""

    readonly property bool readyForData: !running && dataDeviceIndex >= 0
    readonly property bool readyToCopyData: readyForData && folder !== ""
    readonly property bool readyForSettings: !running && settingsDeviceIndex >= 0

    signal copyDataRequested(string port, string targetDir, string projectName)
    signal eraseMemoryRequested(string port)
    signal readSettingsRequested(string port)
    signal saveSettingsRequested(string port, string date, int recLedOn, double loggingInterval, double timelapseInterval, double timelapseTimeout, int e1FirmwareVersion)
    signal resetSettingsRequested(string port)

    function refreshDevices() {
        root.devices = appController.getDevices()
        root.dataDeviceIndex = -1
        root.settingsDeviceIndex = -1
        root.deviceModel.clear()
        for (const device of root.devices)
            root.deviceModel.append({ "key": device.name, "text": device.serial + " (" + device.manufacturer + ")" })

        const likely = root.likelyDevice()
        root.dataDeviceIndex = likely
        root.settingsDeviceIndex = likely
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

    /// The name of the device at `index`, which becomes the controller's port; "" where none is chosen.
    function selectDevice(index) {
        if (index < 0 || index >= root.devices.length)
            return ""
        appController.setPort(root.devices[index].name)
        return root.devices[index].name
    }

    function selectDataDevice() {
        return root.selectDevice(root.dataDeviceIndex)
    }

    function selectSettingsDevice() {
        return root.selectDevice(root.settingsDeviceIndex)
    }

    function copyData() {
        if (!root.readyToCopyData)
            return
        root.running = true
        root.copyDataRequested(root.selectDataDevice(), root.folder, root.projectName)
    }

    function eraseMemory(confirmed) {
        if (!confirmed || !root.readyForData)
            return
        root.running = true
        root.eraseMemoryRequested(root.selectDataDevice())
    }

    /// Takes the controller for a job of the page "Settings"; false while another job has it.
    function beginSettingsJob() {
        if (root.running)
            return false
        root.running = true
        root.waitText = ""
        root.waiting = true
        return true
    }

    function readSettings() {
        if (root.beginSettingsJob())
            root.readSettingsRequested(root.selectSettingsDevice())
    }

    function saveSettings() {
        const edited = root.settings
        if (root.beginSettingsJob())
            root.saveSettingsRequested(root.selectSettingsDevice(), edited.date, edited.recLedOn ? 1 : 0,
                                       edited.videoInterval.rounded(), edited.photoInterval.rounded(),
                                       edited.photoTimeout.rounded(), edited.selectedE1Firmware())
    }

    function resetSettings() {
        if (root.beginSettingsJob())
            root.resetSettingsRequested(root.selectSettingsDevice())
    }

    /// Takes a job's report, which `progress` shows, and the wait popup as long as the job runs.
    function report(progress, from, to, value, text) {
        progress.show(from, to, value, text)
        root.running = value < to
        root.waitText = root.running ? text : ""
        root.waiting = root.running
    }

    /// Takes the settings that a job has read.
    function takeSettings(...values) {
        root.running = false
        root.settings.show(...values)
        root.waiting = false
    }
}
