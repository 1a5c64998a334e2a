import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that reads, saves and resets the controller's settings.
FormPage {
    id: root

    title: "Settings"

    required property ControllerState controller
    readonly property CameraSettings settings: controller.settings

    signal refreshDevicesClicked()
    signal connectClicked()
    signal saveClicked()
    signal resetClicked()

    Heading { text: "Camera Device:" }
    ChoiceRow {
        label: "Port"
        comboName: "devicesComboSettings"
        choices: root.controller.deviceModel
        currentIndex: root.controller.settingsDeviceIndex
        onCurrentIndexChanged: root.controller.settingsDeviceIndex = currentIndex
    }
    HalfButton { objectName: "refreshDevicesSettingsButton"; text: "Refresh Devices"; onClicked: root.refreshDevicesClicked() }
    HalfButton {
        objectName: "connectButton"
        text: "Connect"
        enabled: root.controller.readyForSettings
        highlighted: true
        onClicked: root.connectClicked()
    }
    HintLabel { ready: root.controller.readyForSettings }

    Heading { text: "Camera Settings:" }
    PageRow {
        label: "Firmware:"
        Layout.preferredHeight: 30
        Label { objectName: "firmwareText"; Layout.fillWidth: true; text: root.settings.firmware; textFormat: Text.PlainText }
    }
    PageRow {
        label: "Battery:"
        Layout.preferredHeight: 30
        Label { objectName: "batteryText"; Layout.fillWidth: true; text: root.settings.battery; textFormat: Text.PlainText }
    }
    TextRow {
        id: dateRow

        label: "Date/Time"
        fieldName: "dateTimeText"
        text: root.settings.date
        onTextChanged: root.settings.date = text
        placeholder: "yyyy-MM-dd hh:mm:ss"
        RowButton {
            text: "Now"
            row: dateRow
            onClicked: root.settings.date = new Date().toLocaleString(Qt.locale("C"), "yyyy-MM-dd hh:mm:ss")
        }
    }
    PageRow {
        label: "Record LED"
        TickBox {
            objectName: "recLedBox"
            Layout.fillWidth: true
            text: "LED is on while recording"
            checked: root.settings.recLedOn
            onCheckedChanged: root.settings.recLedOn = checked
        }
    }
    SliderRow {
        label: "Video interval"
        sliderName: "videoIntervalSlider"
        from: root.settings.videoInterval.from
        to: root.settings.videoInterval.to
        stepSize: root.settings.videoInterval.stepSize
        value: root.settings.videoInterval.value
        onValueChanged: root.settings.videoInterval.value = value
        decimals: 1
        unit: "seconds"
    }
    SliderRow {
        label: "Photo interval"
        sliderName: "photoIntervalSlider"
        from: root.settings.photoInterval.from
        to: root.settings.photoInterval.to
        stepSize: root.settings.photoInterval.stepSize
        snapMode: Slider.SnapAlways
        value: root.settings.photoInterval.value
        onValueChanged: root.settings.photoInterval.value = value
        decimals: 0
        unit: "seconds"
    }
    SliderRow {
        label: "Photo timeout"
        sliderName: "photoTimeoutSlider"
        from: root.settings.photoTimeout.from
        to: root.settings.photoTimeout.to
        stepSize: root.settings.photoTimeout.stepSize
        value: root.settings.photoTimeout.value
        onValueChanged: root.settings.photoTimeout.value = value
        decimals: 0
        unit: "minutes"
    }
    PageRow {
        label: "E1 Firmware"
        ChoiceBox {
            objectName: "e1FirmwareCombo"
            textRole: ""
            Layout.fillWidth: true
            model: ["0.26", "0.29", "0.30 (in beta, not officially supported)"]
            currentIndex: root.settings.e1FirmwareIndex
            onCurrentIndexChanged: root.settings.e1FirmwareIndex = currentIndex
            Accessible.name: "E1 Firmware"
        }
    }
    HalfButton { objectName: "saveSettingsButton"; text: "Save Settings"; enabled: root.controller.readyForSettings; onClicked: root.saveClicked() }
    HalfButton { objectName: "resetSettingsButton"; text: "Reset Settings"; enabled: root.controller.readyForSettings; onClicked: root.resetClicked() }

    Heading { text: "Progress:" }
    ProgressRow { objectName: "settingsProgress"; label: "Settings"; progress: root.controller.settingsProgress }
}
