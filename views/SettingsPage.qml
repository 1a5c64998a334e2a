import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that reads, saves and resets the controller's settings.
FormPage {
    id: root

    required property var devices
    required property bool connected
    required property bool readyToSave
    required property bool readyToReset

    property alias deviceIndex: deviceRow.currentIndex
    property alias firmware: firmwareText.text
    property alias battery: batteryText.text
    property alias date: dateRow.text
    property alias recLedOn: recLedBox.checked
    property alias videoInterval: videoRow.value
    property alias photoInterval: photoRow.value
    property alias photoTimeout: timeoutRow.value
    property alias e1FirmwareIndex: e1FirmwareCombo.currentIndex

    signal refreshDevicesClicked()
    signal connectClicked()
    signal saveClicked()
    signal resetClicked()

    function showProgress(from, to, value, text) {
        progress.show(from, to, value, text)
    }

    Heading { text: "Camera Device:" }
    ChoiceRow {
        id: deviceRow

        label: "Port"
        comboName: "devicesComboSettings"
        choices: root.devices
    }
    HalfButton { objectName: "refreshDevicesSettingsButton"; text: "Refresh Devices"; onClicked: root.refreshDevicesClicked() }
    HalfButton {
        objectName: "connectButton"
        text: "Connect"
        enabled: root.connected
        highlighted: true
        onClicked: root.connectClicked()
    }
    HintLabel { ready: root.connected }

    Heading { text: "Camera Settings:" }
    PageRow {
        label: "Firmware:"
        Layout.preferredHeight: 30
        Label { id: firmwareText; objectName: "firmwareText"; Layout.fillWidth: true; text: "-"; textFormat: Text.PlainText }
    }
    PageRow {
        label: "Battery:"
        Layout.preferredHeight: 30
        Label { id: batteryText; objectName: "batteryText"; Layout.fillWidth: true; text: "-"; textFormat: Text.PlainText }
    }
    TextRow {
        id: dateRow

        label: "Date/Time"
        fieldName: "dateTimeText"
        RowButton {
            text: "Now"
            row: dateRow
            onClicked: dateRow.text = new Date().toLocaleString(Qt.locale("C"), "yyyy-MM-dd hh:mm:ss")
        }
    }
    PageRow {
        label: "Record LED"
        CheckBox {
            id: recLedBox

            objectName: "recLedBox"
            Layout.fillWidth: true
            text: "LED is on while recording"
            checked: true
        }
    }
    SliderRow {
        id: videoRow

        label: "Video interval"
        sliderName: "videoIntervalSlider"
        from: 0.2
        to: 10
        stepSize: 0.1
        value: 1
        decimals: 1
        unit: "seconds"
    }
    SliderRow {
        id: photoRow

        label: "Photo interval"
        sliderName: "photoIntervalSlider"
        from: 5
        to: 120
        stepSize: 1
        snapMode: Slider.SnapAlways
        value: 5
        decimals: 0
        unit: "seconds"
    }
    SliderRow {
        id: timeoutRow

        label: "Photo timeout"
        sliderName: "photoTimeoutSlider"
        from: 5
        to: 360
        stepSize: 5
        value: 90
        decimals: 0
        unit: "minutes"
    }
    PageRow {
        label: "E1 Firmware"
        ChoiceBox {
            id: e1FirmwareCombo

            objectName: "e1FirmwareCombo"
            textRole: ""
            Layout.fillWidth: true
            model: ["0.26", "0.29", "0.30 (in beta, not officially supported)"]
            Accessible.name: "E1 Firmware"
        }
    }
    HalfButton { objectName: "saveSettingsButton"; text: "Save Settings"; enabled: root.readyToSave; onClicked: root.saveClicked() }
    HalfButton { objectName: "resetSettingsButton"; text: "Reset Settings"; enabled: root.readyToReset; onClicked: root.resetClicked() }

    Heading { text: "Progress:" }
    ProgressRow { id: progress; objectName: "settingsProgress"; label: "Settings" }
}
