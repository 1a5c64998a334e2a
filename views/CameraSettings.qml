import QtQuick 2.15

/// The controller's settings as the page "Settings" shows and edits them.
QtObject {
    id: root

    property string firmware: "-"
    property string battery: "-"
    property string date: ""
    property bool recLedOn: true
    /// The first two in seconds, the timeout in minutes.
    readonly property IntervalState videoInterval: IntervalState { from: 0.2; to: 10; stepSize: 0.1; value: 1 }
    readonly property IntervalState photoInterval: IntervalState { from: 5; to: 120; stepSize: 1 }
    readonly property IntervalState photoTimeout: IntervalState { from: 5; to: 360; stepSize: 5; value: 90 }
    /// Position in `e1Firmwares`; -1 where nothing is chosen.
    property int e1FirmwareIndex: 0
    readonly property var e1Firmwares: [26, 29, 30]

    function selectedE1Firmware() {
        return root.e1Firmwares[root.e1FirmwareIndex] || 29
    }

    function setE1Firmware(generation) {
        const index = root.e1Firmwares.indexOf(generation)
        if (index >= 0)
            root.e1FirmwareIndex = index
    }

    /// Takes what was read from the controller.
    function show(firmware, battery, date, recLedOn, videoInterval, photoInterval, photoTimeout, e1Firmware) {
        root.firmware = firmware
        root.battery = battery
        root.date = date
        root.recLedOn = recLedOn === 1
        root.videoInterval.set(videoInterval)
        root.photoInterval.set(photoInterval)
        root.photoTimeout.set(photoTimeout)
        root.setE1Firmware(e1Firmware)
    }
}
