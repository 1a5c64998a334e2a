import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// The page that downloads and erases the controller's data log.
FormPage {
    id: root

    title: "Copy Data"

    required property ControllerState controller

    signal chooseDestinationClicked()
    signal refreshDevicesClicked()
    signal copyDataClicked()
    signal eraseMemoryClicked()

    Heading { text: "Connection:" }
    ChoiceRow {
        label: "Device"
        comboName: "devicesComboData"
        choices: root.controller.deviceModel
        currentIndex: root.controller.dataDeviceIndex
        onCurrentIndexChanged: root.controller.dataDeviceIndex = currentIndex
    }
    HalfButton { objectName: "refreshDevicesDataButton"; text: "Refresh Devices"; onClicked: root.refreshDevicesClicked() }
    HintLabel { ready: root.controller.readyForSettings }

    Heading { text: "Destination:" }
    TextRow {
        id: folderRow

        label: "Folder"
        fieldName: "destinationDataText"
        text: root.controller.folder
        onTextChanged: root.controller.folder = text
        RowButton { text: "..."; row: folderRow; onClicked: root.chooseDestinationClicked() }
    }
    TextRow {
        label: "Project Name"
        fieldName: "projectNameDataText"
        text: root.controller.projectName
        onTextChanged: root.controller.projectName = text
    }
    HalfButton {
        objectName: "copyDataButton"
        text: "Copy Data"
        enabled: root.controller.readyToCopyData
        highlighted: true
        onClicked: root.copyDataClicked()
    }
    HalfButton {
        objectName: "eraseMemoryButton"
        text: "Erase Memory"
        enabled: root.controller.readyForData
        onClicked: root.eraseMemoryClicked()
    }

    Heading { text: "Progress:" }
    ProgressRow { objectName: "dataProgress"; label: "Data"; progress: root.controller.dataProgress }
}
