import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that downloads and erases the controller's data log.
FormPage {
    id: root

    required property var devices
    required property bool connected
    required property bool readyToCopyData
    required property bool readyToEraseMemory

    property alias deviceIndex: deviceRow.currentIndex
    property alias folder: folderRow.text
    property alias projectName: projectRow.text

    signal chooseDestinationClicked()
    signal refreshDevicesClicked()
    signal copyDataClicked()
    signal eraseMemoryClicked()

    function showProgress(from, to, value, text) {
        progress.show(from, to, value, text)
    }

    Heading { text: "Connection:" }
    ChoiceRow {
        id: deviceRow

        label: "Device"
        comboName: "devicesComboData"
        choices: root.devices
    }
    HalfButton { objectName: "refreshDevicesDataButton"; text: "Refresh Devices"; onClicked: root.refreshDevicesClicked() }
    HintLabel { ready: root.connected }

    Heading { text: "Destination:" }
    TextRow {
        id: folderRow

        label: "Folder"
        fieldName: "destinationDataText"
        RowButton { text: "..."; row: folderRow; onClicked: root.chooseDestinationClicked() }
    }
    TextRow { id: projectRow; label: "Project Name"; fieldName: "projectNameDataText" }
    HalfButton {
        objectName: "copyDataButton"
        text: "Copy Data"
        enabled: root.readyToCopyData
        highlighted: true
        onClicked: root.copyDataClicked()
    }
    HalfButton {
        objectName: "eraseMemoryButton"
        text: "Erase Memory"
        enabled: root.readyToEraseMemory
        onClicked: root.eraseMemoryClicked()
    }

    Heading { text: "Progress:" }
    ProgressRow { id: progress; objectName: "dataProgress"; label: "Data" }
}
