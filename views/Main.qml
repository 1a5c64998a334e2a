import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

ApplicationWindow {
    id: root

    property bool cardOneCopying: false
    property bool cardTwoCopying: false
    property bool cardThreeCopying: false
    property bool dataCopying: false
    property var drives: []
    property var templates: []
    property var settings: ({})

    signal copyFiles(string dir1, string dir2, string dir3, string targetDir, string templatePath, string projectName)
    signal exitApp()

    function readyToExit() {
        return !root.cardCopying() && !root.dataCopying
    }

    function readyToCopyFiles() {
        return !root.cardCopying() && copyFilesPage.card1Index >= 0 && copyFilesPage.card2Index >= 0
            && copyFilesPage.card3Index >= 0 && copyFilesPage.folder !== ""
    }

    function cardCopying() {
        return root.cardOneCopying || root.cardTwoCopying || root.cardThreeCopying
    }

    /// The key of an entry of `drives` or `templates`; "" where nothing is chosen.
    function keyAt(entries, index) {
        return index >= 0 && index < entries.length ? entries[index].key : ""
    }

    function refreshDrives() {
        driveModel.clear()
        root.drives = appController.getDrives()
        for (const drive of root.drives)
            driveModel.append({ "key": drive.key, "text": drive.value + " (" + drive.key + ")" })

        const ends = (drive, digit) => drive.key.endsWith(digit) || drive.value.endsWith(digit)
        root.drives.forEach((drive, index) => {
            if (!drive.key.includes("360") && !drive.value.includes("360"))
                return
            if (ends(drive, "1"))
                copyFilesPage.card1Index = index
            else if (ends(drive, "2"))
                copyFilesPage.card2Index = index
            else if (ends(drive, "3"))
                copyFilesPage.card3Index = index
        })
    }

    function loadTemplates() {
        templateModel.clear()
        root.templates = appController.getTemplates()
        for (const entry of root.templates)
            templateModel.append({ "key": entry.key, "text": entry.value })
        if (templateModel.count > 0)
            copyFilesPage.templateIndex = 0
    }

    function refreshDestination() {
        copyFilesPage.folder = appController.getMoviesLocation()
    }

    function loadStitchSettings() {
        root.settings = appController.getSettings()
    }

    function copyFilesClicked() {
        if (!root.readyToCopyFiles())
            return
        root.cardOneCopying = true
        root.cardTwoCopying = true
        root.cardThreeCopying = true
        root.copyFiles(root.keyAt(root.drives, copyFilesPage.card1Index),
                       root.keyAt(root.drives, copyFilesPage.card2Index),
                       root.keyAt(root.drives, copyFilesPage.card3Index),
                       copyFilesPage.folder,
                       root.keyAt(root.templates, copyFilesPage.templateIndex),
                       copyFilesPage.projectName)
    }

    function updateCardProgress(cardNumber, from, to, value, text) {
        copyFilesPage.showProgress(cardNumber, from, to, value, text)
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

        currentIndex: pages.currentIndex

        TabButton { text: "Copy Files" }
        TabButton { text: "Copy Data"; enabled: false }
        TabButton { text: "Settings"; enabled: false }
    }

    SwipeView {
        id: pages

        anchors.fill: parent
        currentIndex: tabBar.currentIndex

        CopyFilesPage {
            id: copyFilesPage

            drives: driveModel
            templates: templateModel
            readyToCopyFiles: root.readyToCopyFiles()
            anglesText: root.settings["OverwriteAngles"] ? "Overwrite camera angles in template."
                                                         : "Use camera angles from template."
            onRefreshCardsClicked: root.refreshDrives()
            onRefreshTemplatesClicked: root.loadTemplates()
            onCopyFilesClicked: root.copyFilesClicked()
        }
    }

    footer: Pane {
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
            Button {
                objectName: "exitButton"
                text: "Exit"
                enabled: root.readyToExit()
                onClicked: root.close()
            }
        }
    }

    ListModel { id: driveModel }
    ListModel { id: templateModel }

    MessagePopup {
        id: messagePopup

        objectName: "messagePopup"
    }

    WaitPopup {
        id: waitPopup

        objectName: "waitPopup"
    }

    Component.onCompleted: {
        root.refreshDrives()
        root.loadTemplates()
        root.refreshDestination()
        root.loadStitchSettings()
    }
}
